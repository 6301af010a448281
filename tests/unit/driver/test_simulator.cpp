// The simulator: order of use, synchronisation, files, memory.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "driver/scene.h"
#include "platform/runtime.h"
#include "support/fields.h"
#include "support/message_of.h"

namespace drelt {
namespace {

namespace fs = std::filesystem;
using Eigen::Vector3d;
using test::messageOf;

// A box of 16 x 14 x 14 nodes, two diameters of the sphere long.
std::shared_ptr<simParams> smallBox() {
    auto p = test::boxOf(16, 14, 14, 2);
    p->u0k = 0.05f;
    p->width = 0.039f;
    p->height = p->depth = 0.034f;
    return p;
}

std::shared_ptr<skSystem> sphere() { return test::bodyOf("sphere_follow", 2000); }

class Simulator : public test::InFolder {
protected:
    Simulator() : InFolder(smallBox(), Vector3d(0.5, 0, 0)) {}
    void commit() { InFolder::commit({sphere()}); }
};

TEST_F(Simulator, LogPrintsScalesAndGrid) {
    testing::internal::CaptureStdout();
    sim->log();
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "##System Info##\n"
        "time step: 0.001250s   space resolution:0.002500 m \n"
        "PML Width: 2 \n"
        "|  u0k:       0.050000    |  u0p:     0.100000 m/s    |   l0p: 0.020000 m   | rou0p  "
        "1000.000000 |\n"
        "|  v0k:       0.008000    |  v0p:     0.000040 m/s    |\n"
        "Reynolds number :  50.000004 \n"
        "##Fluid Info##\n"
        "start (-0.019500,-0.017000,-0.017000)   width 0.0390 height 0.0340 depth 0.0340 \n"
        "samples  16 14 14 \n");
    EXPECT_EQ(sim->getIterPerSave(30), 26);
}

TEST_F(Simulator, CallsOutOfOrderAreRefused) {
    const auto refused = [](auto&& call) { return messageOf<std::runtime_error>(call); };
    const std::string early = ": the simulator is not initialised; call commitInit first";
    EXPECT_EQ(refused([&] { sim->step(TWO_WAY); }), "step" + early);
    EXPECT_EQ(refused([&] { sim->reset(); }), "reset" + early);
    EXPECT_EQ(refused([&] { sim->saveScene(0, 0); }), "saveScene" + early);
    EXPECT_EQ(refused([&] { sim->saveFluidData("x"); }), "saveFluidData" + early);
    EXPECT_EQ(refused([&] { sim->saveObjectsData("x"); }), "saveObjectsData" + early);
    EXPECT_EQ(refused([&] { sim->commitInit(); }),
              "commitInit: no world is attached; call attachWorld first");
    sim->attachWorld(world);
    EXPECT_EQ(refused([&] { sim->commitInit(); }),
              "commitInit: the attached world has no skeleton; call its addSkeleton first");
    EXPECT_FALSE(world->locked());
    commit();
    EXPECT_EQ(
        refused([&] { sim->attachWorld(world); }),
        "attachWorld: the simulator is initialised already; attach the world before commitInit");
    EXPECT_NE(messageOf<std::logic_error>([&] { world->addSkeleton(sphere()); }), "no exception");
    EXPECT_EQ(sim->getIterNum(), 0);
}

TEST_F(Simulator, ARefusedCommitLeavesNothingHalfMade) {
    setenv("DRELT_INSTRUCTIONS", "abacus", 1);
    EXPECT_THROW(commit(), std::invalid_argument);
    unsetenv("DRELT_INSTRUCTIONS");
    EXPECT_THROW(sim->step(TWO_WAY), std::runtime_error) << "not initialised";
    sim->commitInit();
    sim->step(TWO_WAY);
}

TEST_F(Simulator, EveryCommitAsksWhetherItsScheduleFitsIntoMemory) {
    DRELT_HOST_ONLY("the production schedule runs on host threads");
    sim = std::make_unique<coupledLBM_sim3D>(test::boxOf(47, 14, 14), test::device());
    const auto leave = [](double bytesPerNode) {
        platform::capAvailableHostBytes(static_cast<std::size_t>(47 * 14 * 14 * bytesPerNode));
    };
    const auto commitUnder = [&](Schedule schedule) {
        sim->schedule = schedule;
        return messageOf<std::runtime_error>([&] { sim->commitInit(); });
    };
    commit();
    sim->step(TWO_WAY);
    const std::size_t inUse = platform::deviceBytesInUse();
    // bytes per node, on the device and for the populations on the host
    const double production = ProductionDomain::bytesPerNode(*sim->lbmvec[0]->param);
    const double operators = 920, host = 540;
    leave(operators + host - production - 10);
    const std::string refused = commitUnder(Schedule::Operators);
    EXPECT_NE(refused.find("47 x 14 x 14 nodes need "), std::string::npos) << refused;
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Production) << "as it was";
    EXPECT_EQ(platform::deviceBytesInUse(), inUse);
    sim->step(TWO_WAY);
    sim->saveScene(0, 0);
    EXPECT_EQ(sim->getIterNum(), 2);

    leave(operators + host - production + 10);
    EXPECT_EQ(commitUnder(Schedule::Operators), "no exception");
    leave(200);  // for each array, not for all
    EXPECT_EQ(commitUnder(Schedule::Operators), "no exception") << "takes what it gives back";
    leave(operators - production - 10);
    EXPECT_EQ(commitUnder(Schedule::Production), "no exception");
    EXPECT_NE(commitUnder(Schedule::Operators), "no exception");
    leave(operators - production + 10);  // the host's populations have stayed
    EXPECT_EQ(commitUnder(Schedule::Operators), "no exception");
    sim->step(TWO_WAY);
    platform::capAvailableHostBytes();
}

TEST_F(Simulator, TheEnvironmentChoosesTheSchedule) {
    setenv("DRELT_SCHEDULE", "fastest", 1);
    EXPECT_NE(messageOf<std::invalid_argument>([&] { commit(); }).find("'fastest'"),
              std::string::npos);
    setenv("DRELT_SCHEDULE", "operators", 1);
    sim->commitInit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Operators);
    unsetenv("DRELT_SCHEDULE");
    sim->commitInit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Production);
}

TEST_F(Simulator, DeviceIdsMustAgree) {
    const int elsewhere = test::device() == 0 ? platform::kHostDevice : 0;
    const auto other = std::make_shared<coupledLBM_sim3D>(smallBox(), elsewhere);
    world->addSkeleton(sphere());
    other->attachWorld(world);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { other->commitInit(); }),
              "commitInit: the simulator is on device " + std::to_string(elsewhere) +
                  ", skeleton 0 of its world ('assets/sphere.glb') on device " +
                  std::to_string(test::device()) + "; give both the same device id");
    EXPECT_EQ(messageOf<std::invalid_argument>([] { coupledLBM_sim3D(nullptr, test::device()); }),
              "simulator: the parameters are None; give a simParam");
}

TEST_F(Simulator, CopiesOfTheFlowFollowEachOther) {
    commit();
    mlFlow& host = *sim->lbmvec[0];
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::DeviceNewer);
    sim->step(TWO_WAY);
    sim->saveScene(0, 0);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostCurrent);
    host.ux[5] = 42;
    sim->saveScene(0, 0);
    EXPECT_EQ(host.ux[5], 42.0f) << "nothing new to download";
    sim->step(NO_FLUID);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostCurrent);
    sim->step(ONE_WAY);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::DeviceNewer);
    sim->saveScene(0, 0);
    EXPECT_NE(host.ux[5], 42.0f);
    EXPECT_EQ(sim->getIterNum(), 3);

    sim->reset();
    EXPECT_EQ(sim->getIterNum(), 0);
    EXPECT_EQ(world->getTime(), 0.0);
    sim->step(EMPIRICAL);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostNewer) << "the upload stays pending";
    sim->saveScene(0, 0);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostNewer);
    sim->step(TWO_WAY);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::DeviceNewer);

    sim->params[0]->use_gpu = 0;
    host.ux[5] = 42;
    sim->saveScene(0, 0);
    EXPECT_EQ(host.ux[5], 42.0f) << "copies are left alone";
}

TEST_F(Simulator, RunsStartAgainAfterResetAndCommit) {
    sim->schedule = Schedule::Operators;  // whose density on the device can be set
    commit();
    const auto run = [&] {
        for (int i = 0; i < 5; ++i) sim->step(TWO_WAY);
        return world->getSkeleton(0)->getVelocities()[0];
    };
    const double first = run();
    EXPECT_GT(first, 0);
    // bit for bit, but on a GPU, where forces are added in no order
    const double allowed = test::onGpu() ? 1e-6 * first : 0;
    sim->reset();
    const mlFlow& host = *sim->lbmvec[0];
    EXPECT_EQ(host.rou[500].value, 1.0f) << "nothing was downloaded";
    // the device's density is what a reset leaves behind
    cudaMemcpy(sim->solver->rou_dev_vec[0], host.rou, host.count * sizeof(float),
               cudaMemcpyHostToDevice);
    EXPECT_NEAR(run(), first, allowed);
    sim->reset();
    sim->commitInit();
    EXPECT_NEAR(run(), first, allowed);
}

class Inlets : public Simulator, public testing::WithParamInterface<Schedule> {};
INSTANTIATE_TEST_SUITE_P(UnderBothSchedules, Inlets,
                         testing::Values(Schedule::Operators, Schedule::Production));

// Node (x, y, z) of the box.
std::int64_t node(int x, int y, int z) { return x + 16 * (y + std::int64_t{14} * z); }

// The middle of the cell that markInlet takes for that node: 16 nodes over 15.6 spacings, 14 over 13.6.
mlVelocity3D<float> placeOf(const mlFlow& flow, float x, float y, float z) {
    return {flow.startx + (x + 0.5f) / 16 * 0.039f, flow.starty + (y + 0.5f) / 14 * 0.034f,
            flow.startz + (z + 0.5f) / 14 * 0.034f};
}

TEST_P(Inlets, AreMarkedByPositionAndCleared) {
    sim->schedule = GetParam();
    EXPECT_EQ(messageOf<std::runtime_error>([&] { sim->clearInlets(0); }),
              "clearInlets: the simulator is not initialised; call commitInit first");
    commit();
    sim->step(TWO_WAY);
    const auto relative = sim->toReferenceVelocity(0.1f, 0.2f, -0.3f);
    EXPECT_NEAR(relative[0], 2, 1e-6);
    EXPECT_NEAR(relative[2], -6, 1e-6);
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostCurrent);

    mlFlow& host = *sim->lbmvec[0];
    const auto at = [&](float x, float y, float z) {  // in node spacings of the low corner
        return mlVelocity3D<float>{host.startx + x * 0.0025f, host.starty + y * 0.0025f,
                                   host.startz + z * 0.0025f};
    };
    const auto refused = [&](const mlVelocity3D<float>& place, float speed) {
        return messageOf<std::logic_error>([&] { sim->markInlet(0, place, {speed, 0, 0}); });
    };
    EXPECT_NE(refused(at(15.7f, 3, 3), 1).find("lies outside the fluid box"), std::string::npos);
    EXPECT_NE(refused(at(3, -0.1f, 3), 1).find("lies outside the fluid box"), std::string::npos);
    EXPECT_NE(refused(at(3, 3, NAN), 1).find("lies outside the fluid box"), std::string::npos);
    EXPECT_NE(refused(at(3, 3, 3), INFINITY).find("is not finite"), std::string::npos);
    EXPECT_EQ(messageOf<std::out_of_range>([&] { sim->clearInlets(1); }),
              "clearInlets: the simulator holds 1 domain(s); index 1 names none, give 0 to 0");
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostCurrent) << "refused calls change nothing";

    const std::int64_t n = node(3, 4, 5), m = n + 1;
    const float momentum = host.ux[m];
    sim->markInlet(0, placeOf(host, 3, 4, 5), {0.2f, 0.4f, -0.6f});
    EXPECT_EQ(host.flag[n], ML_NODE_INLET);
    EXPECT_EQ(host.uz[n], -0.6f * 0.05f);
    EXPECT_EQ(host.fPost[6 * host.count + n],
              hostEquilibrium(6, host.rou[n].value, host.ux[n], host.uy[n], host.uz[n]));
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostNewer);
    sim->step(TWO_WAY);
    sim->markInlet(0, placeOf(host, 9, 9, 9), {0, 0, 0});
    EXPECT_EQ(host.flag[n], ML_NODE_INLET) << "came back from the device";
    EXPECT_NE(host.ux[m], momentum) << "the step's flow is kept";

    test::store(&sim->solver->lbm_dev_gpu[0]->startx, 0, 0.0f);
    host.flag[m] = ML_NODE_SOLID;
    const float kept = host.f[host.count + n + 2];
    sim->clearInlets(0);
    EXPECT_EQ(host.flag[n], ML_NODE_FLUID);
    EXPECT_EQ(host.flag[m], ML_NODE_SOLID);
    for (const std::int64_t node : {n, n - 3}) {
        EXPECT_EQ(host.ux[node], 0.0f);
        EXPECT_EQ(host.f[host.count + node], w_cas1[1] * host.rou[node].value);
    }
    EXPECT_EQ(host.flag[n - 3], ML_NODE_LEFT) << "x = 0 lies at 0 m";
    EXPECT_EQ(host.f[host.count + n + 2], kept) << "plain fluid flows on";
    EXPECT_EQ(sim->syncState, coupledLBM_sim3D::HostNewer);
}

// Momentum after two steps with a node marked between them, and cleared again or not.
TEST_F(Simulator, MarkedPopulationsReachTheDeviceUnderBothSchedules) {
    enum Marks { None, Marked, Cleared };
    const auto run = [&](Schedule schedule, Marks marks) {
        world = std::make_shared<skWorld>(Vector3d(0.5, 0, 0));
        sim = std::make_unique<coupledLBM_sim3D>(smallBox(), test::device());
        sim->schedule = schedule;
        commit();
        EXPECT_EQ(sim->solver->domain(0).schedule(), schedule);
        sim->step(ONE_WAY);
        const auto place = placeOf(*sim->lbmvec[0], 4, 4, 4);
        if (marks != None) sim->markInlet(0, place, {0.2f, 0.4f, -0.6f});
        if (marks == Cleared) sim->clearInlets(0);
        sim->step(ONE_WAY);
        return test::fieldsOf(*sim->solver);
    };
    const std::int64_t below = node(4, 4, 3);  // where the jet along -z arrives
    for (const Marks marks : {None, Marked, Cleared}) {
        const test::Fields one = run(Schedule::Operators, marks);
        const test::Fields other = run(Schedule::Production, marks);
        for (std::size_t i = 0; i < one.uz.size(); ++i) {
            ASSERT_NEAR(one.ux[i], other.ux[i], 1e-6) << i;
            ASSERT_NEAR(one.uz[i], other.uz[i], 1e-6) << i;
        }
        // an equilibrium collides into itself; its population along -z moves on: 2/27 (1 - 3 u_z ..)
        const double arrived = marks == Marked ? 2.0 / 27 * 3 * 0.6 * 0.05 : 0.0;
        EXPECT_NEAR(one.uz[below], -arrived, 4e-4);
    }
}

// Steps without fluid move the origin too, but leave earlier read-outs current.
TEST_F(Simulator, PositionsCountFromTheOriginOfTheLatestStep) {
    for (const Schedule schedule : {Schedule::Operators, Schedule::Production}) {
        world = std::make_shared<skWorld>(Vector3d(500, 0, 0));
        sim = std::make_unique<coupledLBM_sim3D>(smallBox(), test::device());
        sim->schedule = schedule;
        commit();
        const mlFlow& host = *sim->lbmvec[0];
        const auto moves = [&](const auto& call) {
            sim->step(TWO_WAY);
            sim->saveScene(0, 0);
            const float before = host.startx;
            for (int i = 0; i < 3; ++i) sim->step(EMPIRICAL);
            EXPECT_EQ(host.startx, before);
            call();
            EXPECT_EQ(host.startx, test::fetched(sim->solver->lbm_dev_gpu[0]).startx);
            EXPECT_GT(host.startx, before);
        };
        moves([&] { sim->saveFluidData("moved"); });
        moves([&] { sim->clearInlets(0); });
        moves([&] {
            const auto place = placeOf(test::fetched(sim->solver->lbm_dev_gpu[0]), 9, 9, 9);
            sim->markInlet(0, place, {1, 0, 0});
            EXPECT_EQ(host.flag[node(9, 9, 9)], ML_NODE_INLET);
        });
    }
}

TEST_F(Simulator, AnotherChoiceThanTheDefaultTakesTheOperators) {
    commit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Production);
    sim->collisionOperator = CollisionOperator::Plain;
    sim->commitInit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Operators);
    EXPECT_EQ(sim->solver->collisionOperator, CollisionOperator::Plain);
    sim->step(TWO_WAY);
    sim->collisionOperator = CollisionOperator::HighorderFitted;
    sim->boundaryFamily = BoundaryFamily::None;
    sim->commitInit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Operators);
    EXPECT_EQ(sim->solver->boundaryFamily, BoundaryFamily::None);
    sim->step(TWO_WAY);
    sim->boundaryFamily = BoundaryFamily::NonEquilibriumExtrapolation;
    sim->commitInit();
    EXPECT_EQ(sim->solver->domain(0).schedule(), Schedule::Production);
}

TEST_F(Simulator, FramesGoToTheFoldersByName) {
    commit();
    sim->saveScene(12, BODY | FLUID);
    sim->fluidFolderName = "Other";
    sim->saveFluidData("stem");
    for (const char* name :
         {"Objects/00_vis_object_00012.vtk", "Objects/markers_0_vis_object_00012.vtk",
          "Fluid/0_vis_fluid00012.vtk", "Other/0_stem.vtk"}) {
        EXPECT_TRUE(fs::is_regular_file(folder / name)) << name;
    }
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator(folder), {}), 7);
}

TEST_F(Simulator, MemoryIsFreed) {
    const std::size_t before = platform::deviceBytesInUse();
    sim = std::make_unique<coupledLBM_sim3D>(smallBox(), test::device());
    EXPECT_EQ(platform::deviceBytesInUse(), before) << "a simulator without commitInit just goes";
    commit();
    sim->step(TWO_WAY);
    const std::size_t once = platform::deviceBytesInUse();
    sim->commitInit();
    sim->step(TWO_WAY);
    EXPECT_EQ(platform::deviceBytesInUse(), once);
    sim.reset();
    world.reset();
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

}  // namespace
}  // namespace drelt
