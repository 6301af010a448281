// The device side of a launch: one __global__ template that runs any operator. Included by the .cu
// files that instantiate operators, never by C++ sources.
#pragma once

#include <cuda_runtime.h>

#include <type_traits>

#include "platform/launch.h"

namespace drelt {

// Blocks along y and z are limited; a launch that states more is folded.
inline constexpr unsigned kMaxGridYZ = 65535;

// The flat thread number decoded. An extent has at most 2^32 - 1 indices: 32-bit division is several times
// as quick as that of 64 bits.
template <auto Op, class... Args>
__device__ __forceinline__ void runFlat(LaunchExtent extent, const Args&... args) {
    const std::int64_t block =
        (static_cast<std::int64_t>(gridDim.y) * blockIdx.z + blockIdx.y) * gridDim.x + blockIdx.x;
    const std::int64_t threads = static_cast<std::int64_t>(blockDim.x) * blockDim.y * blockDim.z;
    LaunchIndex at;
    at.n = threadIdx.x + blockDim.x * (threadIdx.y + blockDim.y * threadIdx.z) + threads * block;
    if (at.n >= static_cast<std::int64_t>(extent.x) * extent.y * extent.z) return;
    const auto n = static_cast<std::uint32_t>(at.n);
    const std::uint32_t row = n / static_cast<std::uint32_t>(extent.x);
    at.x = static_cast<int>(n - row * static_cast<std::uint32_t>(extent.x));
    at.z = static_cast<int>(row / static_cast<std::uint32_t>(extent.y));
    at.y = static_cast<int>(row) - at.z * extent.y;
    Op(at, args...);
}

// The three thread axes; y and z go on in strides of the grid where that was folded.
template <auto Op, class... Args>
__device__ __forceinline__ void runAxes(LaunchExtent extent, const Args&... args) {
    LaunchIndex at;
    at.x = threadIdx.x + blockDim.x * blockIdx.x;
    if (at.x >= extent.x) return;
    for (at.z = threadIdx.z + blockDim.z * blockIdx.z; at.z < extent.z;
         at.z += blockDim.z * gridDim.z) {
        for (at.y = threadIdx.y + blockDim.y * blockIdx.y; at.y < extent.y;
             at.y += blockDim.y * gridDim.y) {
            at.n = at.x + extent.x * (at.y + static_cast<std::int64_t>(extent.y) * at.z);
            Op(at, args...);
        }
    }
}

// Threads of a block that an operator may be launched with. An operator that needs more registers than
// that many threads can have says in its .cu file that its launcher states fewer.
template <auto Op>
inline constexpr int kBlockThreadsOf = kMaxBlockThreads;

// The bound holds an operator to as few registers as a block of that size can have: without it the
// largest ones may fail to launch where another compiler gives them more.
template <auto Op, ThreadMapping Mapping, class... Args>
__global__ void __launch_bounds__(kBlockThreadsOf<Op>)
    runOperator(LaunchExtent extent, Args... args) {
    if constexpr (Mapping == ThreadMapping::Flat) {
        runFlat<Op>(extent, args...);
    } else {
        runAxes<Op>(extent, args...);
    }
}

template <auto Op, ThreadMapping Mapping, class... Args>
void deviceLaunch(LaunchShape shape, LaunchExtent extent, Args... args) {
    const dim3 block(shape.blockX, shape.blockY, shape.blockZ);
    dim3 grid(shape.gridX, shape.gridY, shape.gridZ);
    if (grid.y > kMaxGridYZ || grid.z > kMaxGridYZ) {
        if constexpr (Mapping == ThreadMapping::Flat) {
            grid = dim3(grid.x * grid.y * grid.z);  // blocks along x are as many as needed
        } else {
            grid.y = grid.y < kMaxGridYZ ? grid.y : kMaxGridYZ;
            grid.z = grid.z < kMaxGridYZ ? grid.z : kMaxGridYZ;
        }
    }
    runOperator<Op, Mapping><<<grid, block>>>(extent, args...);
}

// Instantiates the device launch of one operator, whatever its own arguments are. What an operator takes
// by constant reference travels by value.
template <auto Op, ThreadMapping Mapping, class Signature = decltype(Op)>
struct DeviceInstance;
template <auto Op, ThreadMapping Mapping, class... Args>
struct DeviceInstance<Op, Mapping, void (*)(LaunchIndex, Args...)> {
    static constexpr auto launch = &deviceLaunch<Op, Mapping, std::decay_t<Args>...>;
};

}  // namespace drelt

#define DRELT_INSTANTIATE_DEVICE(Op, Mapping) \
    template struct ::drelt::DeviceInstance<&Op, ::drelt::ThreadMapping::Mapping>
