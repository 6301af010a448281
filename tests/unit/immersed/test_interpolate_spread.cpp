// Interpolation, direct forcing and spreading: reference cases, conservation, and the order of sums.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <memory>

#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"
#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"
#include "immersed/boundary_fixture.h"
#include "supplement/IBBoundaryMemMgr.h"
#include "support/device.h"
#include "support/flow_fixture.h"
#include "support/vectors.h"

namespace drelt {
namespace {

using test::compare;
using test::compareScaled;
using test::HostBoundary;
using test::HostFlow;
using test::joined;
using test::VectorCase;

mlUnitScale unitScale(float N, float l0p, float u0k, float u0p, float rou0p) {
    mlUnitScale scale{};
    scale.N = N;
    scale.l0p = l0p;
    scale.u0k = u0k;
    scale.u0px = scale.u0py = scale.u0pz = u0p;
    scale.rou0p = rou0p;
    return scale;
}

// A domain with spacing 0.05 m, away from the origin, with random momentum and a sphere inside.
struct Scene {
    explicit Scene(int samples, int edge = 32)
        : flow(edge, edge, edge), sphere(samples), scale(unitScale(20.0f, 1.0f, 0.1f, 1.5f, 2.0f)) {
        flow.param()->dx = 0.05f;
        flow.host().startx = -3.1f;
        flow.host().starty = 0.27f;
        flow.host().startz = 11.0f;
        std::mt19937 random(7);
        std::uniform_real_distribution<float> any(-0.1f, 0.1f);
        for (std::size_t n = 0; n < flow.nodes(); ++n) {
            flow.host().ux[n] = any(random);
            flow.host().uy[n] = any(random);
            flow.host().uz[n] = any(random);
        }
        const float middle = 0.025f * static_cast<float>(edge);
        sphere.placeOnSphere(-3.1f + middle, 0.27f + middle, 11.0f + middle, 0.6f);
        sphere.stir(0.8f, 3);
        sphere.host().sampleArea = 0.0013f;
        solver.gpuDeviceId = test::device();
        solver.boundaries = {&sphere.manager()};
        solver.scale = scale;
    }
    void upload() {
        flow.upload();
        sphere.upload();
    }
    void couple() {
        upload();
        solver.spreadBoundaries(flow.device(), flow.param());
        flow.download();
        sphere.download();
    }
    std::vector<double> nodeForces() const {
        const mlFlow& host = flow.host();
        return joined(host.forcex, host.forcey, host.forcez, static_cast<int>(flow.nodes()));
    }
    std::vector<double> sampleForces() {
        const mlLagrangeBoundary& host = sphere.host();
        return joined(host.forcex, host.forcey, host.forcez, host.count);
    }

    HostFlow flow;
    HostBoundary sphere;
    mlUnitScale scale;
    mlImmersedSolver solver;
};

TEST(Delta, WeightsOfAllKernels) {
    const VectorCase given("delta");
    const auto r = given.array<float>("in_r");
    for (const int R : {2, 3, 4}) {
        std::vector<float> weights;
        for (const float separation : r) weights.push_back(mlDelta(separation, R));
        EXPECT_TRUE(compare(given.array<double>("out_R" + std::to_string(R)), weights, 4e-7)) << R;
    }
    EXPECT_EQ(mlDelta(0.0f, 4), 0.5f);
    EXPECT_EQ(mlDelta(-1.0f, 4), 0.25f);
    EXPECT_EQ(mlDelta(2.0f, 4), 0.0f);
    for (const int R : {-1, 0, 1, 5, 100}) EXPECT_EQ(mlDelta(0.0f, R), 0.0f);
}

class SampleVectors : public testing::TestWithParam<const char*> {};

TEST_P(SampleVectors, InterpolateAndSpread) {
    const VectorCase given(GetParam());
    HostFlow flow(given);
    HostBoundary boundary(given.integer("samples"));
    mlLagrangeBoundary& host = boundary.host();
    const int count = host.count;
    test::split(given.array<float>("in_coord"), host.coordx, host.coordy, host.coordz, count);
    test::split(given.array<float>("in_normal"), host.normalx, host.normaly, host.normalz, count);
    test::split(given.array<float>("in_vel"), host.ux, host.uy, host.uz, count);
    const auto rou = given.array<float>("in_rou_s");
    for (int i = 0; i < count; ++i) {
        host.rou[i].value = rou[i];
        host.forcex[i] = host.forcey[i] = host.forcez[i] = 1e30;  // of an earlier step
    }
    host.sampleArea = static_cast<float>(given.scalar("sampleArea"));
    boundary.upload();
    flow.param()->slip_ratio = static_cast<float>(given.scalar("slip"));
    mlUnitScale scale =
        unitScale(static_cast<float>(given.scalar("N")), static_cast<float>(given.scalar("l0p")),
                  static_cast<float>(given.scalar("u0k")), static_cast<float>(given.scalar("u0px")),
                  static_cast<float>(given.scalar("rou0p")));
    scale.u0py = static_cast<float>(given.scalar("u0py"));
    scale.u0pz = static_cast<float>(given.scalar("u0pz"));
    const int R = given.integer("R");

    SpreadWorkspace workspace;
    mlInterpolateFluidForce(flow.device(), flow.param(), boundary.device(), count, scale, R);
    mlSpreadForce(flow.device(), flow.param(), boundary.device(), count, scale, R, workspace);
    boundary.download();
    flow.download();

    const auto forces = joined(host.forcex, host.forcey, host.forcez, count);
    const auto expected = given.array<double>("out_sample_force");
    EXPECT_TRUE(compareScaled(expected, forces, 1e-6));
    for (std::size_t i = 0; i < forces.size(); ++i) {
        EXPECT_TRUE(expected[i] != 0.0 || forces[i] == 0.0) << i;
    }
    EXPECT_TRUE(
        compareScaled(given.array<double>("out_forcex"), flow.values(flow.host().forcex), 1e-6));
    EXPECT_TRUE(
        compareScaled(given.array<double>("out_forcey"), flow.values(flow.host().forcey), 1e-6));
    EXPECT_TRUE(
        compareScaled(given.array<double>("out_forcez"), flow.values(flow.host().forcez), 1e-6));
}

INSTANTIATE_TEST_SUITE_P(Cases, SampleVectors,
                         testing::Values("samples_R4_slip0", "samples_R4_slip1",
                                         "samples_R3_slip0.3"));

TEST(Spread, ForceAndTorqueOnTheGridAreThoseOfTheSamples) {
    Scene scene(3000);
    scene.couple();
    const mlLagrangeBoundary& samples = scene.sphere.host();
    const mlUnitScale& s = scene.scale;
    const double perMetre = s.N / s.l0p;
    const double toLattice = perMetre * perMetre * samples.sampleArea * s.l0p * s.u0k * s.u0k /
                             (s.u0px * s.u0px * s.N * s.rou0p);
    double force[3] = {}, torque[3] = {}, size = 0.0;
    const auto add = [&](const double* x, double fx, double fy, double fz, double sign) {
        force[0] += sign * fx;
        force[1] += sign * fy;
        force[2] += sign * fz;
        torque[0] += sign * (x[1] * fz - x[2] * fy);
        torque[1] += sign * (x[2] * fx - x[0] * fz);
        torque[2] += sign * (x[0] * fy - x[1] * fx);
    };
    for (int i = 0; i < samples.count; ++i) {
        const double x[3] = {perMetre * (samples.coordx[i] - scene.flow.host().startx),
                             perMetre * (samples.coordy[i] - scene.flow.host().starty),
                             perMetre * (samples.coordz[i] - scene.flow.host().startz)};
        add(x, toLattice * samples.forcex[i], toLattice * samples.forcey[i],
            toLattice * samples.forcez[i], -1.0);
        size += toLattice * std::fabs(samples.forcex[i]);
    }
    for (int z = 0; z < 32; ++z)
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 32; ++x) {
                const std::size_t n = scene.flow.node(x, y, z);
                const double at[3] = {double(x), double(y), double(z)};
                add(at, scene.flow.host().forcex[n], scene.flow.host().forcey[n],
                    scene.flow.host().forcez[n], 1.0);
            }
    ASSERT_GT(size, 1.0);
    for (int a = 0; a < 3; ++a) {
        EXPECT_LT(std::fabs(force[a]), 1e-6 * size);
        EXPECT_LT(std::fabs(torque[a]), 1e-5 * size * 20.0);  // lever arms of up to 20 nodes
    }
}

// Runs the operators for all boundaries, sample by sample.
void coupleSerially(Scene& scene) {
    const mlUnitScale& s = scene.scale;
    const mlVelocity3D<float> u0p{s.u0px, s.u0py, s.u0pz};
    const int R = scene.solver.ibKernelSelector;
    const int n = scene.flow.param()->samples_x;  // along every axis
    for (const IBBoundaryMemMgr* boundary : scene.solver.boundaries) {
        mlLagrangeBoundary* const record = boundary->mllaboundary_gpu;
        for (int i = 0; i < record->count; ++i) {
            mlInterpolateFluidForceKernel({i % 20, i / 20 % 20, i / 400, 0}, record,
                                          scene.flow.device(), 0.25, s.N, s.l0p, s.rou0p, s.u0k,
                                          u0p, R, 20, 20, 0, n, n, n);
        }
        for (int i = 0; i < record->count; ++i) {
            mlSpreadForceKernel({i % 20, i / 20 % 20, i / 400, 0}, record, scene.flow.device(), s.N,
                                s.l0p, s.rou0p, s.u0k, u0p, R, 20, 20, 0, n, n, n);
        }
    }
}

// A sphere, a boundary far larger than the grid, and samples strewn over the grid without order. Many of these
// lie on nodes, and some have no valid position. So samples take every path of the host code.
struct Crowd : Scene {
    explicit Crowd(int edge) : Scene(5000, edge), wide(800), strewn(1500) {
        flow.param()->slip_ratio = 0.25f;
        wide.placeOnSphere(-2.0f, 1.0f, 12.0f, 1.7f);
        wide.stir(0.5f, 9);
        strewn.stir(0.5f, 10);
        std::mt19937 random(5);
        std::uniform_real_distribution<float> any(-0.05f, 0.05f + 0.05f * static_cast<float>(edge));
        std::uniform_int_distribution<int> node(0, edge - 1);
        mlLagrangeBoundary& host = strewn.host();
        for (int i = 0; i < host.count; ++i) {
            const auto place = [&] {
                return i % 3 == 0 ? 0.05f * static_cast<float>(node(random)) : any(random);
            };
            host.coordx[i] = -3.1f + place();
            host.coordy[i] = 0.27f + place();
            host.coordz[i] =
                i % 97 == 0 ? std::numeric_limits<float>::quiet_NaN() : 11.0f + place();
        }
        wide.host().sampleArea = strewn.host().sampleArea = 0.01f;
        solver.boundaries = {&sphere.manager(), &wide.manager(), &strewn.manager()};
        flow.upload();
        for (HostBoundary* boundary : {&sphere, &wide, &strewn}) boundary->upload();
    }
    // All results of a coupling.
    std::vector<double> forces() {
        flow.download();
        std::vector<double> all = nodeForces();
        for (HostBoundary* boundary : {&sphere, &wide, &strewn}) {
            boundary->download();
            const mlLagrangeBoundary& host = boundary->host();
            const auto own = joined(host.forcex, host.forcey, host.forcez, host.count);
            all.insert(all.end(), own.begin(), own.end());
        }
        return all;
    }

    HostBoundary wide, strewn;
};

TEST(Coupling, EqualsTheOperatorsSampleBySampleForAnyNumberOfThreads) {
    DRELT_HOST_ONLY("runs the operators on host memory, sample by sample");
    const int before = omp_get_max_threads();
    // Most samples lie far from the faces of the grid of edge 32, and all lie near those of edge 9. Edge 5 is
    // shorter than a row of a stencil.
    for (const auto& [edge, R] : {std::pair{32, 2}, {32, 3}, {32, 4}, {32, 5}, {9, 4}, {5, 4}}) {
        Crowd serial(edge);
        serial.solver.ibKernelSelector = R;
        coupleSerially(serial);
        const auto expected = serial.forces();
        ASSERT_GT(test::largest(expected), 1e-3);
        for (const int threads : R == 4 ? std::vector<int>{1, 2, 3, 4, 7} : std::vector<int>{3}) {
            omp_set_num_threads(threads);
            Crowd crowd(edge);
            crowd.solver.ibKernelSelector = R;
            crowd.solver.spreadBoundaries(crowd.flow.device(), crowd.flow.param());
            EXPECT_TRUE(crowd.forces() == expected)
                << threads << " threads, R " << R << ", edge " << edge;
        }
    }
    omp_set_num_threads(before);
}

// The weights of all boundaries' samples by the operators, sample by sample.
std::vector<double> weighSerially(Crowd& crowd) {
    const float N = crowd.scale.N, l0p = crowd.scale.l0p;
    const int R = crowd.solver.ibKernelSelector;
    const int n = crowd.flow.param()->samples_x;  // along every axis
    std::vector<double> nodes(static_cast<std::size_t>(n + AreaSums::kRoom) * n * n, 1e9);
    const AreaSums sums{nodes.data(), n + AreaSums::kRoom, n, n, n};
    const auto forAll = [&](auto&& run) {
        for (const IBBoundaryMemMgr* boundary : crowd.solver.boundaries) {
            mlLagrangeBoundary* const record = boundary->mllaboundary_gpu;
            for (int i = 0; i < record->count; ++i) run(LaunchIndex{i, 0, 0, i}, record);
        }
    };
    const mlFlow* const flow = crowd.flow.device();
    forAll([&](LaunchIndex at, mlLagrangeBoundary* record) {
        mlClearAreaKernel(at, record, flow, sums, record->count, N, l0p, R);
    });
    forAll([&](LaunchIndex at, mlLagrangeBoundary* record) {
        mlSpreadAreaKernel(at, record, flow, sums, record->count, N, l0p, R);
    });
    std::vector<double> all, own(5000);
    forAll([&](LaunchIndex at, mlLagrangeBoundary* record) {
        mlNormaliseForceKernel(at, record, flow, sums, own.data(), record->count, N, l0p, R);
        all.push_back(own[static_cast<std::size_t>(at.n)]);
    });
    return all;
}

TEST(NormalisedWeights, AreThoseOfTheOperatorsForAnyNumberOfThreads) {
    DRELT_HOST_ONLY("runs the operators on host memory, sample by sample");
    const int before = omp_get_max_threads();
    for (const auto& [edge, R] : {std::pair{32, 2}, {32, 3}, {32, 4}, {32, 5}, {9, 4}, {5, 4}}) {
        Crowd serial(edge);
        serial.solver.ibKernelSelector = R;
        serial.solver.interpolateForces(serial.flow.device(), serial.flow.param());
        const auto expected = weighSerially(serial);
        std::vector<double> forces;
        for (const int threads : {1, 3, 4}) {
            omp_set_num_threads(threads);
            Crowd crowd(edge);
            crowd.solver.ibKernelSelector = R;
            for (int again = 0; again < 2; ++again) {  // nothing of the first time is left
                crowd.solver.interpolateForces(crowd.flow.device(), crowd.flow.param());
                crowd.solver.normaliseForces(crowd.flow.device(), crowd.flow.param());
            }
            std::size_t next = 0;
            for (const IBBoundaryMemMgr* boundary : crowd.solver.boundaries) {
                for (int i = 0; i < boundary->mllaboundary->count; ++i, ++next)
                    ASSERT_NEAR(boundary->weights_dev[i], expected[next], 1e-9 * expected[next])
                        << threads << " threads, R " << R << ", edge " << edge << ", " << next;
            }
            if (forces.empty()) forces = crowd.forces();
            EXPECT_TRUE(crowd.forces() == forces) << threads << " threads, R " << R;
            EXPECT_TRUE(test::compareScaled(serial.forces(), forces, 1e-9)) << R;
        }
    }
    omp_set_num_threads(before);
}

// The least and the largest share of an even slip that equal skins in one place take away at once.
std::pair<double, double> slipTaken(int skins, bool normalised) {
    constexpr float kSlip = 0.3f;
    Scene scene(3000);
    mlFlow& fluid = scene.flow.host();
    const std::size_t nodes = scene.flow.nodes();
    for (float* axis : {fluid.ux, fluid.uy, fluid.uz}) std::fill_n(axis, nodes, 0.0f);
    mlLagrangeBoundary& first = scene.sphere.host();
    scene.sphere.stir(0.0f, 1);
    std::fill_n(first.ux, first.count, kSlip);
    scene.upload();
    std::vector<std::unique_ptr<HostBoundary>> more;
    for (int s = 1; s < skins; ++s) {
        more.push_back(std::make_unique<HostBoundary>(first.count));
        mlLagrangeBoundary& other = more.back()->host();
        for (auto field : {&mlLagrangeBoundary::coordx, &mlLagrangeBoundary::coordy,
                           &mlLagrangeBoundary::coordz, &mlLagrangeBoundary::ux})
            std::copy_n(first.*field, first.count, other.*field);
        other.sampleArea = first.sampleArea;
        more.back()->upload();
        scene.solver.boundaries.push_back(&more.back()->manager());
    }
    scene.solver.interpolateForces(scene.flow.device(), scene.flow.param());
    if (normalised) scene.solver.normaliseForces(scene.flow.device(), scene.flow.param());
    scene.solver.spreadForces(scene.flow.device(), scene.flow.param());
    scene.flow.download();
    for (std::size_t n = 0; n < nodes; ++n) fluid.ux[n] = static_cast<float>(fluid.forcex[n]);
    scene.flow.upload();
    scene.solver.interpolateForces(scene.flow.device(), scene.flow.param());
    scene.sphere.download();
    const mlUnitScale& s = scene.scale;
    const double all = s.u0px * s.rou0p * s.N / (s.l0p * s.u0k) * kSlip;
    const auto [least, most] = std::minmax_element(first.forcex, first.forcex + first.count);
    return {1 - *most / all, 1 - *least / all};
}

TEST(NormalisedWeights, TakeAwayAnEvenSlipHoweverManySkins) {
    for (const int skins : {1, 2, 4}) {
        const auto [least, most] = slipTaken(skins, true);
        EXPECT_GT(least, 0.9) << skins;
        EXPECT_LT(most, 1.1) << skins;
    }
    EXPECT_LT(slipTaken(1, false).second, 0.5);
    EXPECT_GT(slipTaken(4, false).first, 1.1);
}

TEST(Interpolation, ForceOfARestingSampleStopsTheFluid) {
    Scene scene(1);
    const float momentum[3] = {0.02f, -0.03f, 0.05f};
    for (std::size_t n = 0; n < scene.flow.nodes(); ++n) {
        scene.flow.host().ux[n] = momentum[0];
        scene.flow.host().uy[n] = momentum[1];
        scene.flow.host().uz[n] = momentum[2];
    }
    scene.sphere.stir(0.0f, 1);
    scene.couple();
    const mlUnitScale& s = scene.scale;
    const double C = s.u0px * s.u0px * s.rou0p * s.N / (s.l0p * s.u0k * s.u0k);
    for (int a = 0; a < 3; ++a) {
        EXPECT_NEAR(scene.sampleForces()[a], -C * momentum[a], 1e-6 * C * 0.05);
    }
    std::fill_n(scene.flow.host().ux, scene.flow.nodes(), 0.0f);
    std::fill_n(scene.flow.host().uy, scene.flow.nodes(), 0.0f);
    std::fill_n(scene.flow.host().uz, scene.flow.nodes(), 0.0f);
    scene.couple();
    EXPECT_EQ(test::largest(scene.sampleForces()), 0.0);
}

TEST(Interpolation, FreeSlipForcesTheNormalComponentOnly) {
    Scene scene(200);
    scene.flow.param()->slip_ratio = 1.0f;
    for (int i = 0; i < 200; ++i) {
        scene.sphere.host().normalx[i] = 1.0f;
        scene.sphere.host().normaly[i] = scene.sphere.host().normalz[i] = 0.0f;
    }
    scene.couple();
    const mlLagrangeBoundary& samples = scene.sphere.host();
    for (int i = 0; i < 200; ++i) {
        EXPECT_NE(samples.forcex[i], 0.0);
        EXPECT_EQ(samples.forcey[i], 0.0);
        EXPECT_EQ(samples.forcez[i], 0.0);
    }
}

TEST(Interpolation, SamplesOutsideTakeNoPart) {
    Scene scene(7);
    mlLagrangeBoundary& samples = scene.sphere.host();
    scene.flow.param()->dx = scene.scale.l0p = scene.scale.N = 1.0f;
    scene.solver.scale = scene.scale;
    scene.flow.host().startx = scene.flow.host().starty = scene.flow.host().startz = 0.0f;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float x[7] = {32.0f, 0.0f, 31.5f, -0.001f, nan, 20.0f, 1e30f};
    const bool inside[7] = {false, true, true, false, false, true, false};
    for (int i = 0; i < 7; ++i) {
        samples.coordx[i] = x[i];
        samples.coordy[i] = samples.coordz[i] = 20.0f;
        samples.ux[i] = 1.0f;
        samples.forcex[i] = samples.forcey[i] = samples.forcez[i] = 5.0;
    }
    scene.couple();
    for (int i = 0; i < 7; ++i) EXPECT_EQ(samples.forcex[i] != 0.0, inside[i]) << i;
    for (const double force : scene.nodeForces()) ASSERT_TRUE(std::isfinite(force));
}

TEST(Interpolation, AnUnknownKernelReachesNoNode) {
    Scene scene(50);
    scene.solver.ibKernelSelector = 5;
    scene.couple();
    EXPECT_EQ(test::largest(scene.nodeForces()), 0.0);
    const mlUnitScale& s = scene.scale;
    const double C = s.u0px * s.rou0p * s.N / (s.l0p * s.u0k);
    for (int i = 0; i < 50; ++i) {
        EXPECT_NEAR(scene.sphere.host().forcex[i], C * scene.sphere.host().ux[i], 1e-6 * C);
    }
}

TEST(Interpolation, TellsOfMomentumThatIsNotANumber) {
    Scene scene(1);
    scene.flow.param()->dx = scene.scale.l0p = scene.scale.N = 1.0f;
    scene.solver.scale = scene.scale;
    scene.flow.host().startx = scene.flow.host().starty = scene.flow.host().startz = 0.0f;
    scene.sphere.host().coordx[0] = scene.sphere.host().coordy[0] = 20.0f;
    scene.sphere.host().coordz[0] = 20.0f;
    const std::size_t n = scene.flow.node(21, 21, 21);  // the last node of non-zero weight
    scene.flow.host().uy[n] = std::numeric_limits<float>::quiet_NaN();
    scene.flow.host().ux[n] = 0.25f;
    scene.flow.host().uz[n] = 0.5f;
    testing::internal::CaptureStdout();
    scene.couple();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "NAN find! " + std::to_string(n) + "  0.250 nan 0.500 0.016  \n");
    EXPECT_TRUE(std::isnan(scene.sphere.host().forcey[0]));
    EXPECT_TRUE(std::isnan(scene.flow.host().forcey[n]));
}

TEST(Immersed, BoundariesAddUp) {
    const auto run = [](bool first, bool second) {
        Scene scene(500);
        HostBoundary other(300);
        other.placeOnSphere(-2.0f, 1.2f, 12.1f, 0.4f);
        other.stir(0.3f, 5);
        other.host().sampleArea = 0.002f;
        other.upload();
        scene.solver.boundaries.clear();
        if (first) scene.solver.boundaries.push_back(&scene.sphere.manager());
        if (second) scene.solver.boundaries.push_back(&other.manager());
        scene.couple();
        return scene.nodeForces();
    };
    const auto one = run(true, false), two = run(false, true), both = run(true, true);
    std::vector<double> sum(one.size());
    for (std::size_t i = 0; i < sum.size(); ++i) sum[i] = one[i] + two[i];
    EXPECT_GT(test::largest(two), 0.0);
    EXPECT_TRUE(compareScaled(sum, both, 1e-14));
}

}  // namespace
}  // namespace drelt
