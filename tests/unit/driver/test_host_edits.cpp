// Callers that read and edit the host record find and cause the same under both schedules, or are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "cslbm/mlsolver/mlLattice.h"
#include "driver/scene.h"
#include "simulatorInterface/FluidHelper.h"
#include "support/fields.h"
#include "support/message_of.h"

namespace drelt {
namespace {

using Eigen::Vector3d;
using test::messageOf;

// A falling sphere in a box with a layer.
class Scene {
public:
    explicit Scene(Schedule schedule, int layer = 2)
        : sim(std::make_unique<coupledLBM_sim3D>(test::boxOf(20, 17, 18, layer), test::device())) {
        sim->schedule = schedule;
        const auto world = std::make_shared<skWorld>(Vector3d(2, -1, 0.5));
        world->addSkeleton(test::bodyOf("sphere_follow", 400));
        sim->attachWorld(world);
    }
    explicit Scene(Schedule schedule, int layer, int steps) : Scene(schedule, layer) {
        sim->commitInit();
        EXPECT_EQ(sim->solver->domain(0).schedule(), schedule);
        step(steps);
    }
    void step(int steps) {
        for (int i = 0; i < steps; ++i) sim->step(TWO_WAY);
    }
    mlFlow& host() { return *sim->lbmvec[0]; }
    mlFlow& readOut() {
        sim->saveScene(0, 0);
        FluidHelper::populationsToHost(*sim->solver, 0);
        return host();
    }

    std::unique_ptr<coupledLBM_sim3D> sim;
};

template <class T>
std::vector<double> copied(const T* values, std::int64_t count) {
    return {values, values + count};
}

double largestDifference(const std::vector<double>& a, const std::vector<double>& b) {
    double largest = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!(std::abs(a[i] - b[i]) <= largest)) largest = std::abs(a[i] - b[i]);
    }
    return largest;
}

void expectSameFields(Scene& one, Scene& other, double allowed) {
    const test::Fields a = test::fieldsOf(*one.sim->solver), b = test::fieldsOf(*other.sim->solver);
    for (const auto field : {&test::Fields::rou, &test::Fields::ux, &test::Fields::uz}) {
        const auto& x = a.*field;
        const auto& y = b.*field;
        EXPECT_LT(largestDifference({x.begin(), x.end()}, {y.begin(), y.end()}), allowed);
    }
}

// Read-outs leave the populations of a production domain on its device; an edit of the momentum that
// follows must not lose them.
TEST(HostEdits, OfMomentumKeepThePopulations) {
    Scene operators(Schedule::Operators, 2, 20), production(Schedule::Production, 2, 20);
    for (Scene* const scene : {&operators, &production}) {
        scene->sim->saveScene(0, 0);
        mlFlow& host = scene->host();
        for (std::int64_t n = 0; n < host.count; ++n) host.ux[n] += n % 3 == 0 ? 0.01f : 0.0f;
        scene->sim->syncState = coupledLBM_sim3D::HostNewer;
        scene->step(2);
    }
    expectSameFields(operators, production, 2e-5);
}

TEST(HostEdits, OfForcesReachTheNextStepAfterAReset) {
    Scene operators(Schedule::Operators, 2, 5), production(Schedule::Production, 2, 5);
    for (Scene* const scene : {&operators, &production}) {
        mlFlow& host = scene->readOut();
        host.forcez[host.count / 2] = 0.02;
        scene->sim->reset();
        scene->step(1);
    }
    expectSameFields(operators, production, 2e-5);
    const auto pushed = test::fieldsOf(*production.sim->solver).uz;
    EXPECT_GT(*std::max_element(pushed.begin(), pushed.end()), 1e-3f) << "the force acts";
}

TEST(HostReads, GiveForcesAndPopulationsOfTheOperators) {
    const auto read = [](Schedule schedule) {
        Scene scene(schedule, 2, 10);
        scene.readOut();
        scene.sim->reset();  // at a density that is not 1
        scene.step(3);
        scene.sim->solver->couple(0);
        mlFlow& host = scene.readOut();
        std::vector<std::vector<double>> all{copied(host.forcex, host.count),
                                             copied(host.forcey, host.count)};
        for (const float* field : {host.f, host.fPost, host.fEqBar}) {
            all.push_back(copied(field, kDirections * host.count));
        }
        scene.step(1);
        scene.readOut();
        EXPECT_EQ(
            largestDifference(copied(host.forcex, host.count), std::vector<double>(host.count)), 0)
            << "the step consumes the forces";
        return all;
    };
    const auto one = read(Schedule::Operators), other = read(Schedule::Production);
    const auto largest = [](const std::vector<double>& values) {
        return largestDifference(values, std::vector<double>(values.size()));
    };
    for (std::size_t i = 0; i < one.size(); ++i) {
        EXPECT_GT(largest(one[i]), 0) << i;
        EXPECT_LT(largestDifference(one[i], other[i]), i < 2 ? 1e-4 * largest(one[i]) : 5e-6) << i;
    }
}

TEST(HostReads, BeforeTheFirstStepFindRestEverywhere) {
    for (const Schedule schedule : {Schedule::Operators, Schedule::Production}) {
        Scene scene(schedule, 2, 0);
        const mlFlow& host = scene.readOut();
        for (int i = 0; i < kDirections; ++i) {
            for (std::int64_t n = 0; n < host.count; ++n) {
                const std::int64_t at = i * host.count + n;
                ASSERT_EQ(host.f[at], w_cas1[i]) << n;
                ASSERT_EQ(host.fPost[at], w_cas1[i]) << n;
                ASSERT_EQ(host.fEqBar[at], w_cas1[i]) << n;
            }
        }
    }
}

TEST(HostEdits, OfTheLayerBeforeACommitTakeTheOperators) {
    const auto edits = {+[](mlFlow& host) { host.sigma[100] = 0.5f; },
                        +[](mlFlow& host) { host.PML_type[host.count / 2] = PML_INTERIOR; },
                        +[](mlFlow& host) { host.Sopt[7] = 0.1f; },
                        +[](mlFlow& host) { host.flag[host.count / 2] = ML_NODE_SOLID; }};
    for (const auto edit : edits) {
        Scene scene(Schedule::Production);
        edit(scene.host());
        testing::internal::CaptureStdout();
        scene.sim->commitInit();
        const std::string said = testing::internal::GetCapturedStdout();
        EXPECT_EQ(scene.sim->solver->domain(0).schedule(), Schedule::Operators);
        EXPECT_NE(said.find("steps run by the operators: 1 node(s)"), std::string::npos) << said;
    }
}

TEST(HostEdits, ThatProductionCannotCarryAreRefused) {
    Scene scene(Schedule::Production, 2, 2);
    coupledLBM_sim3D& sim = *scene.sim;
    mlFlow& host = scene.readOut();
    const std::int64_t n = host.count / 2;
    const auto advice = [](const std::string& message) {
        EXPECT_NE(message.find("Schedule::Operators"), std::string::npos) << message;
    };
    advice(messageOf<std::logic_error>([&] { sim.solver->uploadForcesAndPml(0); }));

    const PML_TYPE type = host.PML_type[n];
    host.PML_type[n] = PML_INTERIOR;
    sim.syncState = coupledLBM_sim3D::HostNewer;
    advice(messageOf<std::runtime_error>([&] { sim.step(TWO_WAY); }));
    EXPECT_EQ(sim.getIterNum(), 2);
    host.PML_type[n] = type;
    sim.step(TWO_WAY);

    host.flag[n] = ML_NODE_SOLID;
    advice(messageOf<std::runtime_error>([&] { sim.reset(); }));
    EXPECT_EQ(sim.getIterNum(), 3);
    host.flag[n] = ML_NODE_FLUID;
    sim.reset();
}

}  // namespace
}  // namespace drelt
