#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"
#include "platform/check.h"

namespace drelt {
namespace {

// Samples of one z index of the launch, and its extent.
constexpr int kPlaneX = 20;
constexpr int kPlaneY = 20;

int planes(int sampleCount) { return (sampleCount + kPlaneX * kPlaneY - 1) / (kPlaneX * kPlaneY); }

// Blocks of 4 x 4 x 4 threads on a GPU; nothing without one.
template <auto Op, class... Args>
void launchOnDevice([[maybe_unused]] int sampleCount, [[maybe_unused]] Args... args) {
#if defined(DRELT_CUDA)
    const LaunchExtent extent{kPlaneX, kPlaneY, planes(sampleCount)};
    deviceLaunch<Op, ThreadMapping::Axes>(coveringShape(extent, 4, 4, 4), extent, args...);
#endif
}

}  // namespace

void mlInterpolateFluidForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                             int sampleCount, const mlUnitScale& scale, int R) {
    if (sampleCount <= 0) return;
    const auto slip = static_cast<double>(param->slip_ratio);
    if (platform::onHostDevice()) {
        gatherOnHostThreads(sampleArguments(boundary, flow, param, sampleCount, scale, R), slip);
    } else {
        launchOnDevice<&mlInterpolateFluidForceKernel>(
            sampleCount, boundary, flow, slip, scale.N, scale.l0p, scale.rou0p, scale.u0k,
            referenceVelocity(scale), R, long{kPlaneX}, long{kPlaneY}, long{planes(sampleCount)},
            long{param->samples_x}, long{param->samples_y}, long{param->samples_z});
    }
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlSpreadForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                   int sampleCount, const mlUnitScale& scale, int R, SpreadWorkspace& workspace) {
    if (sampleCount <= 0) return;
    if (platform::onHostDevice()) {
        spreadOnHostThreads(sampleArguments(boundary, flow, param, sampleCount, scale, R),
                            workspace);
    } else {
        launchOnDevice<&mlSpreadForceKernel>(
            sampleCount, boundary, flow, scale.N, scale.l0p, scale.rou0p, scale.u0k,
            referenceVelocity(scale), R, long{kPlaneX}, long{kPlaneY}, long{planes(sampleCount)},
            long{param->samples_x}, long{param->samples_y}, long{param->samples_z});
    }
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
