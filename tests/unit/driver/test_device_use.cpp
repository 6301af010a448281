// How a simulator uses its device: memory is freed, and steps neither allocate nor copy fields.
#include <gtest/gtest.h>

#include <memory>

#include "driver/scene.h"
#include "platform/runtime.h"

namespace drelt {
namespace {

// A sphere of 8 nodes per diameter in a cube of `side` nodes.
std::unique_ptr<coupledLBM_sim3D> scene(int side, int samples = 300) {
    return test::simulatorOf(test::boxOf(side, side, side), test::bodyOf("sphere", samples),
                             Eigen::Vector3d(0.5, 0, 0));
}

TEST(DeviceUse, HundredSimulatorsAndHundredCommitsLeaveNothingBehind) {
    scene(12)->step(TWO_WAY);
    const std::size_t before = platform::deviceBytesInUse();
    const std::size_t free = platform::deviceBytesFree();
    for (int i = 0; i < 100; ++i) scene(12, 50)->step(TWO_WAY);
    EXPECT_EQ(platform::deviceBytesInUse(), before);
    const auto simulator = scene(12);
    const std::size_t one = platform::deviceBytesInUse();
    for (int i = 0; i < 100; ++i) simulator->commitInit();
    EXPECT_EQ(platform::deviceBytesInUse(), one);
    // a GPU hands out memory in pieces of 2 MiB; the host's free memory is not the process's own
    if (!platform::onHostDevice()) {
        EXPECT_LT(free - platform::deviceBytesFree(), std::size_t{64} << 20);
    }
}

TEST(DeviceUse, StepsAllocateNothingAndCopyNoFieldsAndWaitAtTheEnd) {
    const auto copiedInAStep = [](int side) {
        const auto simulator = scene(side);
        for (int i = 0; i < 3; ++i) simulator->step(TWO_WAY);
        const platform::Traffic before = platform::traffic();
        for (int i = 0; i < 4; ++i) simulator->step(TWO_WAY);
        const platform::Traffic after = platform::traffic();
        EXPECT_EQ(after.allocations, before.allocations);
        // at the end of the solver's step and after the markers
        EXPECT_EQ(after.waits - before.waits, 4 * 2);
        return (after.bytesCopied - before.bytesCopied) / 4;
    };
    const std::size_t small = copiedInAStep(16);
    EXPECT_EQ(copiedInAStep(32), small) << "what crosses does not grow with the grid";
    EXPECT_LT(small, std::size_t{16} * 16 * 16 * sizeof(float)) << "nor is it one field";
}

TEST(DeviceUse, ImpossibleDevicesAndAllocationsEndTheProcessWithTheirLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto allocateOn = [](int device, std::int64_t nodes) {
        mlFlow domain{};
        domain.count = nodes;
        mlSinglePhaseSolverNew solver(device);
        solver.lbmvec = {&domain};
        solver.allocateDevice();
    };
    const std::string head = "^CUDA error at cslbm/[a-zA-Z/]+:[0-9]+ code=";
    EXPECT_EXIT(allocateOn(4711, 1), testing::ExitedWithCode(1),
                head + "101\\(cudaErrorInvalidDevice\\) \"cudaSetDevice\\(gpuDeviceId\\)\" \n");
    EXPECT_EXIT(allocateOn(test::device(), std::int64_t{1} << 40), testing::ExitedWithCode(1),
                head +
                    "2\\(cudaErrorMemoryAllocation\\) \"cudaMalloc\\(&f_dev, 27 \\* "
                    "mllbm_host->count \\* sizeof\\(float\\)\\)\" \n");
}

}  // namespace
}  // namespace drelt
