// The GPU side of a launch: one __global__ template that runs any operator. Only the .cu files that
// instantiate operators include this header.
#pragma once

#include <cuda_runtime.h>

#include <type_traits>

#include "platform/launch.h"

namespace drelt {

// CUDA limits the blocks along y and z. deviceLaunch reshapes a grid that has more.
inline constexpr unsigned kMaxGridYZ = 65535;

// Decodes the flat thread number. An extent has at most 2^32 - 1 indices, because a 32-bit division is
// several times as fast as a 64-bit one.
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

// Takes the three thread axes as the index. Where deviceLaunch has cut the grid along y or z, a thread
// goes on in strides of the grid.
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

// The most threads per block that an operator is launched with. An operator that needs more registers
// than so many threads can have specialises this in its .cu file.
template <auto Op>
inline constexpr int kBlockThreadsOf = kMaxBlockThreads;

// The bound limits an operator to the registers that a block of that size can have. Without it, a large
// operator may get more from some compiler and then fail to launch.
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
            grid = dim3(grid.x * grid.y * grid.z);  // x has no such limit
        } else {
            grid.y = grid.y < kMaxGridYZ ? grid.y : kMaxGridYZ;
            grid.z = grid.z < kMaxGridYZ ? grid.z : kMaxGridYZ;
        }
    }
    runOperator<Op, Mapping><<<grid, block>>>(extent, args...);
}

// Instantiates the GPU launch of one operator for the types of its arguments. An argument that the
// operator takes by constant reference is passed to the GPU by value.
template <auto Op, ThreadMapping Mapping, class Signature = decltype(Op)>
struct DeviceInstance;
template <auto Op, ThreadMapping Mapping, class... Args>
struct DeviceInstance<Op, Mapping, void (*)(LaunchIndex, Args...)> {
    static constexpr auto launch = &deviceLaunch<Op, Mapping, std::decay_t<Args>...>;
};

}  // namespace drelt

#define DRELT_INSTANTIATE_DEVICE(Op, Mapping) \
    template struct ::drelt::DeviceInstance<&Op, ::drelt::ThreadMapping::Mapping>
