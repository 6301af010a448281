// The solver: whole steps compared with reference runs, synchronisation both ways, memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "simulatorInterface/FluidHelper.h"
#include "solver/stub_world.h"
#include "support/device.h"
#include "support/vectors.h"

namespace drelt {
namespace {

using test::VectorCase;

// A solver on one domain of host threads, with a stub world.
class SolverFixture {
public:
    explicit SolverFixture(simParams params) : solver(test::device()) {
        flow = FluidHelper::createFlow(params, test::device());
        FluidHelper::initialiseFields(*flow);
        FluidHelper::initialisePopulations(*flow);
        solver.lbmvec = {flow};
        solver.scale = params.computeUnitScale();
        solver.scale.dt = params.get_tp();
        solver.mlImmersedSolver::gpuDeviceId = test::device();
        solver.world = world;
    }
    ~SolverFixture() { FluidHelper::destroyFlow(flow); }

    template <class T>
    std::vector<T> onDevice(const T* array, std::int64_t count) const {
        std::vector<T> values(count);
        cudaMemcpy(values.data(), array, count * sizeof(T), cudaMemcpyDeviceToHost);
        return values;
    }
    std::vector<float> density() const {
        return {reinterpret_cast<float*>(flow->rou),
                reinterpret_cast<float*>(flow->rou) + flow->count};
    }
    std::vector<float> host(const float* array, std::int64_t perNode = 1) const {
        return {array, array + perNode * flow->count};
    }

    std::shared_ptr<test::StubWorld> world = std::make_shared<test::StubWorld>();
    mlSinglePhaseSolverNew solver;
    mlFlow* flow;
};

simParams smallBox() {
    simParams p;
    p.setup_mode = simParams::MANUAL;
    p.N = 8;
    p.l0p = 1;
    p.u0p = 1;
    p.width = 0.875f;
    p.height = 0.75f;
    p.depth = 0.625f;
    return p;
}

simParams paramsOf(const VectorCase& given) {
    simParams p;
    p.setup_mode = simParams::MANUAL;
    p.N = static_cast<float>(given.scalar("N"));
    p.l0p = static_cast<float>(given.scalar("l0p"));
    p.u0p = static_cast<float>(given.scalar("u0p"));
    p.u0k = static_cast<float>(given.scalar("u0k"));
    p.rou0p = static_cast<float>(given.scalar("rou0p"));
    p.visp = static_cast<float>(given.scalar("v0k"));
    p.dx = static_cast<float>(given.scalar("dx"));
    p.sigma_max = static_cast<float>(given.scalar("sigma_max"));
    p.slip_ratio = static_cast<float>(given.scalar("slip"));
    p.pml_width = given.integer("pml_width");
    // half a spacing less than the count, so that rounding cannot change the number of nodes
    p.width = (given.integer("nx") - 0.5f) * p.dx;
    p.height = (given.integer("ny") - 0.5f) * p.dx;
    p.depth = (given.integer("nz") - 0.5f) * p.dx;
    return p;
}

// Replays a reference run and compares at the steps that the case keeps.
class ReferenceRun : public SolverFixture {
public:
    explicit ReferenceRun(const VectorCase& vectors)
        : SolverFixture(paramsOf(vectors)),
          given(vectors),
          samples(given.integer("samples")),
          boundary(samples, given.array<float>("in_sampleArea").front()) {
        const auto scalar = [&](const char* name) {
            return static_cast<float>(given.scalar(name));
        };
        MLFluidParam& param = *flow->param;
        param.width = scalar("width");
        param.height = scalar("height");
        param.depth = scalar("depth");
        flow->startx = scalar("startx");
        flow->starty = scalar("starty");
        flow->startz = scalar("startz");
        load("in_f", flow->f);
        load("in_f", flow->fPost);
        load("in_rou", reinterpret_cast<float*>(flow->rou));
        load("in_ux", flow->ux);
        load("in_uy", flow->uy);
        load("in_uz", flow->uz);
        solver.boundaries = {&boundary.manager};
        solver.allocateDevice();
    }

    void step(int t) {
        const Eigen::Vector3d acceleration = row("in_accels", t);
        world->frame->setTranslation(row("in_centers", t));
        world->onStep = [&] {
            boundary.manager.download();
            const Eigen::Vector3d zero = Eigen::Vector3d::Zero();
            world->frame->setClassicDerivatives(zero, zero, acceleration, zero);
        };
        place(t);
        solver.step(TWO_WAY);
        FluidHelper::syncToHost(solver, 0);
    }

    void compareState(const std::string& suffix) const {
        EXPECT_TRUE(test::compare(given.array<double>("out_rou" + suffix), density(), 5e-6));
        EXPECT_TRUE(test::compare(given.array<double>("out_ux" + suffix), host(flow->ux), 2e-6));
        EXPECT_TRUE(test::compare(given.array<double>("out_uy" + suffix), host(flow->uy), 2e-6));
        EXPECT_TRUE(test::compare(given.array<double>("out_uz" + suffix), host(flow->uz), 2e-6));
    }

    const VectorCase& given;
    const int samples;
    test::StubBoundary boundary;

private:
    void load(const char* name, float* into) const {
        const auto values = given.array<float>(name);
        std::copy(values.begin(), values.end(), into);
    }
    Eigen::Vector3d row(const char* name, std::size_t t) const {
        const auto values = given.array<double>(name);
        return {values[3 * t], values[3 * t + 1], values[3 * t + 2]};
    }
    void place(int t) {
        const auto coord = given.array<float>("in_coord");
        const auto vel = given.array<float>("in_vel");
        const auto normal = given.array<float>("in_normal");
        for (int s = 0; s < samples; ++s) {
            const int at = t * 3 * samples + s;
            boundary.record.coordx[s] = coord[at];
            boundary.record.coordy[s] = coord[at + samples];
            boundary.record.coordz[s] = coord[at + 2 * samples];
            boundary.record.ux[s] = vel[at];
            boundary.record.uy[s] = vel[at + samples];
            boundary.record.uz[s] = vel[at + 2 * samples];
            boundary.record.normalx[s] = normal[at];
            boundary.record.normaly[s] = normal[at + samples];
            boundary.record.normalz[s] = normal[at + 2 * samples];
        }
        boundary.manager.upload();
    }
};

TEST(Steps, FiveStepsFollowTheReferenceRuns) {
    for (const char* name : {"run_5_steps_moving", "run_5_steps_fixed_box"}) {
        SCOPED_TRACE(name);
        const VectorCase given(name);
        ReferenceRun run(given);
        run.world->fixed = std::string(name) == "run_5_steps_fixed_box";
        const auto allForces = given.array<double>("out_sample_force");
        for (int t = 0; t < given.integer("steps"); ++t) {
            run.step(t);
            const std::ptrdiff_t perStep = std::ptrdiff_t{3} * run.samples;
            const std::vector<double> wanted(allForces.begin() + t * perStep,
                                             allForces.begin() + (t + 1) * perStep);
            EXPECT_TRUE(test::compareScaled(wanted, run.boundary.forces(), 1e-5)) << "step " << t;
            const std::string suffix = "_step" + std::to_string(t + 1);
            if (given.has("out_rou" + suffix)) run.compareState(suffix);
        }
        run.compareState("");
        if (given.has("out_f")) {
            EXPECT_TRUE(
                test::compare(given.array<double>("out_f"), run.host(run.flow->f, 27), 4e-6));
        }
        EXPECT_TRUE(test::compare(given.array<double>("out_Sopt"),
                                  run.onDevice(run.solver.Sopt_dev_vec[0], run.flow->count), 1e-7));
        const std::vector<float> start{run.flow->startx, run.flow->starty, run.flow->startz};
        EXPECT_TRUE(test::compare(given.array<double>("out_start"), start, 0));
    }
}

TEST(Steps, ModesWithoutFluidMoveTheOriginOnly) {
    SolverFixture fixture(smallBox());
    fixture.flow->ux[50] = 0.01f;
    fixture.solver.allocateDevice();
    fixture.world->frame->setTranslation({3, 4, 5});
    for (const couplingMode mode : {NO_FLUID, EMPIRICAL}) {
        fixture.solver.step(mode);
        EXPECT_EQ(fixture.world->lastMode, mode);
        EXPECT_FLOAT_EQ(fixture.world->lastDt, 0.1f / 8);
        EXPECT_EQ(fixture.world->lastDx, 0.125f);
    }
    FluidHelper::syncToHost(fixture.solver, 0);
    EXPECT_EQ(fixture.flow->startx, 3 - 0.4375f);
    EXPECT_EQ(fixture.flow->ux[50], 0.01f);
    EXPECT_EQ(fixture.flow->f[50], w_cas1[0]);

    fixture.solver.step(ONE_WAY);
    FluidHelper::syncToHost(fixture.solver, 0);
    EXPECT_EQ(fixture.world->lastMode, ONE_WAY);
    EXPECT_NE(fixture.flow->f[50], w_cas1[0]) << "the fluid advances";
    fixture.world->fixed = true;
    fixture.world->frame->setTranslation({0, 0, 0});
    fixture.solver.step(TWO_WAY);
    FluidHelper::syncToHost(fixture.solver, 0);
    EXPECT_EQ(fixture.flow->startx, 3 - 0.4375f) << "a fixed grid stays";
}

// A cube of 24 nodes per side at rest, with solids inside and a plane of nodes at height 0. At smaller
// viscosities, the boundary operators of the low faces amplify rounding errors.
std::unique_ptr<SolverFixture> restingCube() {
    simParams p = smallBox();
    p.width = p.height = p.depth = 3;
    p.pml_width = 2;
    p.visp = 0.125f;  // 0.1 in lattice units
    auto fixture = std::make_unique<SolverFixture>(p);
    for (const int n : {5000, 5001, 7020, 9100}) fixture->flow->flag[n] = ML_NODE_SOLID;
    return fixture;
}

// Largest deviation from rest at density 1 after many steps; infinite if anything is not finite.
double unrest(SolverFixture& fixture) {
    fixture.solver.allocateDevice();
    const int steps = test::guarded ? 5 : 100;  // opening and closing all pages takes its time
    for (int step = 0; step < steps; ++step) fixture.solver.step(ONE_WAY);
    FluidHelper::syncToHost(fixture.solver, 0);
    double most = 0.0;
    const auto include = [&](double deviation) {
        most = std::isfinite(deviation) ? std::max(most, std::abs(deviation)) : INFINITY;
    };
    const mlFlow& flow = *fixture.flow;
    for (std::int64_t n = 0; n < flow.count; ++n) {
        include(flow.rou[n].value - 1.0);
        include(flow.ux[n]);
        include(flow.uy[n]);
        include(flow.uz[n]);
        for (int i = 0; i < kDirections; ++i) include(flow.f[i * flow.count + n] - w_cas1[i]);
    }
    return most;
}

TEST(Choices, EveryCollisionAndBoundaryKeepsRestUnlessItBlows) {
    for (int choice = 0; choice <= static_cast<int>(CollisionOperator::Polynomial); ++choice) {
        const auto fixture = restingCube();
        fixture->solver.collisionOperator = static_cast<CollisionOperator>(choice);
        EXPECT_LT(unrest(*fixture), 1e-5) << "collision " << choice;
    }
    for (int choice = 0; choice <= static_cast<int>(BoundaryFamily::InletAtRest); ++choice) {
        const auto fixture = restingCube();
        const auto family = static_cast<BoundaryFamily>(choice);
        fixture->solver.boundaryFamily = family;
        const double deviation = unrest(*fixture);
        if (family == BoundaryFamily::ZouHe || family == BoundaryFamily::ZouHeLeft) {
            EXPECT_TRUE(deviation > 0.1 && deviation < 1.0) << "blowing gives " << deviation;
        } else {
            EXPECT_LT(deviation, 1e-5) << "boundary " << choice;
        }
    }
}

TEST(Sync, EachDirectionBringsItsFieldsOnly) {
    SolverFixture fixture(smallBox());
    fixture.solver.allocateDevice();
    mlFlow& host = *fixture.flow;
    const auto setHost = [&](float value) {
        host.ux[3] = host.uy[3] = host.uz[3] = host.f[3] = host.fPost[3] = value;
        host.rou[3].value = host.fEqBar[3] = host.sigma[3] = host.Sopt[3] = host.Q[3] = value;
        host.forcex[3] = host.forcey[3] = host.forcez[3] = value;
        host.flag[3] = static_cast<MLLATTICENODE_FLAG>(value);
        host.PML_type[3] = static_cast<PML_TYPE>(value);
    };
    mlFlow device{};
    const auto image = [&] {
        cudaMemcpy(&device, fixture.solver.lbm_dev_gpu[0], sizeof device, cudaMemcpyDeviceToHost);
    };
    setHost(5);
    FluidHelper::syncToDevice(fixture.solver, 0);
    image();
    const auto at3 = [&](const auto* array) { return fixture.onDevice(array, 4).back(); };
    for (const float* array : {device.ux, device.uy, device.uz, device.f, device.fPost}) {
        EXPECT_EQ(at3(array), 5.0f);
    }
    EXPECT_EQ(at3(device.flag), ML_NODE_RIGHT);
    EXPECT_EQ(at3(device.PML_type), PML_FACE_RIGHT);
    EXPECT_EQ(at3(device.rou).value, 1.0f) << "density does not go to the device";
    EXPECT_EQ(at3(device.fEqBar), w_cas1[0]);
    EXPECT_EQ(at3(device.Sopt), 0.0f);
    EXPECT_EQ(at3(device.forcex), 0.0);

    fixture.solver.uploadForcesAndPml(0);
    EXPECT_EQ(at3(device.forcez), 5.0);
    EXPECT_EQ(at3(device.fEqBar), 5.0f);
    EXPECT_EQ(at3(device.Q), 5.0f);

    setHost(7);
    host.startx = 100;
    FluidHelper::syncToHost(fixture.solver, 0);
    for (const float* array : {host.ux, host.uy, host.uz, host.f, host.fPost, host.fEqBar}) {
        EXPECT_EQ(array[3], 5.0f);
    }
    EXPECT_EQ(host.rou[3].value, 1.0f);
    EXPECT_EQ(host.forcex[3], 5.0);
    EXPECT_EQ(host.flag[3], ML_NODE_RIGHT);
    EXPECT_EQ(host.startx, -0.4375f);
    EXPECT_EQ(host.PML_type[3], static_cast<PML_TYPE>(7)) << "layer types stay";
    EXPECT_EQ(host.sigma[3], 7.0f);
    EXPECT_EQ(host.Sopt[3], 7.0f);
    EXPECT_EQ(host.Q[3], 7.0f);
}

TEST(Memory, DeviceArraysAreFreed) {
    const std::size_t before = platform::deviceBytesInUse();
    {
        SolverFixture fixture(smallBox());
        fixture.solver.allocateDevice();
        const std::size_t once = platform::deviceBytesInUse();
        EXPECT_GE(once - before,
                  std::size_t{920} * 7 * 6 * 5 + sizeof(MLFluidParam) + sizeof(mlFlow));
        fixture.solver.step(TWO_WAY);
        fixture.solver.allocateDevice();
        EXPECT_EQ(platform::deviceBytesInUse(), once);
        EXPECT_EQ(fixture.solver.f_dev_vec.size(), 1u);
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

TEST(Memory, FailuresQuoteTheStatement) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto failAt = [](int call) {
        SolverFixture fixture(smallBox());
        platform::failNthCall(call, cudaErrorMemoryAllocation);
        fixture.solver.allocateDevice();
    };
    const std::string head =
        "CUDA error at cslbm/[a-zA-Z/]+:[0-9]+ "
        "code=2\\(cudaErrorMemoryAllocation\\) ";
    EXPECT_EXIT(failAt(1), testing::ExitedWithCode(1), head + "\"cudaSetDevice\\(gpuDeviceId\\)\"");
    EXPECT_EXIT(
        failAt(3), testing::ExitedWithCode(1),
        head + "\"cudaMalloc\\(&f_dev, 27 \\* mllbm_host->count \\* sizeof\\(float\\)\\)\"");
    EXPECT_EXIT(failAt(22), testing::ExitedWithCode(1),
                head + "\"cudaMalloc\\(&sigma_dev, mllbm_host->count \\* sizeof\\(float\\)\\)\"");
}

}  // namespace
}  // namespace drelt
