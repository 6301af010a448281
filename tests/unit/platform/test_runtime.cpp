// The device runtime on host threads: ownership, copies, failures and launches.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <thread>
#include <vector>

#include "platform/check.h"
#include "platform/launch.h"
#include "platform/testing.h"

namespace drelt {
namespace {

DRELT_KERNEL void recordIndexKernel(LaunchIndex at, int* out, int nx, int ny) {
    out[at.n] = at.n == at.x + nx * (at.y + static_cast<std::int64_t>(ny) * at.z) ? at.z : -1;
}

DRELT_KERNEL void squareKernel(LaunchIndex at, const float* in, float* out) {
    out[at.n] = in[at.n] * in[at.n];
}

TEST(Runtime, DeviceMemoryIsSeparateAndFreedByOwner) {
    const std::size_t before = platform::deviceBytesInUse();
    std::vector<float> host(5000000, 2.0f);
    float* device = nullptr;
    ASSERT_EQ(cudaSetDevice(platform::kHostDevice), cudaSuccess);
    ASSERT_EQ(cudaMalloc(&device, host.size() * sizeof(float)), cudaSuccess);
    EXPECT_EQ(platform::deviceBytesInUse(), before + host.size() * sizeof(float));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(device) % 4096, 0u);
    ASSERT_EQ(cudaMemcpy(device, host.data(), host.size() * 4, cudaMemcpyHostToDevice),
              cudaSuccess);
    host.assign(host.size(), 0.0f);
    EXPECT_EQ(device[host.size() - 1], 2.0f);
    ASSERT_EQ(cudaMemcpy(host.data(), device, host.size() * 4, cudaMemcpyDeviceToHost),
              cudaSuccess);
    EXPECT_EQ(host.front(), 2.0f);
    EXPECT_EQ(host.back(), 2.0f);
    EXPECT_EQ(cudaFree(device), cudaSuccess);
    EXPECT_EQ(platform::deviceBytesInUse(), before);
    EXPECT_EQ(cudaFree(device), cudaErrorInvalidValue);
    EXPECT_EQ(cudaFree(nullptr), cudaSuccess);
}

TEST(Runtime, RefusesWhatCannotBeHad) {
    float* device = nullptr;
    cudaSetDevice(platform::kHostDevice);
    EXPECT_EQ(cudaMalloc(&device, std::size_t{1} << 60), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaMalloc(&device, std::numeric_limits<std::size_t>::max()),
              cudaErrorMemoryAllocation);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(cudaSetDevice(4711), cudaErrorInvalidDevice);
}

TEST(Runtime, InjectedFailureHitsTheNthCallOnly) {
    cudaSetDevice(platform::kHostDevice);
    platform::failNthCall(2, cudaErrorLaunchFailure);
    EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    EXPECT_EQ(cudaDeviceSynchronize(), cudaErrorLaunchFailure);
    EXPECT_EQ(cudaDeviceSynchronize(), cudaSuccess);
}

TEST(Runtime, DeferredWaitsWaitOnlyWhenTheyEndOrWhenAskedTo) {
    cudaSetDevice(platform::kHostDevice);
    const auto waitsOf = [](auto&& body) {
        const std::size_t before = platform::traffic().waits;
        body();
        return platform::traffic().waits - before;
    };
    const auto launches = [] {
        const platform::DeferredWaits outer;
        { const platform::DeferredWaits inner; }
        cudaDeviceSynchronize();
        std::thread([] { cudaDeviceSynchronize(); }).join();  // another thread defers nothing
    };
    EXPECT_EQ(waitsOf(launches), 1u);
    EXPECT_EQ(waitsOf([] { cudaDeviceSynchronize(); }), 1u);
    setenv("DRELT_CHECK_LAUNCHES", "1", 1);
    EXPECT_EQ(waitsOf(launches), 2u);
    unsetenv("DRELT_CHECK_LAUNCHES");
}

TEST(Guard, ClosesDeviceMemoryOutsideLaunchesCopiesAndScopes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    cudaSetDevice(platform::kHostDevice);
    platform::guardHostDevice(true);
    EXPECT_FALSE(platform::hostReachesDevice());
    const std::vector<float> given(20000, 3.0f);
    std::vector<float> back(given.size());
    const std::size_t bytes = given.size() * sizeof(float);
    float *in = nullptr, *out = nullptr;
    ASSERT_EQ(cudaMalloc(&in, bytes), cudaSuccess);
    cudaMemcpy(in, given.data(), bytes, cudaMemcpyHostToDevice);
    ASSERT_EQ(cudaMalloc(&out, bytes), cudaSuccess);
    cudaMemcpy(back.data(), out, bytes, cudaMemcpyDeviceToHost);
    EXPECT_TRUE(std::isnan(back.back())) << "new memory holds no zeros";
    platform::hostLaunchRows<&squareKernel>({100, 200, 1}, static_cast<const float*>(in), out);
    cudaMemcpy(back.data(), out, bytes, cudaMemcpyDeviceToHost);
    EXPECT_EQ(back, std::vector<float>(given.size(), 9.0f));

    const auto touch = [&] { static_cast<volatile float*>(in)[7] = 1.0f; };
    EXPECT_DEATH(touch(), "");
    {
        const platform::HostAccess outer;
        { const platform::HostAccess inner; }
        touch();
        std::thread(touch).join();
        platform::hostLaunchRows<&squareKernel>({8, 1, 1}, static_cast<const float*>(in), out);
        EXPECT_EQ(out[7], 1.0f);
    }
    EXPECT_DEATH(touch(), "");
    platform::guardHostDevice(false);
    touch();
    EXPECT_EQ(cudaFree(in), cudaSuccess);
    EXPECT_EQ(cudaFree(out), cudaSuccess);
}

TEST(Check, PrintsPathNumberNameAndStatementThenExits) {
    EXPECT_EXIT(
        {
            platform::failNthCall(1, cudaErrorMemoryAllocation);
            platform::checkDeviceCall(cudaDeviceSynchronize(), "cudaDeviceSynchronize()",
                                      "/anywhere/src/cslbm/gpu_inc/gpu/mlStreamGpu.cpp", 12);
        },
        testing::ExitedWithCode(1),
        "CUDA error at cslbm/gpu_inc/gpu/mlStreamGpu:12 "
        "code=2\\(cudaErrorMemoryAllocation\\) \"cudaDeviceSynchronize\\(\\)\" \n");
    EXPECT_EXIT(platform::checkDeviceCall(static_cast<cudaError_t>(12345), "f()", "src/a/b.h", 7),
                testing::ExitedWithCode(1), "at a/b:7 code=12345\\(<unknown>\\) \"f\\(\\)\" \n");
}

TEST(Launch, VisitsEveryIndexOnceInRowOrder) {
    const int nx = 5, ny = 3, nz = 4;
    std::vector<int> out(nx * ny * nz, -2);
    platform::hostLaunchRows<&recordIndexKernel>({nx, ny, nz}, out.data(), nx, ny);
    for (int z = 0; z < nz; ++z) {
        for (int i = 0; i < nx * ny; ++i) EXPECT_EQ(out[z * nx * ny + i], z);
    }
}

TEST(Launch, FlushesDenormalsInsideOnly) {
    std::vector<float> in(64, 1e-20f), out(64, 1.0f);
    platform::hostLaunchRows<&squareKernel>({64, 1, 1}, static_cast<const float*>(in.data()),
                                            out.data());
    EXPECT_EQ(out[3], 0.0f);
    volatile float tiny = FLT_MIN;
    EXPECT_GT(tiny / 4.0f, 0.0f) << "the caller's floating-point state must be restored";
}

}  // namespace
}  // namespace drelt
