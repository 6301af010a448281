// One source for every device operator. An operator is a free function for ONE node, sample, vertex
// or link, marked DRELT_KERNEL, with its LaunchIndex first and then its own arguments:
//
//     DRELT_KERNEL void mlSomethingKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz, int count);
//
// A launcher runs it over an extent through one of the launch functions below: on the selected
// device's threads, host or CUDA. A launch calls the operator for indices inside the extent only, so
// an operator needs no guard against surplus threads. After each launch the launcher checks
// cudaGetLastError() and cudaDeviceSynchronize().
//
// On the host, rows of x run in parallel and the indices of a row run vectorised, so an operator
// must not depend on other invocations of the same launch. Denormals are flushed to zero inside
// a launch; the caller's floating-point state is restored after it.
//
// With DRELT_CUDA a launch on a GPU calls deviceLaunch<Op>, which nvcc instantiates in the operator's
// .cu file with DRELT_INSTANTIATE_DEVICE (see launch_cuda.cuh).
#pragma once

#include <cstdint>

#include "platform/runtime.h"

#if defined(__CUDACC__)
#define DRELT_HOST_DEVICE __host__ __device__ __forceinline__
#else
#define DRELT_HOST_DEVICE inline __attribute__((always_inline))
#endif
#define DRELT_KERNEL DRELT_HOST_DEVICE
// Marks the host's form of an operator for a row of indices, see launchVolumeByRows.
#define DRELT_HOST_ROW inline __attribute__((always_inline))
// Behind a lambda's parameters: lambdas in operators must be inlined too, or nothing vectorises.
#define DRELT_LAMBDA_INLINE __attribute__((always_inline))

namespace drelt {

// Where one invocation stands: coordinates in the extent (node coordinates for volume launches) and
// the flat index x + extent.x * (y + extent.y * z).
struct LaunchIndex {
    int x, y, z;
    std::int64_t n;
};

// Numbers of indices along each axis; 32-bit each, products in 64 bits.
struct LaunchExtent {
    int x, y, z;
};

// Threads of a block and blocks of a grid, as the launchers state them for a CUDA device. A block has at
// most kMaxBlockThreads.
struct LaunchShape {
    unsigned blockX, blockY, blockZ;
    unsigned gridX, gridY, gridZ;
};

inline constexpr int kMaxBlockThreads = 512;

// How a device thread finds its index: the flat thread number decoded with the extent, or the three
// thread axes as they are.
enum class ThreadMapping { Flat, Axes };

// Shape with enough blocks of the given size to cover an extent axis by axis.
inline LaunchShape coveringShape(LaunchExtent extent, unsigned blockX, unsigned blockY,
                                 unsigned blockZ) {
    const auto blocks = [](int n, unsigned block) {
        return (static_cast<unsigned>(n) + block - 1) / block;
    };
    return {blockX,
            blockY,
            blockZ,
            blocks(extent.x, blockX),
            blocks(extent.y, blockY),
            blocks(extent.z, blockZ)};
}

// Calls body(index) for `length` indices of a row from the first on, vectorised; mark the body
// DRELT_LAMBDA_INLINE.
template <class Body>
DRELT_HOST_DEVICE void forEachInRow(LaunchIndex first, int length, Body&& body) {
#pragma omp simd
    for (int i = 0; i < length; ++i) {
        body(LaunchIndex{first.x + i, first.y, first.z, first.n + i});
    }
}

// Flushes denormals to zero for the scope, on the calling thread.
class FlushDenormals {
public:
    FlushDenormals();
    ~FlushDenormals();
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;

private:
    unsigned saved_;
};

#if defined(DRELT_CUDA)
template <auto Op, ThreadMapping Mapping, class... Args>
void deviceLaunch(LaunchShape shape, LaunchExtent extent, Args... args);
#endif

namespace platform {

// Below this many indices a launch costs less than waking the threads for it.
inline constexpr std::int64_t kWorthThreads = 2048;
// The same for operators with loops of their own.
inline constexpr std::int64_t kWorthThreadsEach = 256;

template <auto Op, class... Args>
void hostLaunchRows(LaunchExtent extent, Args... args) {
    const HostAccess access;
    const std::int64_t rows = static_cast<std::int64_t>(extent.y) * extent.z;
    const int nx = extent.x;
    const int ny = extent.y;
#pragma omp parallel if (rows * extent.x >= kWorthThreads)
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (std::int64_t row = 0; row < rows; ++row) {
            const int z = static_cast<int>(row / ny);
            const int y = static_cast<int>(row % ny);
            const std::int64_t start = row * nx;
#pragma omp simd
            for (int x = 0; x < nx; ++x) Op(LaunchIndex{x, y, z, start + x}, args...);
        }
    }
}

template <auto RowOp, class... Args>
void hostLaunchByRows(LaunchExtent extent, Args... args) {
    const HostAccess access;
    const std::int64_t rows = static_cast<std::int64_t>(extent.y) * extent.z;
#pragma omp parallel if (rows * extent.x >= kWorthThreads)
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (std::int64_t row = 0; row < rows; ++row) {
            const int z = static_cast<int>(row / extent.y);
            const int y = static_cast<int>(row % extent.y);
            RowOp(LaunchIndex{0, y, z, row * extent.x}, extent.x, args...);
        }
    }
}

template <auto Op, class... Args>
void hostLaunchLinear(std::int64_t count, Args... args) {
    const HostAccess access;
#pragma omp parallel if (count >= kWorthThreadsEach)
    {
        FlushDenormals flush;
#pragma omp for schedule(static)
        for (std::int64_t i = 0; i < count; ++i) {
            Op(LaunchIndex{static_cast<int>(i), 0, 0, i}, args...);
        }
    }
}

// Runs an operator on the selected GPU; false where the selected device is the host's threads.
template <auto Op, ThreadMapping Mapping, class... Args>
bool launchedOnGpu([[maybe_unused]] LaunchShape shape, [[maybe_unused]] LaunchExtent extent,
                   [[maybe_unused]] Args... args) {
#if defined(DRELT_CUDA)
    if (!onHostDevice()) {
        deviceLaunch<Op, Mapping>(shape, extent, args...);
        return true;
    }
#endif
    return false;
}

}  // namespace platform

// One invocation a node of a grid: the device's flat thread number is the node index.
template <auto Op, class... Args>
void launchVolume(LaunchShape shape, LaunchExtent nodes, Args... args) {
    if (platform::launchedOnGpu<Op, ThreadMapping::Flat>(shape, nodes, args...)) return;
    platform::hostLaunchRows<Op>(nodes, args...);
}

// The same for operators that treat each population of a node alone. On the host,
// RowOp(first, length, args...) does a whole row of x from its first index on: direction outside and
// x inside, so that memory is walked in long runs. It is built from the functions that Op is built of.
template <auto Op, auto RowOp, class... Args>
void launchVolumeByRows(LaunchShape shape, LaunchExtent nodes, Args... args) {
    if (platform::launchedOnGpu<Op, ThreadMapping::Flat>(shape, nodes, args...)) return;
    platform::hostLaunchByRows<RowOp>(nodes, args...);
}

// One invocation an index of a three-dimensional range, on a device from the three thread axes.
template <auto Op, class... Args>
void launchRange(LaunchShape shape, LaunchExtent range, Args... args) {
    if (platform::launchedOnGpu<Op, ThreadMapping::Axes>(shape, range, args...)) return;
    platform::hostLaunchRows<Op>(range, args...);
}

// The same with the host's form of the operator for a row, as for launchVolumeByRows.
template <auto Op, auto RowOp, class... Args>
void launchRangeByRows(LaunchShape shape, LaunchExtent range, Args... args) {
    if (platform::launchedOnGpu<Op, ThreadMapping::Axes>(shape, range, args...)) return;
    platform::hostLaunchByRows<RowOp>(range, args...);
}

// One invocation an item of a list, not vectorised: for operators with loops of their own.
template <auto Op, class... Args>
void launchLinear(LaunchShape shape, int count, Args... args) {
    const LaunchExtent items{count, 1, 1};
    if (platform::launchedOnGpu<Op, ThreadMapping::Flat>(shape, items, args...)) return;
    platform::hostLaunchLinear<Op>(count, args...);
}

}  // namespace drelt
