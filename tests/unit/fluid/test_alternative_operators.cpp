// The operators that the default step does not use: boundaries by node class, imposed velocities, inflow, wave
// source, and the other moment operators. The tolerances of the cases are absolute and come from their own
// single-precision study.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpuOther.h"
#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"
#include "cslbm/gpu_inc/gpu/mlWave.h"
#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"
#include "support/device.h"
#include "support/flow_fixture.h"
#include "support/random_flow.h"
#include "support/vectors.h"

namespace drelt::test {
namespace {

LaunchExtent extentOf(HostFlow& flow) {
    return {flow.param()->samples_x, flow.param()->samples_y, flow.param()->samples_z};
}

struct Case {
    const char* name;
    void (*run)(HostFlow&, const VectorCase&);
    double populations, velocities;  // tolerances
};

void PrintTo(const Case& given, std::ostream* out) { *out << given.name; }

template <MLLATTICENODE_FLAG Which>
void flagged(HostFlow& flow, const VectorCase&) {
    mlBoundaryConditionFlag(flow.device(), flow.param(), Which);
}
template <MLLATTICENODE_FLAG Face>
void zouHe(HostFlow& flow, const VectorCase&) {
    mlBoundaryConditionZouHe(flow.device(), flow.param(), Face);
}
void neighbours(HostFlow& flow, const VectorCase&) { mlBndCondition(flow.device(), flow.param()); }
void inflow(HostFlow& flow, const VectorCase&) {
    mmlStreamChangeInlet(flow.device(), flow.param(), true);
}
void macro(HostFlow& flow, const VectorCase&) { mlCalMacroGpu(flow.device(), flow.param()); }
void restore(HostFlow& flow, const VectorCase&) { mlRestoreUOpt(flow.device(), flow.param()); }
void halfForce(HostFlow& flow, const VectorCase& given) {
    const LaunchExtent nodes = extentOf(flow);
    const long nx = nodes.x, ny = nodes.y, nz = nodes.z;
    launchRange<&mlAddForcetoUKernel>(coveringShape(nodes, 8, 8, 8), nodes, flow.device(),
                                      static_cast<float>(given.scalar("gy")), nx, ny, nz);
}
void wave(HostFlow& flow, const VectorCase& given) {
    const auto counter = static_cast<std::uint32_t>(given.integer("counter"));
    std::memcpy(&flow.param()->waveStep, &counter, sizeof counter);
    flow.upload();
    mlWave(flow.device(), flow.param());
}

// The values that a case expects of a field. If the case gives an output, they are that output. If it gives
// the entries of a few nodes, they are the input with these entries. Otherwise, they are the input.
std::vector<double> expected(const VectorCase& given, const std::string& field,
                             const std::vector<float>& before, std::size_t count) {
    if (given.has("out_" + field)) return given.array<double>("out_" + field);
    std::vector<double> values(before.begin(), before.end());
    std::vector<std::int32_t> nodes;
    std::string source;
    if (given.has("out_" + field + "_changed")) {
        nodes = given.array<std::int32_t>("out_changed_nodes");
        source = "out_" + field + "_changed";
    } else if (given.has("out_" + field + "_node")) {
        nodes = {given.integer("node")};
        source = "out_" + field + "_node";
    } else {
        return values;
    }
    const auto replaced = given.array<double>(source);
    for (std::size_t i = 0; i < replaced.size(); ++i) {
        values[i / nodes.size() * count + nodes[i % nodes.size()]] = replaced[i];
    }
    return values;
}

class Alternatives : public testing::TestWithParam<Case> {};

TEST_P(Alternatives, AgreesWithReferenceAndLeavesTheRest) {
    const VectorCase given(GetParam().name);
    HostFlow before(given);
    HostFlow flow(given);
    GetParam().run(flow, given);
    flow.download();
    const mlFlow& h = flow.host();
    const auto check = [&](const char* field, const auto& was, const auto& is, double tolerance) {
        EXPECT_TRUE(compare(expected(given, field, was, flow.nodes()), is, tolerance)) << field;
    };
    check("f", before.values(before.host().f, 27), flow.values(h.f, 27), GetParam().populations);
    if (!given.has("out_f_node")) {  // a case that gives f of one node expects the same fPost
        check("fPost", before.values(before.host().fPost, 27), flow.values(h.fPost, 27),
              GetParam().populations);
    }
    check("rou", before.values(before.host().rou), flow.values(h.rou), 1e-6);
    check("ux", before.values(before.host().ux), flow.values(h.ux), GetParam().velocities);
    check("uy", before.values(before.host().uy), flow.values(h.uy), GetParam().velocities);
    check("uz", before.values(before.host().uz), flow.values(h.uz), GetParam().velocities);
    if (given.has("out_flag")) {
        EXPECT_TRUE(compare(given.array<std::int32_t>("out_flag"), flow.values(h.flag), 0.0));
    }
}

INSTANTIATE_TEST_SUITE_P(Vectors, Alternatives,
                         testing::Values(Case{"alt_bounce_fluid", neighbours, 0.0, 0.0},
                                         Case{"alt_flag_Left", flagged<ML_NODE_LEFT>, 1e-6, 0.0},
                                         Case{"alt_flag_Up", flagged<ML_NODE_UP>, 1e-6, 0.0},
                                         Case{"alt_flag_Back", flagged<ML_NODE_BACK>, 1e-6, 0.0},
                                         Case{"alt_solid", flagged<ML_NODE_SOLID>, 1e-6, 0.0},
                                         Case{"zou_he_Left", zouHe<ML_NODE_LEFT>, 1e-6, 1e-8},
                                         Case{"zou_he_Down", zouHe<ML_NODE_DOWN>, 1e-6, 0.0},
                                         Case{"zou_he_Back", zouHe<ML_NODE_BACK>, 1e-6, 0.0},
                                         Case{"inflow_reset", inflow, 1e-6, 0.0},
                                         Case{"wave_source", wave, 1e-6, 0.0},
                                         Case{"cal_macro", macro, 0.0, 2e-7},
                                         Case{"restore_u", restore, 0.0, 2e-8},
                                         Case{"half_force_plain", halfForce, 0.0, 2e-8}),
                         [](const auto& instance) { return std::string(instance.param.name); });

// A random flow. fPost and fEqTilde hold the same values as f.
void fill(HostFlow& flow) {
    fillRandom(flow, 3);
    std::copy(flow.host().f, flow.host().f + 27 * flow.nodes(), flow.host().fPost);
    std::copy(flow.host().f, flow.host().f + 27 * flow.nodes(), flow.host().fEqTilde);
    flow.upload();
}

// Whether two flows hold the same bits in all fields that an alternative operator may write.
bool same(HostFlow& a, HostFlow& b) {
    a.download();
    b.download();
    const auto equal = [&](auto* mlFlow::*field, std::size_t perNode) {
        return std::memcmp(a.host().*field, b.host().*field,
                           perNode * a.nodes() * sizeof(*(a.host().*field))) == 0;
    };
    return equal(&mlFlow::f, 27) && equal(&mlFlow::fPost, 27) && equal(&mlFlow::fEqTildeOld, 27) &&
           equal(&mlFlow::ux, 1) && equal(&mlFlow::uy, 1) && equal(&mlFlow::uz, 1) &&
           equal(&mlFlow::rou, 1) && equal(&mlFlow::flag, 1);
}

// Sets the classes of the faces and of a few solid nodes inside.
void classify(HostFlow& flow) {
    const LaunchExtent e = extentOf(flow);
    for (int z = 0; z < e.z; ++z)
        for (int y = 0; y < e.y; ++y)
            for (int x = 0; x < e.x; ++x) {
                MLLATTICENODE_FLAG flag = (x * y + z) % 7 == 3 ? ML_NODE_SOLID : ML_NODE_FLUID;
                if (x == e.x - 1) flag = ML_NODE_RIGHT;
                if (x == 0) flag = ML_NODE_LEFT;
                if (z == 0) flag = ML_NODE_FORWARD;
                if (z == e.z - 1) flag = ML_NODE_BACK;
                if (y == e.y - 1) flag = ML_NODE_UP;
                if (y == 0) flag = ML_NODE_DOWN;
                flow.host().flag[flow.node(x, y, z)] = flag;
            }
    flow.upload();
}

constexpr MLLATTICENODE_FLAG kClasses[] = {ML_NODE_LEFT, ML_NODE_RIGHT,   ML_NODE_DOWN, ML_NODE_UP,
                                           ML_NODE_BACK, ML_NODE_FORWARD, ML_NODE_SOLID};

// The density and populations of node n of a face after regularisation, in double precision.
struct Regularised {
    double rho = 0.0;
    std::array<double, 27> f{};
};

Regularised regularised(const mlFlow& h, std::size_t count, std::size_t n,
                        MLLATTICENODE_FLAG face) {
    const int axis = face <= ML_NODE_RIGHT ? 0 : (face >= ML_NODE_DOWN ? 1 : 2);
    const bool high = face == ML_NODE_RIGHT || face == ML_NODE_UP || face == ML_NODE_BACK;
    const double u[3] = {h.ux[n], h.uy[n], h.uz[n]};
    const auto e = [](int i) { return std::array<double, 3>{ex_cas1[i], ey_cas1[i], ez_cas1[i]}; };
    const auto outward = [&](int i) { return e(i)[axis] * (high ? 1 : -1); };
    Regularised out;
    for (int i = 0; i < 27; ++i) {
        if (outward(i) >= 0) out.rho += (1 + outward(i)) * h.fPost[i * count + n];
    }
    out.rho /= 1.0 + u[axis];

    std::array<double, 27> rest{};
    for (int i = 0; i < 27; ++i) {
        const double eu = e(i)[0] * u[0] + e(i)[1] * u[1] + e(i)[2] * u[2];
        const double uu = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
        out.f[i] = w_cas1[i] * out.rho * (1 + 3 * eu + 4.5 * eu * eu - 1.5 * uu);
        rest[i] = h.fPost[i * count + n] - out.f[i];
    }
    double p[3][3] = {};
    for (int i = 0; i < 27; ++i) {
        const double part = rest[outward(i) < 0 ? index_inv_cas1[i] : i];
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b) p[a][b] += e(i)[a] * e(i)[b] * part;
    }
    for (int i = 0; i < 27; ++i) {
        double sum = 0.0;
        for (int a = 0; a < 3; ++a)
            for (int b = 0; b < 3; ++b) {
                // sic: prescribed value
                const double first = a == 2 && b == 2 ? e(i)[1] : e(i)[a];
                sum += p[a][b] * (first * e(i)[b] - (a == b ? 1.0 / 3 : 0.0));
            }
        out.f[i] += 4.5 * w_cas1[i] * sum;
    }
    return out;
}

TEST(FlagBoundaries, OneLaunchDoesTheWorkOfSevenAndAllFacesAreRegularised) {
    HostFlow start(9, 8, 7), seven(9, 8, 7), one(9, 8, 7);
    for (HostFlow* flow : {&start, &seven, &one}) {
        fill(*flow);
        classify(*flow);
    }
    for (const auto which : kClasses) mlBoundaryConditionFlag(seven.device(), seven.param(), which);
    mlBndConditionOther(one.device(), one.param());
    EXPECT_TRUE(same(seven, one));

    const mlFlow& h = start.host();
    const std::size_t count = start.nodes();
    for (const MLLATTICENODE_FLAG face : kClasses) {
        int nodes = 0;
        for (std::size_t n = 0; n < count; ++n) {
            if (h.flag[n] != face || face == ML_NODE_SOLID) continue;
            const Regularised wanted = regularised(h, count, n, face);
            EXPECT_NEAR(one.host().rou[n].value, wanted.rho, 1e-6) << face << " at " << n;
            for (int i = 0; i < 27; ++i) {
                EXPECT_NEAR(one.host().fPost[i * count + n], wanted.f[i], 1e-6)
                    << face << " at " << n << ", direction " << i;
            }
            ++nodes;
        }
        EXPECT_EQ(nodes > 0, face != ML_NODE_SOLID);
    }
}

TEST(FlagBoundaries, NeighboursGetNothingInPlainFluidAndTheSameFromAnyThreads) {
    HostFlow plain(40, 14, 9), start(40, 14, 9);
    fill(plain);
    fill(start);
    mlBndCondition(plain.device(), plain.param());
    EXPECT_TRUE(same(plain, start));

    const int before = omp_get_max_threads();
    classify(start);
    mlBndCondition(start.device(), start.param());
    EXPECT_FALSE(same(plain, start));
    for (const int threads : {1, 2, 3, 7}) {
        omp_set_num_threads(threads);
        HostFlow flow(40, 14, 9);
        fill(flow);
        classify(flow);
        mlBndCondition(flow.device(), flow.param());
        EXPECT_TRUE(same(flow, start)) << threads << " threads";
    }
    omp_set_num_threads(before);
}

// The populations of a treated node have the density and momentum that its face imposes: rho (0.2, 0, 0) on the
// left face, none on the others. Nodes with an index below 10 or above n - 10 along the face keep their state.
TEST(ImposedVelocity, IsTheMomentumOfThePopulationsInsideTheRim) {
    const LaunchExtent e{22, 21, 23};
    for (const MLLATTICENODE_FLAG face : kClasses) {
        if (face == ML_NODE_SOLID) continue;
        SCOPED_TRACE(face);
        HostFlow flow(e.x, e.y, e.z), start(e.x, e.y, e.z);
        fill(flow);
        fill(start);
        mlBoundaryConditionZouHe(flow.device(), flow.param(), face);
        flow.download();
        const mlFlow& h = flow.host();
        const std::size_t count = flow.nodes();
        int changed = 0;
        for (std::size_t n = 0; n < count; ++n) {
            if (h.rou[n].value == start.host().rou[n].value) continue;
            ++changed;
            double sum = 0.0, momentum[3] = {};
            int entering = 0;
            for (int i = 0; i < 27; ++i) {
                const float f = h.f[i * count + n];
                sum += f;
                momentum[0] += ex_cas1[i] * f;
                momentum[1] += ey_cas1[i] * f;
                momentum[2] += ez_cas1[i] * f;
                entering += f != start.host().f[i * count + n];
            }
            const double inflow = face == ML_NODE_LEFT ? 0.2 : 0.0;
            EXPECT_EQ(h.ux[n], static_cast<float>(inflow));
            EXPECT_TRUE(h.uy[n] == 0 && h.uz[n] == 0);
            EXPECT_NEAR(sum, h.rou[n].value, 1e-6);
            EXPECT_NEAR(momentum[0], inflow * h.rou[n].value, 2e-7);
            EXPECT_NEAR(momentum[1], 0.0, 2e-7);
            EXPECT_NEAR(momentum[2], 0.0, 2e-7);
            EXPECT_EQ(entering, 9);
        }
        const int axis = face <= ML_NODE_RIGHT ? 0 : (face >= ML_NODE_DOWN ? 1 : 2);
        const int treated[3] = {e.x - 19, e.y - 19, e.z - 19};
        EXPECT_EQ(changed, treated[0] * treated[1] * treated[2] / treated[axis]);
    }
    for (const auto& [ny, nz] : {std::pair{19, 24}, std::pair{24, 19}}) {
        HostFlow thin(3, ny, nz), start(3, ny, nz);
        fill(thin);
        fill(start);
        mlBoundaryConditionZouHe(thin.device(), thin.param(), ML_NODE_LEFT);
        EXPECT_TRUE(same(thin, start));
    }
}

TEST(Inflow, DoesNothingUnlessEnabled) {
    HostFlow flow(6, 5, 4), start(6, 5, 4);  // the plane y = 0 lies at height 0
    fill(flow);
    fill(start);
    mmlStreamChangeInlet(flow.device(), flow.param(), false);
    EXPECT_TRUE(same(flow, start));
}

TEST(Wave, RunsForThreeHundredStepsWithAPeriodOfTwenty) {
    HostFlow flow(5, 4, 3);
    const std::size_t n = flow.node(2, 2, 1);
    flow.host().uy[n] = 0.05f;
    flow.upload();
    for (int step = 0; step < 306; ++step) {
        mlWave(flow.device(), flow.param());
        if (step % 20 != 5 && step != 299) continue;
        flow.download();
        const mlFlow& h = flow.host();
        EXPECT_NEAR(h.rou[n].value, 1.0 + 0.001 * std::sin(std::min(step, 299) * M_PI / 10), 2e-7);
        double momentum = 0.0;
        for (int i = 0; i < 27; ++i) {
            momentum += ey_cas1[i] * h.f[i * flow.nodes() + n];
            EXPECT_EQ(h.f[i * flow.nodes() + n], h.fPost[i * flow.nodes() + n]);
        }
        EXPECT_NEAR(momentum, 0.05 * h.rou[n].value, 1e-7);
    }
    EXPECT_EQ(flow.host().f[flow.node(1, 2, 1)], w_cas1[0]) << "one node only";
}

TEST(OtherMoments, AgreeWithTheStepsOwnAndKeepRawSumsAtZeroDensity) {
    HostFlow axes(9, 6, 5), flat(9, 6, 5);
    fill(axes);
    fill(flat);
    const LaunchExtent nodes = extentOf(axes);
    const long nx = nodes.x, ny = nodes.y, nz = nodes.z;
    launchRange<&mlCalOneOrderMomentKernel>(coveringShape(nodes, 8, 8, 8), nodes, axes.device(), nx,
                                            ny, nz);
    mlCalOneOrderMomentOpt(flat.device(), flat.param());
    EXPECT_TRUE(same(axes, flat));
    EXPECT_EQ(largest(axes.values(axes.host().forcex)), 0.0);

    std::fill(axes.host().f, axes.host().f + 27 * axes.nodes(), 0.0f);
    axes.host().f[1 * axes.nodes() + 5] = 0.5f;
    axes.host().f[2 * axes.nodes() + 5] = -0.5f;
    axes.upload();
    mlCalMacroGpu(axes.device(), axes.param());
    mlCopyFTilde(axes.device(), axes.param());
    axes.download();
    EXPECT_EQ(axes.host().rou[5].value, 0.0f);
    EXPECT_EQ(axes.host().ux[5], 1.0f);
    EXPECT_EQ(axes.values(axes.host().fEqTildeOld, 27), axes.values(axes.host().fEqTilde, 27));
}

// A box of 20 nodes along x and z at unit spacing, from the origin. The jets lie on the planes 4 and 16, each
// on the nodes below 8 or above 12, and below the height 120.
TEST(SceneForcing, PushesOnFourPlanesAndMovesTwoClasses) {
    HostFlow flow(20, 3, 20);
    flow.host().starty = 118.5f;  // the third row of nodes lies above the limit
    flow.host().flag[0] = static_cast<MLLATTICENODE_FLAG>(12);
    flow.host().flag[1] = static_cast<MLLATTICENODE_FLAG>(13);
    flow.upload();
    mlCalForceTerm(flow.device(), flow.param(), false, true, 0.5f);
    flow.download();
    const mlFlow& h = flow.host();
    EXPECT_EQ(largest(flow.values(h.forcex)) + largest(flow.values(h.forcez)), 0.0);
    EXPECT_EQ(h.uy[0], 0.125f);
    EXPECT_EQ(h.uy[1], 0.075f);
    EXPECT_EQ(h.uy[2], 0.0f);

    mlCalForceTerm(flow.device(), flow.param(), true, false, 2.0f);
    flow.download();
    EXPECT_EQ(h.uy[0], 0.125f) << "the parts are independent";
    for (int y = 0; y < 3; ++y)
        for (int a = 0; a < 20; ++a) {
            const double on = y < 2 ? 0.02 : 0.0;
            EXPECT_EQ(h.forcez[flow.node(a, y, 4)], a < 8 ? on : 0.0);
            EXPECT_EQ(h.forcez[flow.node(a, y, 16)], a > 12 ? -on : 0.0);
            EXPECT_EQ(h.forcex[flow.node(4, y, a)], a > 12 ? on : 0.0);
            EXPECT_EQ(h.forcex[flow.node(16, y, a)], a < 8 ? -on : 0.0);
            EXPECT_EQ(h.forcex[flow.node(a, y, 5)], a == 16 ? -on : 0.0);
        }
}

// A CUDA grid has at most 65535 blocks along y and z. A longer box must still visit each node once.
TEST(Launches, CoverBoxesLongerThanAGridMayBe) {
    const LaunchExtent box{3, 2, 70000};
    const std::size_t nodes = 3 * 2 * 70000;
    DeviceArray<mlDensity<float>> rou(std::vector<mlDensity<float>>(nodes, {2.0f}));
    DeviceArray<float> ux(std::vector<float>(nodes, 12.0f)), uy(std::vector<float>(nodes, 12.0f)),
        uz(std::vector<float>(nodes, 12.0f));
    DeviceArray<double> force(std::vector<double>(nodes, 0.0));
    DeviceArray<MLLATTICENODE_FLAG> flag(std::vector<MLLATTICENODE_FLAG>(nodes, ML_NODE_FLUID));
    mlFlow record{};
    record.rou = rou.data();
    record.ux = ux.data();
    record.uy = uy.data();
    record.uz = uz.data();
    record.forcex = record.forcey = record.forcez = force.data();
    record.flag = flag.data();
    DeviceArray<mlFlow> flow(std::vector<mlFlow>{record});
    MLFluidParam param{};
    param.samples_x = box.x;
    param.samples_y = box.y;
    param.samples_z = box.z;
    mlRestoreUOpt(flow.data(), &param);
    launchRange<&mlAddForcetoUKernel>(coveringShape(box, 8, 1, 1), box, flow.data(), 0.0f,
                                      long{box.x}, long{box.y}, long{box.z});
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    for (DeviceArray<float>* const u : {&ux, &uy, &uz}) {
        EXPECT_EQ(u->values(), Array<float>(nodes, 3.0f));
    }
}

}  // namespace
}  // namespace drelt::test
