// The fluid operators against the reference cases. The tolerances are absolute and come from the cases' own
// single-precision study.
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <string>

#include "cslbm/PML/PMLOperation.h"
#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "support/flow_fixture.h"
#include "support/vectors.h"

namespace drelt::test {
namespace {

class Collision : public testing::TestWithParam<const char*> {};

TEST_P(Collision, AgreesWithReference) {
    const VectorCase given(GetParam());
    HostFlow flow(given);
    mlCollideAddForceHighorderFiiting(flow.device(), flow.param());
    flow.download();
    const mlFlow& host = flow.host();
    EXPECT_TRUE(compare(given.array<double>("out_fPost"), flow.values(host.fPost, 27), 2e-6));
    EXPECT_TRUE(compare(given.array<double>("out_Sopt"), flow.values(host.Sopt), 5e-9));
    EXPECT_TRUE(compare(given.array<float>("in_f"), flow.values(host.f, 27), 0.0));
}

class CollisionRates : public testing::TestWithParam<const char*> {};

// The intermediate values in two forms, that of the operators and that of the production schedule. They must
// agree up to rounding. The case at rest has no such values.
TEST_P(CollisionRates, AgreeWithReference) {
    const VectorCase given(GetParam());
    const HostFlow flow(given);
    const mlFlow& host = flow.host();
    const MLFluidParam& p = *host.param;
    std::vector<float> fit, eddy, shear, high, shearInProduction, highInProduction;
    const auto sopt = given.array<double>("out_Sopt");
    for (int z = 0; z < p.samples_z; ++z)
        for (int y = 0; y < p.samples_y; ++y)
            for (int x = 0; x < p.samples_x; ++x) {
                const std::int64_t n = static_cast<std::int64_t>(flow.node(x, y, z));
                const Tensor3 gradient =
                    velocityGradient(&host, {x, y, z, n}, p.samples_x, p.samples_y, p.samples_z);
                const float u[3] = {host.ux[n], host.uy[n], host.uz[n]};
                fit.push_back(fittedRelaxation(gradient, host.rou[n].value, u, host.v0k));
                eddy.push_back(waleEddyViscosity(gradient, host.rou[n].value));
                shear.push_back(relaxationRate(host.v0k + eddy.back()));
                high.push_back(relaxationRate(static_cast<float>(sopt[n])));
                const auto twice = [&](int a, int b) { return 2.0f * gradient.of[a][b]; };
                const Rates<float> rates =
                    ratesOf<float>({twice(0, 0), twice(0, 1), twice(0, 2), twice(1, 0), twice(1, 1),
                                    twice(1, 2), twice(2, 0), twice(2, 1), twice(2, 2)},
                                   host.rou[n].value, {u[0], u[1], u[2]}, host.Sopt[n], host.v0k);
                shearInProduction.push_back(rates.shear);
                highInProduction.push_back(rates.high);
            }
    EXPECT_TRUE(compare(given.array<double>("out_fit"), fit, 5e-9));
    EXPECT_TRUE(compare(given.array<double>("out_s_shear"), shear, 5e-7));
    EXPECT_TRUE(compare(given.array<double>("out_s_high"), high, 5e-7));
    EXPECT_TRUE(compare(given.array<double>("out_s_shear"), shearInProduction, 5e-7));
    EXPECT_TRUE(compare(given.array<double>("out_s_high"), highInProduction, 5e-7));
    const auto expected = given.array<double>("out_eddy_viscosity");
    for (std::size_t n = 0; n < expected.size(); ++n) {
        EXPECT_NEAR(eddy[n], expected[n], 2e-5 * expected[n]) << "node " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Vectors, CollisionRates,
                         testing::Values("collide_random", "collide_smooth", "collide_own_density",
                                         "collide_body_accel"),
                         [](const auto& instance) { return std::string(instance.param); });

INSTANTIATE_TEST_SUITE_P(Vectors, Collision,
                         testing::Values("collide_rest", "collide_random", "collide_smooth",
                                         "collide_own_density", "collide_body_accel"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST(Streaming, AgreesWithReference) {
    const VectorCase given("stream");
    HostFlow flow(given);
    mlCuStream3dOpt(flow.device(), flow.param());
    flow.download();
    EXPECT_TRUE(compare(given.array<double>("out_f"), flow.values(flow.host().f, 27), 0.0));
}

TEST(Moments, AgreeWithReference) {
    const VectorCase given("moments");
    HostFlow flow(given);
    mlCalOneOrderMomentOpt(flow.device(), flow.param());
    flow.download();
    const mlFlow& host = flow.host();
    EXPECT_TRUE(compare(given.array<double>("out_rou"), flow.values(host.rou), 1e-6));
    EXPECT_TRUE(compare(given.array<double>("out_ux"), flow.values(host.ux), 2e-7));
    EXPECT_TRUE(compare(given.array<double>("out_uy"), flow.values(host.uy), 2e-7));
    EXPECT_TRUE(compare(given.array<double>("out_uz"), flow.values(host.uz), 2e-7));
    EXPECT_TRUE(compare(given.array<double>("out_forcex"), flow.values(host.forcex), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_forcey"), flow.values(host.forcey), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_forcez"), flow.values(host.forcez), 0.0));
}

class FrameForcing : public testing::TestWithParam<const char*> {};

TEST_P(FrameForcing, AgreesWithReference) {
    const VectorCase given(GetParam());
    HostFlow flow(given);
    const auto vector = [&](const char* name) {
        return Eigen::Vector3d(given.array<double>(name).data());
    };
    const auto rows = given.array<double>("in_transform");
    FrameTransform transform;
    transform.matrix() =
        Eigen::Map<const Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(rows.data());
    mlAddForcetoUOpt(flow.device(), flow.param(), static_cast<float>(given.scalar("velocityScale")),
                     vector("in_lengthScale"), vector("in_linearAcceleration"),
                     vector("in_angularVelocity"), vector("in_angularAcceleration"), transform);
    flow.download();
    const mlFlow& host = flow.host();
    EXPECT_TRUE(compareScaled(given.array<double>("out_forcex"), flow.values(host.forcex), 3e-7));
    EXPECT_TRUE(compareScaled(given.array<double>("out_forcey"), flow.values(host.forcey), 3e-7));
    EXPECT_TRUE(compareScaled(given.array<double>("out_forcez"), flow.values(host.forcez), 3e-7));
    EXPECT_TRUE(compare(given.array<double>("out_ux"), flow.values(host.ux), 2e-8));
    EXPECT_TRUE(compare(given.array<double>("out_uy"), flow.values(host.uy), 2e-8));
    EXPECT_TRUE(compare(given.array<double>("out_uz"), flow.values(host.uz), 2e-8));
}

INSTANTIATE_TEST_SUITE_P(Vectors, FrameForcing, testing::Values("frame_linear", "frame_turning"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST(FlowCenter, AgreesWithReference) {
    const VectorCase given("flow_center");
    HostFlow flow(given);
    const auto center = given.array<float>("in_center");
    mlSetFlowCenter(flow.device(), center[0], center[1], center[2]);
    flow.download();
    const std::vector<float> start{flow.host().startx, flow.host().starty, flow.host().startz};
    EXPECT_TRUE(compare(given.array<double>("out_start"), start, 0.0));
}

class OpenBoundary : public testing::TestWithParam<const char*> {};

TEST_P(OpenBoundary, AgreesWithReference) {
    const VectorCase given(GetParam());
    HostFlow flow(given);
    mlBoundaryConditionNEE(flow.device(), flow.param());
    flow.download();
    const mlFlow& host = flow.host();
    EXPECT_TRUE(compare(given.array<double>("out_rou"), flow.values(host.rou), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_ux"), flow.values(host.ux), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_uy"), flow.values(host.uy), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_uz"), flow.values(host.uz), 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_f"), flow.values(host.f, 27), 2e-7));
}

INSTANTIATE_TEST_SUITE_P(Vectors, OpenBoundary,
                         testing::Values("open_boundary_w0", "open_boundary_w2"),
                         [](const auto& instance) { return std::string(instance.param); });

class Layer : public testing::TestWithParam<const char*> {};

TEST_P(Layer, AgreesWithReference) {
    const VectorCase given(GetParam());
    HostFlow flow(given);
    PML_Operation(flow.device(), flow.param());
    flow.download();
    const mlFlow& host = flow.host();
    const auto tilde = given.array<double>("out_fEqTilde");
    EXPECT_TRUE(compare(given.array<double>("out_fPost"), flow.values(host.fPost, 27), 2e-7));
    EXPECT_TRUE(compare(tilde, flow.values(host.fEqTilde, 27), 4e-7));
    EXPECT_TRUE(compare(flow.values(host.fEqTilde, 27), flow.values(host.fEqTildeOld, 27), 0.0));

    const auto old = given.array<float>("in_fEqTildeOld");
    std::vector<double> mean(tilde.size());
    for (std::size_t i = 0; i < mean.size(); ++i) mean[i] = 0.5 * (old[i] + tilde[i]);
    EXPECT_TRUE(compare(mean, flow.values(host.Q, 27), 4e-7));

    std::vector<float> derivative;
    for (int i = 0; i < kDirections; ++i) {
        for (const int n : given.array<std::int32_t>("in_layer_nodes")) {
            derivative.push_back(host.cNQ[i * flow.nodes() + n]);
        }
    }
    EXPECT_TRUE(compare(given.array<double>("out_cNQ_layer"), derivative, 1e-7));
}

INSTANTIATE_TEST_SUITE_P(Vectors, Layer, testing::Values("layer_w0", "layer_w2"),
                         [](const auto& instance) { return std::string(instance.param); });

TEST(Equilibria, AgreeWithReference) {
    const VectorCase given("equilibria");
    const auto rou = given.array<float>("in_rou");
    const auto ux = given.array<float>("in_ux");
    const auto uy = given.array<float>("in_uy");
    const auto uz = given.array<float>("in_uz");
    std::vector<float> host(27 * rou.size()), product(27 * rou.size());
    for (std::size_t n = 0; n < rou.size(); ++n) {
        forEachDirection([&](auto d) {
            const std::size_t entry = decltype(d)::index * rou.size() + n;
            host[entry] = hostEquilibrium(decltype(d)::index, rou[n], ux[n], uy[n], uz[n]);
            product[entry] = productEquilibrium(d, rou[n], ux[n], uy[n], uz[n]);
        });
    }
    EXPECT_TRUE(compare(given.array<float>("out_host"), host, 0.0));
    EXPECT_TRUE(compare(given.array<double>("out_product"), product, 4e-7));
}

}  // namespace
}  // namespace drelt::test
