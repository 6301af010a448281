// A pool: worlds stepped at the same time get the same bits as alone, and fail alone.
#include <gtest/gtest.h>
#include <omp.h>

#include <memory>
#include <tuple>
#include <vector>

#include "Markers/Markers.h"
#include "driver/scene.h"
#include "simulatorInterface/SimulatorPool.h"
#include "support/fields.h"
#include "support/message_of.h"

namespace drelt {
namespace {

// World k of those below: spheres under a gravity, in a box and with a coupling of their own.
std::shared_ptr<coupledLBM_sim3D> worldOf(int k, double gravity = 0.5) {
    const auto box = test::boxOf(20 + k, 18, 17, k == 1 ? 2 : 0);
    const auto body = test::bodyOf("sphere_follow", 300 + 50 * k);
    if (k == 2) box->coupling = Coupling::SemiImplicit;
    return test::simulatorOf(box, body, {gravity, 0.2 * k, -0.1},
                             k == 3 ? Schedule::Operators : Schedule::Production);
}

auto stateOf(const coupledLBM_sim3D& world) {
    const auto body = world.world->getSkeleton(0);
    const auto fields = test::fieldsOf(*world.solver);
    const Eigen::VectorXd at = body->getPositions(), speed = body->getVelocities();
    return std::make_tuple(world.getIterNum(), std::vector<double>(at.begin(), at.end()),
                           std::vector<double>(speed.begin(), speed.end()), fields.rou, fields.ux,
                           fields.uy, fields.uz, body->getMarkers()->data_cpu.pressure);
}

// Runs with a number of threads; the setting holds for the scope.
struct Threads {
    explicit Threads(int count) : before(omp_get_max_threads()) { omp_set_num_threads(count); }
    ~Threads() { omp_set_num_threads(before); }
    const int before;
};

TEST(Pool, StepsWorldsAsAlone) {
    for (const auto& [worlds, threads] : {std::pair{4, 3}, {4, 1}, {1, 3}}) {
        const Threads used(threads);
        SimulatorPool::Worlds together;
        for (int k = 0; k < worlds; ++k) together.push_back(worldOf(k));
        SimulatorPool pool(together);
        pool.step(TWO_WAY, nullptr, 6);
        pool.step(ONE_WAY, nullptr, 2);
        EXPECT_EQ(omp_get_max_threads(), threads);
        for (int k = 0; k < worlds; ++k) {
            const auto alone = worldOf(k);
            for (int i = 0; i < 8; ++i) alone->step(i < 6 ? TWO_WAY : ONE_WAY);
            EXPECT_TRUE(stateOf(*alone) == stateOf(*together[k])) << k << ", " << threads;
            EXPECT_EQ(pool.positions(0, true).row(k).transpose(),
                      alone->world->getSkeleton(0)->getPositions());
        }
    }
}

TEST(Pool, CompletesTheOthersIfAWorldDiverges) {
    const Threads used(2);
    const SimulatorPool::Worlds worlds{worldOf(0), worldOf(0, 3e6), worldOf(0)};
    SimulatorPool pool(worlds);
    for (int call = 1; call <= 2; ++call) {
        try {
            pool.step(TWO_WAY, nullptr, 5);
            FAIL() << "no failure";
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(pool.failedWorlds(), std::vector<int>{1});
            EXPECT_EQ(std::string(failure.what()).rfind("world 1: step ", 0), 0u) << failure.what();
        }
        EXPECT_LT(pool.iterations()[1], 5);
    }
    const auto alone = worldOf(0);
    for (int i = 0; i < 10; ++i) alone->step(TWO_WAY);
    EXPECT_TRUE(stateOf(*alone) == stateOf(*worlds[0]));
    EXPECT_TRUE(stateOf(*alone) == stateOf(*worlds[2]));
}

TEST(Pool, RefusesWorldsThatShareADescription) {
    const auto description = skeletonFromJson("assets/sphere_follow.json", test::device());
    SimulatorPool::Worlds worlds;
    for (int k = 0; k < 2; ++k) {
        const auto body = std::make_shared<skSystem>(
            description, 300, test::device(), Eigen::Vector3d::Zero(), Eigen::Vector3d::Zero());
        worlds.push_back(test::simulatorOf(test::boxOf(20, 18, 17), body, {0.5, 0, 0}));
    }
    EXPECT_NE(
        test::messageOf<std::invalid_argument>([&] { SimulatorPool{worlds}; }).find("share a mesh"),
        std::string::npos);
    EXPECT_FALSE(worlds[0]->inPool());
}

}  // namespace
}  // namespace drelt
