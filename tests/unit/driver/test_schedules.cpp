// A coupled run under the two schedules: fluid, bodies and sample forces are the same.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "Markers/Markers.h"
#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "driver/scene.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/fields.h"

namespace drelt {
namespace {

// What a run leaves: fields, sample forces, the body's velocity, a marker's signal.
struct Outcome {
    test::Fields fields;
    std::vector<double> forces;
    Eigen::VectorXd velocity;
    float pressure = 0;
};

struct Case {
    int layer;
    couplingMode mode;
};

// A sphere of 8 nodes per diameter and four times the fluid's density falls askew in a box of odd sizes that
// follows it, by up to a tenth of a node per step. Rounding differences grow where the fluid pushes the
// body back; a heavy, fast body keeps them small. Read-outs come at odd steps, and a reset in the middle.
Outcome run(Schedule schedule, const Case& given, int steps = 50) {
    const auto body = test::bodyOf("sphere_floating", 500, {10, 20, 30}, Eigen::Vector3d::Zero(),
                                   test::device(), 4);
    const auto simulator =
        test::simulatorOf(test::boxOf(41, 27, 31, given.layer), body, {2, -1.2, 0.8}, schedule);
    EXPECT_EQ(simulator->solver->domain(0).schedule(), schedule);
    for (int i = 0; i < steps; ++i) {
        if (i == 20) simulator->reset();
        simulator->step(given.mode);
        if (i == 7 || i == 30) simulator->saveScene(0, 0);
    }
    Outcome out;
    out.fields = test::fieldsOf(*simulator->solver);
    out.forces = test::sampleForces(body->sampler().boundaryMgr());
    out.velocity = body->getVelocities();
    const auto& pressure = body->getMarkers()->data_cpu.pressure;
    out.pressure = pressure.empty() ? 1.0f : pressure.front();
    return out;
}

template <class T>
double worst(const std::vector<T>& a, const std::vector<T>& b) {
    double worst = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        worst = std::max(worst, static_cast<double>(std::abs(a[i] - b[i])));
    }
    return worst;
}

template <class T>
double largest(const std::vector<T>& a) {
    return worst(a, std::vector<T>(a.size()));
}

class Schedules : public testing::TestWithParam<Case> {};

TEST_P(Schedules, GiveTheSameRun) {
    const Outcome one = run(Schedule::Operators, GetParam());
    const Outcome other = run(Schedule::Production, GetParam());
    EXPECT_LT(worst(one.fields.rou, other.fields.rou), 2e-5);
    EXPECT_LT(worst(one.fields.ux, other.fields.ux), 1e-5);
    EXPECT_LT(worst(one.fields.uy, other.fields.uy), 1e-5);
    EXPECT_LT(worst(one.fields.uz, other.fields.uz), 1e-5);
    EXPECT_LT(worst(one.fields.Sopt, other.fields.Sopt), 5e-7);
    EXPECT_GT(largest(one.forces), 0);
    // Under the operators alone, a last-bit change of the viscosity moves the forces by 5e-6 of the largest.
    EXPECT_LT(worst(one.forces, other.forces), 2e-5 * largest(one.forces));
    EXPECT_LT((one.velocity - other.velocity).norm(), 2e-5 * one.velocity.norm());
    EXPECT_NEAR(one.pressure, other.pressure, 2e-5);
    EXPECT_GT(largest(one.fields.ux), 1e-3) << "the fluid moves";
}

INSTANTIATE_TEST_SUITE_P(Layers, Schedules,
                         testing::Values(Case{0, TWO_WAY}, Case{1, TWO_WAY}, Case{0, ONE_WAY},
                                         Case{3, ONE_WAY}, Case{3, TWO_WAY}, Case{10, TWO_WAY}));

TEST(Schedules, DoNotDependOnTheNumberOfThreads) {
    if (test::onGpu()) GTEST_SKIP() << "forces are added there in no order";
    const int before = omp_get_max_threads();
    omp_set_num_threads(1);
    const Outcome one = run(Schedule::Production, {3, TWO_WAY}, 25);
    for (const int threads : {2, 3, 4}) {
        omp_set_num_threads(threads);
        const Outcome many = run(Schedule::Production, {3, TWO_WAY}, 25);
        EXPECT_EQ(many.fields.rou, one.fields.rou) << threads;
        EXPECT_EQ(many.fields.ux, one.fields.ux) << threads;
        EXPECT_EQ(many.forces, one.forces) << threads;
        EXPECT_EQ(many.velocity, one.velocity) << threads;
    }
    omp_set_num_threads(before);
}

}  // namespace
}  // namespace drelt
