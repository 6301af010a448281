// The device side of a launch: one __global__ template that runs any operator. Included by the .cu
// files that instantiate operators, never by C++ sources.
#pragma once

#include <cuda_runtime.h>

#include "platform/launch.h"

namespace drelt {

template <auto Op, ThreadMapping Mapping, class... Args>
__global__ void runOperator(LaunchExtent extent, Args... args) {
    LaunchIndex at;
    if constexpr (Mapping == ThreadMapping::Flat) {
        const std::int64_t block =
            (static_cast<std::int64_t>(gridDim.y) * blockIdx.z + blockIdx.y) * gridDim.x +
            blockIdx.x;
        const std::int64_t threads =
            static_cast<std::int64_t>(blockDim.x) * blockDim.y * blockDim.z;
        at.n =
            threadIdx.x + blockDim.x * (threadIdx.y + blockDim.y * threadIdx.z) + threads * block;
        const std::int64_t plane = static_cast<std::int64_t>(extent.x) * extent.y;
        at.z = static_cast<int>(at.n / plane);
        at.y = static_cast<int>((at.n % plane) / extent.x);
        at.x = static_cast<int>((at.n % plane) % extent.x);
        if (at.n >= plane * extent.z) return;
    } else {
        at.x = threadIdx.x + blockDim.x * blockIdx.x;
        at.y = threadIdx.y + blockDim.y * blockIdx.y;
        at.z = threadIdx.z + blockDim.z * blockIdx.z;
        at.n = at.x + extent.x * (at.y + static_cast<std::int64_t>(extent.y) * at.z);
        if (at.x >= extent.x || at.y >= extent.y || at.z >= extent.z) return;
    }
    Op(at, args...);
}

template <auto Op, ThreadMapping Mapping, class... Args>
void deviceLaunch(LaunchShape shape, LaunchExtent extent, Args... args) {
    const dim3 grid(shape.gridX, shape.gridY, shape.gridZ);
    const dim3 block(shape.blockX, shape.blockY, shape.blockZ);
    runOperator<Op, Mapping><<<grid, block>>>(extent, args...);
}

// Instantiates the device launch of one operator, whatever its own arguments are.
template <auto Op, ThreadMapping Mapping, class Signature = decltype(Op)>
struct DeviceInstance;
template <auto Op, ThreadMapping Mapping, class... Args>
struct DeviceInstance<Op, Mapping, void (*)(LaunchIndex, Args...)> {
    static constexpr auto launch = &deviceLaunch<Op, Mapping, Args...>;
};

}  // namespace drelt

#define DRELT_INSTANTIATE_DEVICE(Op, Mapping) \
    template struct ::drelt::DeviceInstance<&Op, ::drelt::ThreadMapping::Mapping>
