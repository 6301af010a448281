// What the driver's tests share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/SkeletonDescription.h"
#include "simulatorInterface/coupledLBM_sim3D.h"
#include "support/device.h"

namespace drelt::test {

// A box of nx x ny x nz nodes, 8 of them to the bundled sphere's diameter of 0.02 m; 0.1 m/s is 0.1 in
// lattice units.
inline std::shared_ptr<simParams> boxOf(int nx, int ny, int nz, int layer = 0, float visp = 4e-5f) {
    auto p = std::make_shared<simParams>();
    p->setup_mode = simParams::MANUAL;
    p->N = 8;
    p->l0p = 0.02f;
    p->u0p = p->u0k = 0.1f;
    p->visp = visp;
    p->rou0p = 1000;
    // half a node short, so that the counted nodes do not depend on rounding
    const auto length = [](int nodes) { return (static_cast<float>(nodes) - 0.5f) * 0.0025f; };
    p->width = length(nx);
    p->height = length(ny);
    p->depth = length(nz);
    p->pml_width = layer;
    return p;
}

// The body of a bundled description, with its links `heavier` times as heavy. Its output is swallowed.
inline std::shared_ptr<skSystem> bodyOf(
    const std::string& asset, int samples,
    const Eigen::Vector3d& rotation = Eigen::Vector3d::Zero(),
    const Eigen::Vector3d& translation = Eigen::Vector3d::Zero(), int device = test::device(),
    double heavier = 1) {
    testing::internal::CaptureStdout();
    const auto description = skeletonFromJson("assets/" + asset + ".json", device);
    for (const auto& link : description->links) link->mass *= heavier;
    auto body = std::make_shared<skSystem>(description, samples, device, translation, rotation);
    testing::internal::GetCapturedStdout();
    return body;
}

// A simulator of the box with one body in it, committed.
inline std::unique_ptr<coupledLBM_sim3D> simulatorOf(const std::shared_ptr<simParams>& box,
                                                     const std::shared_ptr<skSystem>& body,
                                                     const Eigen::Vector3d& gravity,
                                                     Schedule schedule = Schedule::Production) {
    auto simulator = std::make_unique<coupledLBM_sim3D>(box, body->gpuId);
    simulator->schedule = schedule;
    const auto world = std::make_shared<skWorld>(gravity);
    world->addSkeleton(body);
    simulator->attachWorld(world);
    simulator->commitInit();
    return simulator;
}

// A simulator and its world, not yet committed, that write into a folder of their own: CTest runs several
// cases at once, each as a process.
class InFolder : public testing::Test {
protected:
    InFolder(const std::shared_ptr<simParams>& box, const Eigen::Vector3d& gravity)
        : world(std::make_shared<skWorld>(gravity)),
          sim(std::make_unique<coupledLBM_sim3D>(box, test::device())) {}
    void SetUp() override { std::filesystem::remove_all(folder); }
    void TearDown() override { std::filesystem::remove_all(folder); }
    void commit(const std::vector<std::shared_ptr<skSystem>>& bodies) {
        for (const auto& body : bodies) world->addSkeleton(body);
        sim->mainDataFolderPath = folder.string() + "/";
        sim->attachWorld(world);
        sim->commitInit();
    }

    std::filesystem::path folder =
        std::filesystem::temp_directory_path() /
        (std::string("drelt_") + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::shared_ptr<skWorld> world;
    std::unique_ptr<coupledLBM_sim3D> sim;
};

}  // namespace drelt::test
