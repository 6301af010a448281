// From parameters to a flow record: scales, grid, layer, first state, reset, bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "cslbm/mlsolver/mlLattice.h"
#include "simulatorInterface/FluidHelper.h"
#include "simulatorInterface/simParams.h"
#include "support/device.h"
#include "support/vectors.h"

namespace drelt {
namespace {

using test::VectorCase;

using FlowPtr = std::unique_ptr<mlFlow, void (*)(mlFlow*)>;

FlowPtr makeFlow(simParams& params) {
    return {FluidHelper::createFlow(params, test::device()), FluidHelper::destroyFlow};
}

// Manual parameters of a box with the given numbers of nodes at a spacing of 1/8 m.
simParams boxOf(int nx, int ny, int nz, int pml_width) {
    simParams p;
    p.setup_mode = simParams::MANUAL;
    p.N = 8;
    p.l0p = 1;
    p.u0p = 1;
    p.width = nx * 0.125f;
    p.height = ny * 0.125f;
    p.depth = nz * 0.125f;
    p.pml_width = pml_width;
    return p;
}

simParams paramsOf(const VectorCase& given) {
    const auto value = [&](const char* name) { return static_cast<float>(given.scalar(name)); };
    simParams p;
    p.x0 = value("x0");
    p.y0 = value("y0");
    p.z0 = value("z0");
    p.width = value("width");
    p.height = value("height");
    p.depth = value("depth");
    p.N = value("N");
    p.l0p = value("l0p");
    p.u0p = value("u0p");
    p.u0k = value("u0k");
    p.visp = value("visp");
    p.setup_mode = static_cast<simParams::SETUP_MODE>(given.integer("setup_mode"));
    return p;
}

template <class T>
std::vector<T> copied(const T* array, std::int64_t count) {
    return {array, array + count};
}

class Params : public testing::TestWithParam<int> {};

TEST_P(Params, ScalesAndGridAreThoseOfTheReference) {
    const VectorCase given("params_" + std::to_string(GetParam()));
    simParams p = paramsOf(given);
    const auto wanted = [&](const std::string& name) {
        return given.array<double>("out_" + name).front();
    };
    testing::internal::CaptureStdout();
    const float tp = p.get_tp();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), given.integer("lines_printed"));
    EXPECT_FLOAT_EQ(tp, static_cast<float>(wanted("tp")));
    EXPECT_EQ(p.N, wanted("N"));
    EXPECT_EQ(p.l0p, wanted("l0p"));
    EXPECT_EQ(p.u0p, wanted("u0p"));
    EXPECT_EQ(p.dx, wanted("dx"));
    EXPECT_EQ(p.dtp, wanted("dtp"));

    const mlUnitScale scale = p.computeUnitScale();
    EXPECT_NEAR(scale.v0k, wanted("v0k"), 2e-7 * wanted("v0k"));
    EXPECT_NEAR(scale.Re, wanted("Re"), 2e-7 * wanted("Re"));
    EXPECT_EQ(p.getIterPerSave(30), given.array<std::int32_t>("out_iterPerSave_30").front());
    EXPECT_EQ(p.getIterPerSave(100), given.array<std::int32_t>("out_iterPerSave_100").front());

    const MLFluidParam grid = FluidHelper::describeGrid(p);
    EXPECT_EQ(grid.samples_x, wanted("nx"));
    EXPECT_EQ(grid.samples_y, wanted("ny"));
    EXPECT_EQ(grid.samples_z, wanted("nz"));
    EXPECT_EQ(grid.startx, wanted("startx"));
    EXPECT_EQ(grid.starty, wanted("starty"));
    EXPECT_EQ(grid.startz, wanted("startz"));
    EXPECT_EQ(grid.endx, wanted("endx"));
    EXPECT_EQ(grid.endy, wanted("endy"));
    EXPECT_EQ(grid.endz, wanted("endz"));
    EXPECT_EQ(FluidHelper::countNodes(p.width, p.dx).length, wanted("accx"));
}

INSTANTIATE_TEST_SUITE_P(Reference, Params, testing::Range(0, 4));

TEST(Params, NormalisationSaysWhatItFillsInOnce) {
    simParams p;
    p.setup_mode = simParams::MANUAL;
    p.N = 10;
    p.l0p = 2;
    testing::internal::CaptureStdout();
    p.normalise();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[Info] u0p not setted, try generating use dx 0.200000 u0k 0.100000 dtp -1.000000 \n"
              "[Warning] dtp not setted , default to be 0.0003\n"
              "[Info] u0p auto calculated!  u0p = 66.666672 \n");
    testing::internal::CaptureStdout();
    p.normalise();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    simParams lost;
    lost.setup_mode = simParams::MANUAL;
    lost.l0p = 3;
    lost.u0p = 1;
    testing::internal::CaptureStdout();
    lost.normalise();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              " [warning] N or l0p not setted!!! set N= 256 ,l0p =4 as default \n");
    EXPECT_EQ(lost.l0p, 4.0f);
}

TEST(Params, GravityScalesFromAFallThroughTheBox) {
    simParams p;
    p.dx = 0.5f;
    p.normalise();
    EXPECT_EQ(p.l0p, 10.0f);
    EXPECT_EQ(p.N, 20.0f);
    EXPECT_EQ(p.u0p, static_cast<float>(std::sqrt(2 * 9.8 * 10.0)));
    p.N = 0;
    p.setup_mode = simParams::MANUAL;
    EXPECT_EQ(p.get_tp(), std::numeric_limits<float>::infinity());
}

class Layout : public testing::TestWithParam<const char*> {};

TEST_P(Layout, ClassesAndDampingAreThoseOfTheReference) {
    const VectorCase given(GetParam());
    simParams p = boxOf(given.integer("nx"), given.integer("ny"), given.integer("nz"),
                        given.integer("pml_width"));
    p.sigma_max = static_cast<float>(given.scalar("sigma_max"));
    const FlowPtr flow = makeFlow(p);
    ASSERT_EQ(flow->count, given.integer("nx") * given.integer("ny") * given.integer("nz"));
    FluidHelper::initialiseFields(*flow);
    FluidHelper::initialisePopulations(*flow);
    EXPECT_TRUE(test::compare(given.array<std::int32_t>("out_PML_type"),
                              copied(flow->PML_type, flow->count), 0));
    EXPECT_TRUE(
        test::compare(given.array<double>("out_sigma"), copied(flow->sigma, flow->count), 0));
    EXPECT_TRUE(
        test::compare(given.array<std::int32_t>("out_flag"), copied(flow->flag, flow->count), 0));
    for (int i = 0; i < kDirections; ++i) {
        EXPECT_EQ(flow->f[i * flow->count + 7], w_cas1[i]);
        EXPECT_EQ(flow->fPost[i * flow->count + 7], w_cas1[i]);
        EXPECT_EQ(flow->fEqBar[i * flow->count + 7], w_cas1[i]);
    }
}

INSTANTIATE_TEST_SUITE_P(Reference, Layout,
                         testing::Values("layout_9_8_7_w2", "layout_12_10_9_w3",
                                         "layout_7_5_6_w0"));

class Reset : public testing::TestWithParam<const char*> {};

TEST_P(Reset, RestsTheFluidAtItsDensity) {
    const VectorCase given(GetParam());
    simParams p = boxOf(given.integer("nx"), given.integer("ny"), given.integer("nz"), 0);
    const FlowPtr flow = makeFlow(p);
    FluidHelper::initialiseFields(*flow);
    FluidHelper::initialisePopulations(*flow);
    flow->param->dx = static_cast<float>(given.scalar("dx"));
    flow->startx = static_cast<float>(given.scalar("startx"));
    flow->starty = static_cast<float>(given.scalar("starty"));
    flow->startz = static_cast<float>(given.scalar("startz"));
    const auto flags = given.array<std::int32_t>("in_flag");
    const auto rou = given.array<float>("in_rou");
    const auto f = given.array<float>("in_f");
    const auto ux = given.array<float>("in_ux");
    for (std::size_t n = 0; n < flags.size(); ++n) {
        flow->flag[n] = static_cast<MLLATTICENODE_FLAG>(flags[n]);
        flow->rou[n].value = rou[n];
        flow->ux[n] = ux[n];
    }
    std::copy(f.begin(), f.end(), flow->f);
    std::fill(flow->Q, flow->Q + kDirections * flow->count, 1.0f);

    FluidHelper::resetFields(*flow);
    FluidHelper::resetPopulations(*flow);

    EXPECT_TRUE(
        test::compare(given.array<std::int32_t>("out_flag"), copied(flow->flag, flow->count), 0));
    EXPECT_TRUE(test::compare(given.array<double>("out_ux"), copied(flow->ux, flow->count), 0));
    const std::int64_t populations = kDirections * flow->count;
    EXPECT_TRUE(test::compare(given.array<double>("out_f"), copied(flow->f, populations), 3e-8));
    EXPECT_TRUE(
        test::compare(given.array<double>("out_fEqBar"), copied(flow->fEqBar, populations), 3e-8));
    for (std::int64_t n = 0; n < flow->count; ++n) {
        const bool kept = flags[n] == ML_NODE_NONE || flags[n] == ML_NODE_SOLID;
        EXPECT_EQ(flow->Q[5 * flow->count + n], kept ? 1.0f : 0.0f) << n;
        const std::int64_t at = 5 * flow->count + n;
        EXPECT_EQ(flow->fPost[at], kept ? w_cas1[5] : flow->f[at]) << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Reference, Reset, testing::Values("reset_0", "reset_1"));

// The message of the exception that making a flow from the parameters raises.
template <class Exception>
std::string refusal(simParams params) {
    const float given = params.l0p;
    try {
        makeFlow(params);
    } catch (const Exception& error) {
        EXPECT_EQ(params.l0p, given) << "a refused call changes nothing";
        return error.what();
    }
    return "accepted";
}

TEST(BadInput, BoxesThatCannotBeAreRefused) {
    using testing::internal::RE;
    const auto refused = [](const simParams& p, const char* pattern) {
        const std::string message = refusal<std::invalid_argument>(p);
        EXPECT_TRUE(RE::PartialMatch(message, pattern)) << message;
    };
    refused(simParams{}, "node spacing is -1 m; select setup_mode MANUAL");
    simParams p = boxOf(8, 8, 8, 0);
    p.N = 0;
    refused(p, "node spacing is inf m");
    p = boxOf(8, 8, 8, 0);
    p.height = 0;
    refused(p, "height is 0; set a positive size");
    p.height = std::numeric_limits<float>::quiet_NaN();
    refused(p, "height is nan");
    p = boxOf(8, 8, 8, 0);
    p.depth = 3e6f;
    refused(p, "depth 3e.06 m at a node spacing of 0.125 m needs more than 16777216 nodes");
    refused(boxOf(8, 8, 8, -1), "pml_width is -1; give 0");
    refused(boxOf(8, 8, 8, 7), "width has 8 nodes, too few .* pml_width 7 .at least 9.");
    refused(boxOf(8, 1, 8, 0), "height has 1 nodes");
    EXPECT_EQ(refusal<std::invalid_argument>(boxOf(8, 8, 8, 6)), "accepted");

    p = boxOf(60000, 60000, 60000, 0);
    const std::string message = refusal<std::runtime_error>(p);
    EXPECT_TRUE(RE::PartialMatch(message, "60000 x 60000 x 60000 nodes are more than")) << message;
    const std::string memory = refusal<std::runtime_error>(boxOf(100000, 100, 200, 0));
    const std::string need = test::onGpu() ? "need 5[0-9]" : "need 3[0-9][0-9]";
    EXPECT_TRUE(RE::PartialMatch(memory, need + "[.0-9]* GB of host memory, .* GB are available"))
        << memory;
    EXPECT_THROW(p.getIterPerSave(0), std::invalid_argument);
}

}  // namespace
}  // namespace drelt
