// Invariants of the fluid operators: conservation, rest, edges, and the same bits for any number of threads.
#include <gtest/gtest.h>
#include <omp.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "cslbm/PML/PMLOperation.h"
#include "cslbm/domain/operatorStep.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "support/flow_fixture.h"
#include "support/random_flow.h"

namespace drelt::test {
namespace {

constexpr float kRestSopt = 0.00929768f;  // the fit at rest with density 1

// The sum over all directions of the population times a polynomial of the direction's components.
template <class Polynomial>
double moment(const float* f, std::size_t count, std::size_t n, Polynomial&& polynomial) {
    double sum = 0.0;
    for (int i = 0; i < kDirections; ++i) {
        sum += f[i * count + n] * polynomial(ex_cas1[i], ey_cas1[i], ez_cas1[i]);
    }
    return sum;
}

TEST(Lattice, OppositesWeightsAndIsotropy) {
    double sum = 0.0;
    double second[3][3] = {};
    double fourth[3][3] = {};
    double mixed = 0.0;
    for (int i = 0; i < kDirections; ++i) {
        const float e[3] = {ex_cas1[i], ey_cas1[i], ez_cas1[i]};
        const int o = index_inv_cas1[i];
        EXPECT_EQ(index_inv_cas1[o], i);
        EXPECT_TRUE(ex_cas1[o] == -e[0] && ey_cas1[o] == -e[1] && ez_cas1[o] == -e[2]) << i;
        const double w = w_cas1[i];
        sum += w;
        mixed += w * e[0] * e[0] * e[1] * e[2];
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b) {
                second[a][b] += w * e[a] * e[b];
                fourth[a][b] += w * e[a] * e[a] * e[b] * e[b];
            }
    }
    EXPECT_NEAR(sum, 1.0, 1e-7);
    EXPECT_EQ(mixed, 0.0);
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) {
            EXPECT_NEAR(second[a][b], a == b ? 1.0 / 3.0 : 0.0, 1e-7);
            EXPECT_NEAR(fourth[a][b], a == b ? 1.0 / 3.0 : 1.0 / 9.0, 1e-7);
        }
    for (int i = 0; i < 19; ++i) {
        EXPECT_TRUE(ex[i] == ex_cas1[i] && ey[i] == ey_cas1[i] && ez[i] == ez_cas1[i]);
        EXPECT_EQ(index_inv[i], index_inv_cas1[i]);
        EXPECT_EQ(hostEquilibrium(i, 1.0f, 0.0f, 0.0f, 0.0f), w_cas1[i]);
    }
}

// Compares table moments with sums over the populations in double precision, and inverts the transform.
TEST(CentralMoments, MatchTheirPolynomialsAndInvert) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
    float f[27], back[27], plain[27], unpacked[27], k[27];
    for (int i = 0; i < 27; ++i) f[i] = w_cas1[i] * (1.0f + noise(random));
    const float u[3] = {0.11f, -0.07f, 0.05f};
    plainMomentsOf(f, u[0], u[1], u[2], plain);
    packMoments(plain, k);
    const auto about = [&](auto polynomial) {
        return moment(f, 1, 0, [&](double x, double y, double z) {
            return polynomial(x - u[0], y - u[1], z - u[2]);
        });
    };
    const double expected[27] = {
        about([](double, double, double) { return 1.0; }),
        about([](double x, double, double) { return x; }),
        about([](double, double y, double) { return y; }),
        about([](double, double, double z) { return z; }),
        about([](double x, double y, double) { return x * y; }),
        about([](double x, double, double z) { return x * z; }),
        about([](double, double y, double z) { return y * z; }),
        about([](double x, double y, double) { return x * x - y * y; }),
        about([](double x, double, double z) { return x * x - z * z; }),
        about([](double x, double y, double z) { return x * x + y * y + z * z; }),
        about([](double x, double y, double z) { return x * (y * y + z * z); }),
        about([](double x, double y, double z) { return y * (x * x + z * z); }),
        about([](double x, double y, double z) { return z * (x * x + y * y); }),
        about([](double x, double y, double z) { return x * (y * y - z * z); }),
        about([](double x, double y, double z) { return y * (x * x - z * z); }),
        about([](double x, double y, double z) { return z * (x * x - y * y); }),
        about([](double x, double y, double z) { return x * y * z; }),
        about([](double x, double y, double z) {
            return x * x * y * y + x * x * z * z + y * y * z * z;
        }),
        about([](double x, double y, double z) {
            return x * x * y * y + x * x * z * z - y * y * z * z;
        }),
        about([](double x, double y, double z) { return x * x * (y * y - z * z); }),
        about([](double x, double y, double z) { return x * x * y * z; }),
        about([](double x, double y, double z) { return x * y * y * z; }),
        about([](double x, double y, double z) { return x * y * z * z; }),
        about([](double x, double y, double z) { return x * y * y * z * z; }),
        about([](double x, double y, double z) { return x * x * y * z * z; }),
        about([](double x, double y, double z) { return x * x * y * y * z; }),
        about([](double x, double y, double z) { return x * x * y * y * z * z; })};
    for (int j = 0; j < 27; ++j) EXPECT_NEAR(k[j], expected[j], 3e-7) << "k" << j;
    unpackMoments(k, unpacked);
    populationsOf(unpacked, u[0], u[1], u[2], back);
    for (int i = 0; i < 27; ++i) EXPECT_NEAR(back[i], f[i], 3e-7) << "direction " << i;
}

TEST(Collision, ConservesMassAndAddsTheWholeForce) {
    HostFlow flow(9, 5, 4);
    fillRandom(flow, 1);
    mlCollideAddForceHighorderFiiting(flow.device(), flow.param());
    flow.download();
    const mlFlow& h = flow.host();
    const std::size_t count = flow.nodes();
    for (std::size_t n = 0; n < count; ++n) {
        const auto gained = [&](auto component) {
            return moment(h.fPost, count, n, component) - moment(h.f, count, n, component);
        };
        EXPECT_NEAR(gained([](double, double, double) { return 1.0; }), 0.0, 5e-7);
        EXPECT_NEAR(gained([](double x, double, double) { return x; }), h.forcex[n], 2e-7);
        EXPECT_NEAR(gained([](double, double y, double) { return y; }), h.forcey[n], 2e-7);
        EXPECT_NEAR(gained([](double, double, double z) { return z; }), h.forcez[n], 2e-7);
    }
}

TEST(Collision, ForceOnRestingFluidGivesItsMomentum) {
    HostFlow flow(4, 3, 3);
    for (std::size_t n = 0; n < flow.nodes(); ++n) flow.host().forcey[n] = 2e-3;
    flow.upload();
    const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
    mlAddForcetoUOpt(flow.device(), flow.param(), 1.0f, Eigen::Vector3d::Ones(), zero, zero, zero,
                     FrameTransform::Identity());
    mlCollideAddForceHighorderFiiting(flow.device(), flow.param());
    flow.download();
    const std::size_t n = flow.node(2, 1, 1);
    EXPECT_FLOAT_EQ(flow.host().uy[n], 1e-3f);
    EXPECT_EQ(flow.host().forcey[n], 2e-3);
    EXPECT_NEAR(
        moment(flow.host().fPost, flow.nodes(), n, [](double, double y, double) { return y; }),
        2e-3, 3e-8);
}

// A fit that is not positive (fast fluid) or not a number leaves the old parameter.
TEST(Collision, SoptIsKeptWhereTheFitIsNotPositive) {
    HostFlow flow(5, 1, 1);
    mlFlow& h = flow.host();
    for (std::size_t n = 0; n < 5; ++n) h.Sopt[n] = 0.5f;
    for (std::size_t n = 0; n < 3; ++n) h.uy[n] = 0.5f;
    h.uy[4] = std::numeric_limits<float>::quiet_NaN();
    flow.upload();
    mlCollideAddForceHighorderFiiting(flow.device(), flow.param());
    flow.download();
    EXPECT_EQ(h.Sopt[0], 0.5f) << "fast";
    EXPECT_EQ(h.Sopt[1], 0.5f) << "fast";
    EXPECT_EQ(h.Sopt[4], 0.5f) << "not a number";
    EXPECT_EQ(h.Sopt[3], 0.5f) << "a neighbour's velocity enters the fit through the gradient";
    EXPECT_TRUE(std::isnan(h.fPost[4]));
}

// On a face of the domain the divisor stays 2. Along an axis with one node the derivative is 0.
TEST(Collision, GradientsAtTheEdgesAreHalfOneSided) {
    HostFlow flow(1, 4, 2);
    mlFlow& h = flow.host();
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 4; ++y) h.uz[flow.node(0, y, z)] = static_cast<float>(y + 10 * z);
    const auto gradientAt = [&](int y, int z) {
        const auto n = static_cast<std::int64_t>(flow.node(0, y, z));
        return velocityGradient(&h, {0, y, z, n}, 1, 4, 2);
    };
    EXPECT_EQ(gradientAt(0, 0).of[2][1], 0.5f);
    EXPECT_EQ(gradientAt(1, 0).of[2][1], 1.0f);
    EXPECT_EQ(gradientAt(3, 1).of[2][1], 0.5f);
    EXPECT_EQ(gradientAt(2, 1).of[2][2], 5.0f);
    EXPECT_EQ(gradientAt(2, 0).of[2][0], 0.0f);
}

TEST(Streaming, MovesAPopulationByOneNodeAndKeepsWhatHasNoSource) {
    HostFlow flow(5, 4, 6);
    mlFlow& h = flow.host();
    const std::size_t count = flow.nodes();
    std::fill(h.f, h.f + 27 * count, -1.0f);
    std::fill(h.fPost, h.fPost + 27 * count, 0.0f);
    for (int i = 0; i < 27; ++i) h.fPost[i * count + flow.node(2, 2, 3)] = 1.0f + i;
    flow.upload();
    mlCuStream3dOpt(flow.device(), flow.param());
    flow.download();
    int keptAtCorner = 0;
    for (int i = 0; i < 27; ++i) {
        const std::size_t arrived =
            flow.node(2 + static_cast<int>(ex_cas1[i]), 2 + static_cast<int>(ey_cas1[i]),
                      3 + static_cast<int>(ez_cas1[i]));
        EXPECT_EQ(h.f[i * count + arrived], 1.0f + i);
        float sum = 0.0f;
        for (std::size_t n = 0; n < count; ++n) sum += std::max(h.f[i * count + n], 0.0f);
        EXPECT_EQ(sum, 1.0f + i) << "one place only";
        keptAtCorner += h.f[i * count + flow.node(4, 0, 5)] == -1.0f;
    }
    EXPECT_EQ(keptAtCorner, 19);

    HostFlow thin(1, 3, 3);
    std::fill(thin.host().f, thin.host().f + 27 * thin.nodes(), -1.0f);
    thin.upload();
    mlCuStream3dOpt(thin.device(), thin.param());
    thin.download();
    for (int i = 0; i < 27; ++i) {
        EXPECT_EQ(thin.host().f[i * thin.nodes() + thin.node(0, 1, 1)],
                  ex_cas1[i] != 0.0f ? -1.0f : w_cas1[i]);
    }
}

TEST(Step, FluidAtRestStaysAtRest) {
    HostFlow flow(12, 10, 11, 2);
    for (int step = 0; step < 10; ++step) operatorStep(flow.device(), flow.param());
    flow.download();
    const mlFlow& h = flow.host();
    const std::vector<float> ones(flow.nodes(), 1.0f), zeros(flow.nodes(), 0.0f);
    EXPECT_TRUE(compare(ones, flow.values(h.rou), 2e-6));
    EXPECT_TRUE(compare(zeros, flow.values(h.ux), 1e-6));
    EXPECT_TRUE(compare(zeros, flow.values(h.uy), 1e-6));
    EXPECT_TRUE(compare(zeros, flow.values(h.uz), 1e-6));
    EXPECT_TRUE(compare(std::vector<float>(flow.nodes(), kRestSopt), flow.values(h.Sopt), 5e-8));
}

TEST(Step, SameBitsForAnyNumberOfThreads) {
    if (onGpu()) GTEST_SKIP() << "host threads are meant";
    const int before = omp_get_max_threads();
    const auto run = [](int threads) {
        omp_set_num_threads(threads);
        auto flow = std::make_unique<HostFlow>(37, 14, 13, 3);
        fillRandom(*flow, 7);
        FrameMotion motion;
        motion.lengthScale = Eigen::Vector3d::Constant(1e-3);
        motion.linearAcceleration = {0.1, -0.2, 0.3};
        for (int step = 0; step < 20; ++step) {
            mlSetFlowCenter(flow->device(), 0.1f, 0.2f, 0.3f);
            operatorStep(flow->device(), flow->param(), motion);
        }
        flow->download();
        return flow;
    };
    const auto one = run(1);
    for (const int threads : {2, 3, 7}) {
        const auto many = run(threads);
        const auto same = [&](auto* mlFlow::*array, std::size_t perNode) {
            return std::memcmp(one->host().*array, many->host().*array,
                               perNode * one->nodes() * sizeof(*(one->host().*array))) == 0;
        };
        for (auto array : {&mlFlow::f, &mlFlow::fPost, &mlFlow::Q, &mlFlow::cNQ, &mlFlow::fEqTilde,
                           &mlFlow::fEqTildeOld}) {
            EXPECT_TRUE(same(array, 27)) << threads << " threads";
        }
        for (auto array : {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz, &mlFlow::Sopt}) {
            EXPECT_TRUE(same(array, 1)) << threads << " threads";
        }
        EXPECT_TRUE(same(&mlFlow::rou, 1)) << threads << " threads";
    }
    omp_set_num_threads(before);
    EXPECT_TRUE(std::isfinite(largest(one->values(one->host().f, 27))));
}

}  // namespace
}  // namespace drelt::test
