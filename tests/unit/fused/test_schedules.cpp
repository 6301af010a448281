// The production schedule against the operators, on the same flow step by step.
#include <gtest/gtest.h>
#include <omp.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cslbm/domain/HostState.h"
#include "cslbm/domain/operatorStep.h"
#include "cslbm/fused/FusedDeviceDomain.h"
#include "cslbm/fused/FusedDomain.h"
#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"
#include "support/flow_fixture.h"

namespace drelt::test {
namespace {

constexpr float kSigmaMax = 0.1f;  // strong, so that an error in the layer shows

struct Case {
    int nx, ny, nz, width;
    bool turns = false;
    float bodyAcceleration = 0.0f;
    OpenPlaneKind planes = OpenPlaneKind::Copy;
};
constexpr OpenPlaneKind kLinear = OpenPlaneKind::Characteristic;
constexpr OpenPlaneKind kConstant = OpenPlaneKind::CharacteristicConstant;

// A smooth flow: waves of density and velocity, with populations close to their equilibrium.
void fillSmooth(HostFlow& flow) {
    mlFlow& h = flow.host();
    const MLFluidParam& p = *h.param;
    for (int z = 0; z < p.samples_z; ++z)
        for (int y = 0; y < p.samples_y; ++y)
            for (int x = 0; x < p.samples_x; ++x) {
                const std::size_t n = flow.node(x, y, z);
                const auto a = static_cast<float>(x), b = static_cast<float>(y),
                           c = static_cast<float>(z);
                const float rho = 1.0f + 0.02f * std::sin(0.4f * a + 0.3f * b) * std::cos(0.5f * c);
                const float u[3] = {0.08f * std::sin(0.5f * b + 0.2f), 0.06f * std::sin(0.6f * c),
                                    0.07f * std::cos(0.35f * a + 0.2f * b)};
                h.rou[n].value = 0.0f;
                h.ux[n] = h.uy[n] = h.uz[n] = 0.0f;
                for (int i = 0; i < kDirections; ++i) {
                    const float f = hostEquilibrium(i, rho, u[0], u[1], u[2]) +
                                    1e-3f * w_cas1[i] * std::sin(a + 2 * b + 3 * c + 5.0f * i);
                    h.f[i * flow.nodes() + n] = f;
                    h.rou[n].value += f;
                    h.ux[n] += ex_cas1[i] * f;
                    h.uy[n] += ey_cas1[i] * f;
                    h.uz[n] += ez_cas1[i] * f;
                }
            }
    flow.upload();
}

// Adds blobs of force to the force arrays of a device record, as samples would. The blobs move through the box.
std::vector<NodeBox> spreadBlobs(const mlFlow& flow, const MLFluidParam& p, int step) {
    const int n[3] = {p.samples_x, p.samples_y, p.samples_z};
    std::vector<NodeBox> boxes;
    const std::size_t nodes = static_cast<std::size_t>(n[0]) * n[1] * n[2];
    Array<double> x = fetched(flow.forcex, nodes), y = fetched(flow.forcey, nodes),
                  z = fetched(flow.forcez, nodes);
    for (int blob = 0; blob < 3; ++blob) {
        int low[3], high[3];
        for (int a = 0; a < 3; ++a) {
            low[a] = (step / 3 + (blob * 7 + a * 3)) % (n[a] - 2);
            high[a] = std::min(n[a], low[a] + 5);
        }
        boxes.push_back({low[0], low[1], low[2], high[0], high[1], high[2]});
        for (int k = low[2]; k < high[2]; ++k)
            for (int j = low[1]; j < high[1]; ++j)
                for (int i = low[0]; i < high[0]; ++i) {
                    const std::size_t at = i + static_cast<std::size_t>(n[0]) * (j + n[1] * k);
                    x[at] += 1e-3 * std::sin(0.3 * (i + step));
                    y[at] -= 8e-4 * std::cos(0.5 * (j + k));
                    z[at] += 5e-4 * (blob - 1);
                }
    }
    const auto put = [&](double* there, const Array<double>& values) {
        checkCudaErrors(
            cudaMemcpy(there, values.data(), nodes * sizeof(double), cudaMemcpyHostToDevice));
    };
    put(flow.forcex, x);
    put(flow.forcey, y);
    put(flow.forcez, z);
    return boxes;
}

FrameMotion motionAt(int step, bool turns) {
    FrameMotion motion;
    motion.velocityScale = 2.0f;
    motion.lengthScale = Eigen::Vector3d::Constant(1e-3);
    motion.linearAcceleration = {0.2 * std::sin(0.3 * step), 0.1, -0.15 * std::cos(0.2 * step)};
    motion.far.rho = 1.002f;
    motion.far.u = {0.05f, 0.02f * std::sin(0.2f * static_cast<float>(step)), -0.03f};
    if (turns) {
        motion.angularVelocity = {0.05, -0.03, 0.1};
        motion.angularAcceleration = {0.01, 0.02, -0.01 * step};
        motion.inverse = Eigen::AngleAxisd(0.02 * step, Eigen::Vector3d::UnitZ()) *
                         Eigen::Translation3d(-3, -4, -5);
    }
    return motion;
}

using Domain = std::unique_ptr<ProductionDomain>;
using Make = std::function<Domain(const MLFluidParam&, float nu)>;

Make onHost(const FusedSweeps& sweeps) {
    return [&](const MLFluidParam& param, float nu) {
        return std::make_unique<FusedDomain>(param, nu, kSigmaMax, sweeps);
    };
}
Domain onDevice(const MLFluidParam& param, float nu) {
    return std::make_unique<FusedDeviceDomain>(param, nu, kSigmaMax);
}
// The domains that the device under test can run: its kernels, and the sweeps if the host reaches its memory.
std::vector<Make> kinds() {
    std::vector<Make> all{onDevice};
    if (plainMemory()) all.push_back(onHost(fusedSweeps()));
    return all;
}

// Both schedules with the same flow.
struct Pair {
    explicit Pair(const Case& given, const Make& make)
        : flow(given.nx, given.ny, given.nz, given.width), seen(given.nx, given.ny, given.nz) {
        flow.param()->bodyAccelx = given.bodyAcceleration;
        flow.layOut(kSigmaMax);
        fillSmooth(flow);
        fused = make(*flow.param(), flow.host().v0k);
        fused->load(flow.host());
        turns = given.turns;
        choices.planes = given.planes;
        fused->choose(choices);
    }

    void step(bool operators) {
        const FrameMotion motion = motionAt(now, turns);
        const std::vector<NodeBox> boxes =
            spreadBlobs(fetched(fused->record()), *flow.param(), now);
        fused->announceForces(boxes.data(), static_cast<int>(boxes.size()));
        fused->step(motion);
        if (operators) {
            spreadBlobs(flow.deviceImage(), *flow.param(), now);
            operatorStep(flow.device(), flow.param(), motion, choices);
        }
        ++now;
    }

    // Does what the simulator's reset does: sets the fluid at rest at the last density that the host saw.
    void reset() {
        flow.download();
        mlFlow& h = flow.host();
        for (std::size_t n = 0; n < flow.nodes(); ++n) {
            // The host may have seen another density than the device has now.
            const float rou = h.rou[n].value = 1.0f + 0.5f * (h.rou[n].value - 1.0f);
            h.ux[n] = h.uy[n] = h.uz[n] = 0.0f;
            for (int i = 0; i < kDirections; ++i) {
                const std::size_t entry = i * flow.nodes() + n;
                h.f[entry] = h.fEqBar[entry] = w_cas1[i] * rou;
                h.fEqTilde[entry] = h.fEqTildeOld[entry] = h.Q[entry] = h.cNQ[entry] = 0.0f;
            }
        }
        fused->resetLayer(h.rou);
        fused->upload(h);
        const mlFlow& there = flow.deviceImage();
        const std::size_t bytes = flow.nodes() * sizeof(float);
        for (auto field : {&mlFlow::f, &mlFlow::fEqBar, &mlFlow::fEqTildeOld}) {
            cudaMemcpy(there.*field, h.*field, kDirections * bytes, cudaMemcpyHostToDevice);
        }
        for (auto field : {&mlFlow::ux, &mlFlow::uy, &mlFlow::uz}) {
            cudaMemcpy(there.*field, h.*field, bytes, cudaMemcpyHostToDevice);
        }
    }

    void compare(const char* when) {
        flow.download();
        fused->materialise(seen.host());
        expectNear(when, "rou", &flow.host().rou->value, &seen.host().rou->value, 1, 2e-5f);
        expectNear(when, "ux", flow.host().ux, seen.host().ux, 1, 1e-5f);
        expectNear(when, "uy", flow.host().uy, seen.host().uy, 1, 1e-5f);
        expectNear(when, "uz", flow.host().uz, seen.host().uz, 1, 1e-5f);
        expectNear(when, "Sopt", flow.host().Sopt, seen.host().Sopt, 1, 5e-7f);
        expectNear(when, "f", flow.host().f, seen.host().f, kDirections, 4e-6f);
        expectNear(when, "fPost", flow.host().fPost, seen.host().fPost, kDirections, 4e-6f);
    }

    void expectNear(const char* when, const char* name, const float* expected, const float* got,
                    int perNode, float tolerance) const {
        float worst = 0.0f;
        std::size_t at = 0;
        for (std::size_t n = 0; n < perNode * flow.nodes(); ++n) {
            const float off = std::fabs(expected[n] - got[n]);
            if (!(off <= worst)) {
                worst = off;
                at = n;
            }
        }
        const std::size_t node = at % flow.nodes();
        const std::size_t nx = flow.host().param->samples_x;
        const std::size_t ny = flow.host().param->samples_y;
        EXPECT_LE(worst, tolerance)
            << name << " " << when << ", direction " << at / flow.nodes() << ", node " << node % nx
            << " " << node / nx % ny << " " << node / (nx * ny) << ": " << expected[at]
            << " against " << got[at];
    }

    HostFlow flow;
    HostFlow seen;
    Domain fused;
    bool turns = false;
    StepChoices choices;
    int now = 0;
};

class Schedules : public testing::TestWithParam<Case> {};

TEST_P(Schedules, Agree) {
    for (const Make& make : kinds()) {
        Pair pair(GetParam(), make);
        SCOPED_TRACE(pair.fused->instructionSet());
        pair.step(true);
        pair.compare("after the first step");
        for (int i = 0; i < 24; ++i) pair.step(true);
        pair.compare("before the reset");
        pair.reset();
        pair.step(true);
        pair.compare("after the reset");
        while (pair.now < 50) pair.step(true);
        pair.compare("at the end");
    }
}

INSTANTIATE_TEST_SUITE_P(Boxes, Schedules,
                         testing::Values(Case{37, 21, 19, 0}, Case{16, 33, 9, 0},
                                         Case{9, 10, 11, 0, true}, Case{11, 9, 10, 1, false, 1e-4f},
                                         Case{37, 21, 19, 1}, Case{150, 18, 33, 3},
                                         Case{47, 30, 27, 10}, Case{5, 6, 7, 1}));

// 20 x 17 x 19 with a layer of 6: a tile of rows would begin at the row below the high plane across y.
INSTANTIATE_TEST_SUITE_P(CharacteristicPlanes, Schedules,
                         testing::Values(Case{37, 21, 19, 0, false, 0, kLinear},
                                         Case{37, 21, 19, 0, false, 0, kConstant},
                                         Case{20, 17, 19, 6, false, 0, kLinear},
                                         Case{11, 9, 10, 1, true, 1e-4f, kLinear},
                                         Case{5, 7, 6, 1, false, 0, kLinear},
                                         Case{3, 3, 3, 0, false, 0, kLinear}));

std::vector<float> bits(const ProductionDomain& domain, HostFlow& into) {
    domain.materialise(into.host());
    std::vector<float> all = into.values(into.host().f, kDirections);
    for (const auto* field : {into.host().ux, into.host().Sopt, &into.host().rou->value}) {
        all.insert(all.end(), field, field + into.nodes());
    }
    return all;
}

// In a step every place in memory belongs to one node, so threads cannot change a bit.
TEST(FusedDomain, ThreadsGiveTheSameBits) {
    const int before = omp_get_max_threads();
    const Case cases[] = {{41, 19, 23, 0},
                          {41, 19, 23, 3},
                          {41, 19, 23, 0, false, 0, kLinear},
                          {20, 17, 19, 6, false, 0, kLinear}};
    for (const Make& make : kinds()) {
        for (const Case& given : cases) {
            std::vector<float> expected;
            for (const int threads : {1, 2, 3, 4, 30}) {
                omp_set_num_threads(threads);
                Pair pair(given, make);
                for (int i = 0; i < 8; ++i) pair.step(false);
                const std::vector<float> got = bits(*pair.fused, pair.seen);
                if (expected.empty()) expected = got;
                EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(float)), 0)
                    << pair.fused->instructionSet() << ", " << threads << " threads, layer of "
                    << given.width;
            }
        }
    }
    omp_set_num_threads(before);
}

TEST(FusedDomain, InstructionSetsAgree) {
    DRELT_HOST_ONLY("sweeps run on host threads");
    for (const char* name : fusedInstructionSets()) {
        for (const OpenPlaneKind planes : {OpenPlaneKind::Copy, kLinear}) {
            Pair pair({53, 18, 17, 3, false, 0, planes}, onHost(fusedSweeps(name)));
            EXPECT_STREQ(pair.fused->instructionSet(), name);
            for (int i = 0; i < 20; ++i) pair.step(true);
            pair.compare(name);
        }
    }
    EXPECT_THROW(fusedSweeps("mmx"), std::invalid_argument);
}

// Moments on demand equal those of a full read-out, and only the nodes asked for have them.
TEST(FusedDomain, PreparesMomentsOnDemand) {
    DRELT_HOST_ONLY("elsewhere all moments are there");
    for (const Case& given :
         {Case{45, 17, 16, 0}, Case{45, 17, 16, 2}, Case{45, 17, 16, 2, false, 0, kLinear}}) {
        Pair pair(given, onHost(fusedSweeps()));
        for (int i = 0; i < 5; ++i) pair.step(false);
        pair.fused->materialise(pair.seen.host());
        const std::vector<NodeBox> boxes{{0, 0, 0, 5, 17, 3},
                                         {30, 5, 6, 45, 9, 16},
                                         {-4, 14, 14, 60, 40, 40},
                                         {9, 9, 9, 9, 12, 12}};
        pair.fused->prepareMoments(boxes.data(), static_cast<int>(boxes.size()));
        const mlFlow& got = *pair.fused->record();
        const mlFlow& all = pair.seen.host();
        for (int z = 0; z < 16; ++z)
            for (int y = 0; y < 17; ++y)
                for (int x = 0; x < 45; ++x) {
                    const std::size_t n = pair.seen.node(x, y, z);
                    const bool asked =
                        std::any_of(boxes.begin(), boxes.end(), [&](const NodeBox& b) {
                            return x >= b.x0 && x < b.x1 && y >= b.y0 && y < b.y1 && z >= b.z0 &&
                                   z < b.z1;
                        });
                    if (asked) {
                        ASSERT_EQ(got.rou[n].value, all.rou[n].value) << x << " " << y << " " << z;
                        ASSERT_EQ(got.ux[n], all.ux[n]);
                        ASSERT_EQ(got.uy[n], all.uy[n]);
                        ASSERT_EQ(got.uz[n], all.uz[n]);
                    } else if (y < 5 && z > 2 && z < 14) {
                        ASSERT_EQ(got.rou[n].value, 0.0f) << x << " " << y << " " << z;
                    }
                }
    }
}

// With samples anywhere, even at the grid's corners, the nodes around them get moments, and the step consumes
// the force that is spread there.
TEST(FusedDomain, PreparesTheSurroundingsOfSamples) {
    DRELT_HOST_ONLY("elsewhere all moments are there");
    Pair pair({45, 17, 16, 2}, onHost(fusedSweeps()));
    for (int i = 0; i < 5; ++i) pair.step(false);
    pair.fused->materialise(pair.seen.host());
    const NodeBox around{-2, -1, -2, 4, 3, 4};
    std::vector<NodeIndex> nodes{{-1, 0, 0}, {0, 0, 0}, {44, 16, 15}, {17, 9, 8}, {-1, 3, 3}};
    for (int i = 0; i < 400; ++i) nodes.push_back({30 + i % 3, 4, 5});
    dynamic_cast<FusedDomain&>(*pair.fused)
        .prepareAround(nodes.data(), static_cast<int>(nodes.size()), around);
    const mlFlow& got = *pair.fused->record();
    const mlFlow& all = pair.seen.host();
    std::vector<std::size_t> reached;
    for (int z = 0; z < 16; ++z)
        for (int y = 0; y < 17; ++y)
            for (int x = 0; x < 45; ++x) {
                if (std::none_of(nodes.begin(), nodes.end(), [&](const NodeIndex& n) {
                        return n.x >= 0 && x >= n.x + around.x0 && x < n.x + around.x1 &&
                               y >= n.y + around.y0 && y < n.y + around.y1 &&
                               z >= n.z + around.z0 && z < n.z + around.z1;
                    }))
                    continue;
                const std::size_t n = pair.seen.node(x, y, z);
                ASSERT_EQ(got.rou[n].value, all.rou[n].value) << x << " " << y << " " << z;
                ASSERT_EQ(got.ux[n], all.ux[n]);
                ASSERT_EQ(got.uy[n], all.uy[n]);
                ASSERT_EQ(got.uz[n], all.uz[n]);
                reached.push_back(n);
            }
    ASSERT_EQ(reached.size(), 4 * 3 * 4 + 3 * 2 * 3 + 6 * 4 * 6 + 8 * 4 * 6);
    EXPECT_EQ(got.rou[pair.seen.node(10, 12, 1)].value, 0.0f) << "far from all";
    for (const std::size_t n : reached) got.forcey[n] = 1e-5;
    pair.fused->step({});
    for (const std::size_t n : reached) ASSERT_EQ(got.forcey[n], 0.0);
}

// Rounding does not change the mass of a fluid at rest.
TEST(FusedDomain, RestStays) {
    for (const Make& make : kinds()) {
        HostFlow seen(13, 12, 11, 4);
        const Domain domain = make(*seen.param(), 0.01f);
        for (int i = 0; i < 2000; ++i) domain->step({});
        domain->materialise(seen.host());
        for (std::size_t n = 0; n < seen.nodes(); ++n) {
            ASSERT_NEAR(seen.host().rou[n].value, 1.0f, 2e-6f) << domain->instructionSet() << n;
            ASSERT_NEAR(seen.host().ux[n], 0.0f, 1e-6f) << domain->instructionSet() << n;
        }
    }
}

// Density and momentum of the nodes between the open planes are those of a uniform stream.
void expectStream(const HostFlow& flow, const Vector3<float>& u, const char* what) {
    const mlFlow& h = flow.host();
    const MLFluidParam& p = *h.param;
    double mass = 0.0;
    std::size_t inside = 0;
    for (std::size_t n = 0; n < flow.nodes(); ++n) {
        const int x = static_cast<int>(n % p.samples_x);
        const int y = static_cast<int>(n / p.samples_x % p.samples_y);
        const int z = static_cast<int>(n / p.samples_x / p.samples_y);
        const int w = p.pml_width;
        if (!withinPlanes(x, p.samples_x, w) || !withinPlanes(y, p.samples_y, w) ||
            !withinPlanes(z, p.samples_z, w))
            continue;
        mass += h.rou[n].value;
        ++inside;
        ASSERT_NEAR(h.rou[n].value, 1.0f, 1e-5f) << what << " " << x << " " << y << " " << z;
        ASSERT_NEAR(h.ux[n], u.x, 1e-5f) << what << " " << x << " " << y << " " << z;
        ASSERT_NEAR(h.uy[n], u.y, 1e-5f) << what << " " << x << " " << y << " " << z;
        ASSERT_NEAR(h.uz[n], u.z, 1e-5f) << what << " " << x << " " << y << " " << z;
    }
    EXPECT_NEAR(mass / static_cast<double>(inside), 1.0, 3e-6) << what;
}

// A stream that begins everywhere keeps its velocity between planes that hold it, and so does one after a
// reset.
TEST(FusedDomain, AStreamThroughTheBoxStays) {
    const Vector3<float> u{0.08f, -0.03f, 0.05f};
    StepChoices choices;
    choices.planes = kLinear;
    FrameMotion motion;
    motion.far.u = u;
    for (const int width : {0, 8}) {
        HostFlow flow(27, 22, 21, width);
        setUniformMomentum(flow.host(), u);
        for (const Make& make : kinds()) {
            HostFlow seen(27, 22, 21, width);
            const Domain domain = make(*flow.param(), 0.01f);
            domain->choose(choices);
            domain->begin(flow.host(), HostPopulations::Uniform, u);
            for (int i = 0; i < 300; ++i) domain->step(motion);
            domain->materialise(seen.host());
            expectStream(seen, u, domain->instructionSet());

            setUniformMomentum(seen.host(), u);
            domain->reset(seen.host(), u);
            domain->syncToDevice(seen.host());
            for (int i = 0; i < 20; ++i) domain->step(motion);
            domain->materialise(seen.host());
            expectStream(seen, u, "after a reset");
        }
        initialisePopulations(flow.host(), u);
        flow.upload();
        for (int i = 0; i < 300; ++i) operatorStep(flow.device(), flow.param(), motion, choices);
        flow.download();
        expectStream(flow, u, "operators");
    }
}

TEST(FusedDomain, RefusesABoxWithoutInnerNodes) {
    MLFluidParam param{};
    param.samples_x = param.samples_y = 40;
    param.samples_z = 22;
    param.pml_width = 10;
    for (const Make& make : kinds()) EXPECT_THROW(make(param, 0.01f), std::invalid_argument);
}

}  // namespace
}  // namespace drelt::test
