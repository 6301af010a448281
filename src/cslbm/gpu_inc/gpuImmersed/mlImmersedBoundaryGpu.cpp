#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"
#include "platform/check.h"

namespace drelt {
namespace {

// A z index of the launch stands for a slice of 20 x 20 samples.
constexpr int kSliceX = 20;
constexpr int kSliceY = 20;

int slices(int sampleCount) { return (sampleCount + kSliceX * kSliceY - 1) / (kSliceX * kSliceY); }

// Launches an operator on the GPU, with blocks of 4 x 4 x 4 threads. Its last arguments are the extent of the
// slices and the sizes of the grid.
template <auto Op, class... Args>
void launchSlices(int sampleCount, const MLFluidParam* param, Args... args) {
    const LaunchExtent extent{kSliceX, kSliceY, slices(sampleCount)};
    deviceLaunch<Op, ThreadMapping::Axes>(
        coveringShape(extent, 4, 4, 4), extent, args..., long{extent.x}, long{extent.y},
        long{extent.z}, long{param->samples_x}, long{param->samples_y}, long{param->samples_z});
}

}  // namespace

void mlInterpolateFluidForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                             int sampleCount, const mlUnitScale& scale, int R) {
    if (sampleCount <= 0) return;
    const auto slip = static_cast<double>(param->slip_ratio);
    platform::onSelectedDevice(
        [&] {
            launchSlices<&mlInterpolateFluidForceKernel>(sampleCount, param, boundary, flow, slip,
                                                         scale.N, scale.l0p, scale.rou0p, scale.u0k,
                                                         referenceVelocity(scale), R);
        },
        [&] {
            interpolateOnHostThreads(sampleArguments(boundary, flow, param, sampleCount, scale, R),
                                     slip);
        });
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlSpreadForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                   int sampleCount, const mlUnitScale& scale, int R, SpreadWorkspace& workspace) {
    if (sampleCount <= 0) return;
    platform::onSelectedDevice(
        [&] {
            launchSlices<&mlSpreadForceKernel>(sampleCount, param, boundary, flow, scale.N,
                                               scale.l0p, scale.rou0p, scale.u0k,
                                               referenceVelocity(scale), R);
        },
        [&] {
            spreadOnHostThreads(sampleArguments(boundary, flow, param, sampleCount, scale, R),
                                workspace);
        });
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
