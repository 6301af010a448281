// The alternative collisions: they agree with reference cases, and with each other where they must.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"
#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"
#include "cslbm/gpu_inc/gpu/mlCollideAlternatives.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"
#include "support/flow_fixture.h"
#include "support/random_flow.h"
#include "support/vectors.h"

namespace drelt::test {
namespace {

constexpr CollisionOperator kAll[] = {
    CollisionOperator::HighorderFitted, CollisionOperator::HighorderFittedPart1,
    CollisionOperator::HighorderFixed,  CollisionOperator::Plain,
    CollisionOperator::Forced,          CollisionOperator::Cascade,
    CollisionOperator::Polynomial};
constexpr CollisionOperator kPopulationForced[] = {
    CollisionOperator::Forced, CollisionOperator::Cascade, CollisionOperator::Polynomial};

std::vector<float> collided(CollisionOperator choice, HostFlow& flow) {
    flow.upload();
    collide(choice, flow.device(), flow.param());
    flow.download();
    return flow.values(flow.host().fPost, 27);
}

TEST(AlternativeCollisions, AgreeWithReference) {
    const struct {
        CollisionOperator choice;
        const char* name;
    } cases[] = {{CollisionOperator::Plain, "collide_plain"},
                 {CollisionOperator::Forced, "collide_forced"},
                 {CollisionOperator::Cascade, "collide_forced"},
                 {CollisionOperator::Polynomial, "collide_poly"},
                 {CollisionOperator::HighorderFixed, "collide_highorder_fixed"},
                 {CollisionOperator::HighorderFittedPart1, "collide_random"},
                 {CollisionOperator::HighorderFittedPart1, "collide_body_accel"}};
    for (const auto& [choice, name] : cases) {
        SCOPED_TRACE(std::string(name) + ", choice " + std::to_string(static_cast<int>(choice)));
        const VectorCase given(name);
        HostFlow flow(given);
        if (given.hasScalar("gy")) {
            flow.param()->bodyAccely = static_cast<float>(given.scalar("gy"));
        }
        EXPECT_TRUE(compare(given.array<double>("out_fPost"), collided(choice, flow), 2e-6));
        if (given.has("out_Sopt")) {
            EXPECT_TRUE(
                compare(given.array<double>("out_Sopt"), flow.values(flow.host().Sopt), 5e-9));
        }
        if (choice == CollisionOperator::Cascade || choice == CollisionOperator::Polynomial) {
            EXPECT_TRUE(compare(given.array<double>("out_fStore"),
                                flow.values(flow.host().fStore, 27), 2e-6));
        }
    }
}

TEST(AlternativeCollisions, KeepARestState) {
    for (const CollisionOperator choice : kAll) {
        HostFlow flow(5, 4, 3);
        for (std::size_t n = 0; n < flow.nodes(); ++n) {
            flow.host().rou[n].value = 1.25f;
            for (std::size_t i = 0; i < kDirections; ++i) {
                flow.host().f[i * flow.nodes() + n] *= 1.25f;
            }
        }
        const std::vector<float> before = flow.values(flow.host().f, 27);
        EXPECT_TRUE(compare(before, collided(choice, flow), 2e-7)) << static_cast<int>(choice);
    }
}

TEST(AlternativeCollisions, AChoiceOutOfRangeIsRefused) {
    HostFlow flow(5, 4, 3);
    EXPECT_THROW(collided(static_cast<CollisionOperator>(7), flow), std::invalid_argument);
    EXPECT_THROW(applyBoundary(static_cast<BoundaryFamily>(20), BoundaryStage::AfterLayer,
                               flow.device(), flow.param()),
                 std::invalid_argument);
    for (const auto launch : {&mlBoundaryConditionFlag, &mlBoundaryConditionZouHe}) {
        EXPECT_THROW(launch(flow.device(), flow.param(), ML_NODE_INLET), std::invalid_argument);
    }
}

// The rows are longer than a staging block of the host, and their length is no multiple of a pack.
TEST(AlternativeCollisions, TwoStagesAndSingleNodesGiveTheSameAsOneKernel) {
    HostFlow flow(301, 3, 2);
    fillRandom(flow, 11);
    const MLFluidParam& p = *flow.param();
    flow.param()->bodyAccely = 1e-3f;
    const std::vector<float> rows = collided(CollisionOperator::Forced, flow);
    EXPECT_TRUE(compare(rows, collided(CollisionOperator::Cascade, flow), 1e-7));

    for (int z = 0; z < p.samples_z; ++z)
        for (int y = 0; y < p.samples_y; ++y)
            for (int x = 0; x < p.samples_x; ++x) {
                const auto n = static_cast<std::int64_t>(flow.node(x, y, z));
                mlCollideAddForceKernel({x, y, z, n}, &flow.host(), p.bodyAccely, p.samples_x,
                                        p.samples_y, p.samples_z);
            }
    EXPECT_TRUE(compare(rows, flow.values(flow.host().fPost, 27), 1e-7));
}

// This operator, and no other, leaves a state in the polynomial equilibrium unchanged.
TEST(AlternativeCollisions, PolynomialEquilibriumIsAFixedPoint) {
    HostFlow flow(9, 7, 5);
    fillRandom(flow, 13);
    mlFlow& h = flow.host();
    const std::size_t count = flow.nodes();
    for (std::size_t n = 0; n < count; ++n) {
        h.forcex[n] = h.forcey[n] = h.forcez[n] = 0.0;
        h.ux[n] = 10.0f * h.ux[n] + 0.1f;
        h.uy[n] = 10.0f * h.uy[n] - 0.15f;
        h.uz[n] = 10.0f * h.uz[n] + 0.05f;
        for (int i = 0; i < kDirections; ++i) {
            h.f[i * count + n] = hostEquilibrium(i, h.rou[n].value, h.ux[n], h.uy[n], h.uz[n]);
        }
    }
    const std::vector<float> before = flow.values(h.f, 27);
    EXPECT_TRUE(compare(before, collided(CollisionOperator::Polynomial, flow), 6e-7));
    EXPECT_FALSE(compare(before, collided(CollisionOperator::Cascade, flow), 1e-4));
}

TEST(AlternativeCollisions, Part1IsTheLiveOperator) {
    const auto run = [](CollisionOperator choice) {
        auto flow = std::make_unique<HostFlow>(37, 6, 5);
        fillRandom(*flow, 17);
        for (std::size_t n = 0; n < flow->nodes(); n += 3) flow->host().ux[n] = 0.5f;
        collided(choice, *flow);
        return flow;
    };
    const auto live = run(CollisionOperator::HighorderFitted);
    const auto part1 = run(CollisionOperator::HighorderFittedPart1);
    const mlFlow& a = live->host();
    const mlFlow& b = part1->host();
    EXPECT_TRUE(compare(live->values(a.fPost, 27), part1->values(b.fPost, 27), 0.0));
    EXPECT_TRUE(compare(live->values(a.Sopt), part1->values(b.Sopt), 0.0));
}

// The float argument of the operators with a source of populations is an acceleration along y. It acts like an
// additional force density and does not change the stored moments.
TEST(AlternativeCollisions, FloatArgumentIsForceAlongYOnly) {
    for (const CollisionOperator choice : kPopulationForced) {
        HostFlow flow(11, 4, 3);
        fillRandom(flow, 19);
        mlFlow& h = flow.host();
        const float gy = -3e-3f;
        flow.param()->bodyAccely = gy;
        const std::vector<float> byArgument = collided(choice, flow);
        const std::vector<float> moments = flow.values(h.fStore, 27);
        flow.param()->bodyAccely = 0.0f;
        EXPECT_FALSE(compare(byArgument, collided(choice, flow), 1e-5));
        EXPECT_TRUE(compare(moments, flow.values(h.fStore, 27), 0.0));
        for (std::size_t n = 0; n < flow.nodes(); ++n) h.forcey[n] += h.rou[n].value * gy;
        EXPECT_TRUE(compare(byArgument, collided(choice, flow), 1e-9));
    }
    HostFlow flow(11, 4, 3);
    fillRandom(flow, 19);
    const std::vector<float> without = collided(CollisionOperator::Plain, flow);
    flow.param()->bodyAccely = 1.0f;
    EXPECT_TRUE(compare(without, collided(CollisionOperator::Plain, flow), 0.0));
}

// One row of a domain that is large enough to hold the probed node. The other pages are never touched.
TEST(AlternativeCollisions, Part1PrintsTheFitOfOneNode) {
    const int nx = 130;
    const int ny = 140;
    const int nz = 140;
    const std::size_t count = static_cast<std::size_t>(nx) * ny * nz;
    std::vector<std::unique_ptr<void, decltype(&std::free)>> kept;
    const auto zeros = [&](std::size_t size) {
        kept.emplace_back(std::calloc(count, size), &std::free);
        return kept.back().get();
    };
    MLFluidParam param{};
    mlFlow flow{};
    flow.param = &param;
    flow.v0k = 0.01f;
    for (auto array : {&mlFlow::f, &mlFlow::fPost}) {
        flow.*array = static_cast<float*>(zeros(kDirections * sizeof(float)));
    }
    for (auto array : {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz, &mlFlow::Sopt}) {
        flow.*array = static_cast<float*>(zeros(sizeof(float)));
    }
    for (auto array : {&mlFlow::forcex, &mlFlow::forcey, &mlFlow::forcez}) {
        flow.*array = static_cast<double*>(zeros(sizeof(double)));
    }
    flow.rou = static_cast<mlDensity<float>*>(zeros(sizeof(float)));
    const std::int64_t probed = 2412130;
    flow.rou[probed].value = 1.0f;
    const auto print = [&](std::int64_t n) {
        const int z = static_cast<int>(n / nx / ny);
        const int y = static_cast<int>(n / nx % ny);
        testing::internal::CaptureStdout();
        collideProbedRow({0, y, z, n - n % nx}, nx, &flow, 0.0f, nx, ny, nz,
                         static_cast<int>(count));
        return testing::internal::GetCapturedStdout();
    };
    EXPECT_EQ(print(probed), "0.009298\n");
    EXPECT_EQ(print(probed - nx), "");
    EXPECT_EQ(print(probed + nx), "");
    EXPECT_NEAR(flow.Sopt[probed], 0.009298f, 1e-6);

    flow.Sopt[probed] = 0;
    const auto printNode = [&](std::int64_t n) {
        testing::internal::CaptureStdout();
        mlCollideAddForceHighorderFitingPart1Kernel(
            {static_cast<int>(n % nx), static_cast<int>(n / nx % ny), static_cast<int>(n / nx / ny),
             n},
            &flow, 0.0f, nx, ny, nz, static_cast<int>(count));
        return testing::internal::GetCapturedStdout();
    };
    EXPECT_EQ(printNode(probed), "0.009298\n");
    EXPECT_EQ(printNode(probed + 1), "");
    EXPECT_NEAR(flow.Sopt[probed], 0.009298f, 1e-6);
}

}  // namespace
}  // namespace drelt::test
