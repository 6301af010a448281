// Launches of device operators. Host and GPU run the same source. An operator is a free function for ONE
// node, sample, vertex or link. It is marked DRELT_KERNEL and takes its LaunchIndex first, then its own
// arguments:
//
//     DRELT_KERNEL void mlSomethingKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz, int count);
//
// A launcher runs it over an extent with one of the launch functions below, on the threads of the selected
// device. The launch functions call the operator only for indices inside the extent, so it needs no guard.
// After each launch the launcher checks cudaGetLastError() and cudaDeviceSynchronize().
//
// On the host, the rows of x run in parallel and the indices of a row run vectorised. An operator must not
// depend on other invocations of the same launch. Inside a launch denormals are flushed to zero; afterwards
// the caller's floating-point state is restored.
//
// In a CUDA build, nvcc instantiates deviceLaunch<Op> in the operator's .cu file with
// DRELT_INSTANTIATE_DEVICE (launch_cuda.cuh).
#pragma once

#include <cstdint>

#include "platform/runtime.h"

#if defined(__CUDACC__)
#define DRELT_HOST_DEVICE __host__ __device__ __forceinline__
#else
#define DRELT_HOST_DEVICE inline __attribute__((always_inline))
#endif
#define DRELT_KERNEL DRELT_HOST_DEVICE
// Marks the host's form of an operator for a row of indices; see launchVolumeByRows.
#define DRELT_HOST_ROW inline __attribute__((always_inline))
// Stands behind a lambda's parameters. Lambdas in operators must be inlined, or nothing vectorises.
#define DRELT_LAMBDA_INLINE __attribute__((always_inline))

namespace drelt {

// The index of one invocation: coordinates in the extent (node coordinates in a launch over nodes) and the
// flat index n = x + extent.x * (y + extent.y * z).
struct LaunchIndex {
    int x, y, z;
    std::int64_t n;
};

// Number of indices along each axis. Products of them are formed in 64 bits.
struct LaunchExtent {
    int x, y, z;
};

// Threads of a block and blocks of a grid on a GPU. A block has at most kMaxBlockThreads threads.
struct LaunchShape {
    unsigned blockX, blockY, blockZ;
    unsigned gridX, gridY, gridZ;
};

inline constexpr int kMaxBlockThreads = 512;

// How a GPU thread finds its index. Flat: decodes its flat thread number with the extent. Axes: takes its
// three thread axes.
enum class ThreadMapping { Flat, Axes };

// The shape with enough blocks of the given size to cover an extent along each axis.
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

// The shape for a list of `count` items: count / block + 1 blocks.
inline LaunchShape listShape(int count, unsigned block) {
    return {block, 1, 1, static_cast<unsigned>(count) / block + 1, 1, 1};
}

// Calls body(index) for `length` indices of a row, starting with the first one, vectorised. Mark the body
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

// Runs an operator on the selected GPU. Only a CUDA build defines it, in launch_cuda.cuh.
template <auto Op, ThreadMapping Mapping, class... Args>
void deviceLaunch(LaunchShape shape, LaunchExtent extent, Args... args);

namespace platform {

#if defined(DRELT_CUDA)
inline constexpr bool kWithCuda = true;
#else
inline constexpr bool kWithCuda = false;
#endif

// Calls onGpu() if a GPU is selected and onHost() if the host's threads are. Whatever has a form for each
// of them chooses here. A build without CUDA compiles onGpu but never calls it, so it may name functions
// that only a CUDA build defines.
template <class OnGpu, class OnHost>
void onSelectedDevice([[maybe_unused]] OnGpu&& onGpu, OnHost&& onHost) {
    if constexpr (kWithCuda) {
        if (!onHostDevice()) {
            onGpu();
            return;
        }
    }
    onHost();
}

// With fewer indices than this, a launch costs less than waking the threads.
inline constexpr std::int64_t kWorthThreads = 2048;
// The same for operators that contain loops.
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

}  // namespace platform

// Launches one invocation per node of a grid. On a GPU the flat thread number is the node index.
template <auto Op, class... Args>
void launchVolume(LaunchShape shape, LaunchExtent nodes, Args... args) {
    platform::onSelectedDevice(
        [&] { deviceLaunch<Op, ThreadMapping::Flat>(shape, nodes, args...); },
        [&] { platform::hostLaunchRows<Op>(nodes, args...); });
}

// The same for operators that treat each population of a node separately. On the host,
// RowOp(first, length, args...) treats a whole row of x: it loops over directions outside and over x
// inside, so that it walks through memory in long runs. Op and RowOp are built from the same functions.
template <auto Op, auto RowOp, class... Args>
void launchVolumeByRows(LaunchShape shape, LaunchExtent nodes, Args... args) {
    platform::onSelectedDevice(
        [&] { deviceLaunch<Op, ThreadMapping::Flat>(shape, nodes, args...); },
        [&] { platform::hostLaunchByRows<RowOp>(nodes, args...); });
}

// Launches one invocation per index of a three-dimensional range. On a GPU the thread axes are the index.
template <auto Op, class... Args>
void launchRange(LaunchShape shape, LaunchExtent range, Args... args) {
    platform::onSelectedDevice(
        [&] { deviceLaunch<Op, ThreadMapping::Axes>(shape, range, args...); },
        [&] { platform::hostLaunchRows<Op>(range, args...); });
}

// The same with the host's form for a row, as in launchVolumeByRows.
template <auto Op, auto RowOp, class... Args>
void launchRangeByRows(LaunchShape shape, LaunchExtent range, Args... args) {
    platform::onSelectedDevice(
        [&] { deviceLaunch<Op, ThreadMapping::Axes>(shape, range, args...); },
        [&] { platform::hostLaunchByRows<RowOp>(range, args...); });
}

// Launches one invocation per item of a list, not vectorised. For operators that contain loops.
template <auto Op, class... Args>
void launchLinear(LaunchShape shape, int count, Args... args) {
    platform::onSelectedDevice(
        [&] {
            deviceLaunch<Op, ThreadMapping::Flat>(shape, LaunchExtent{count, 1, 1}, args...);
        },
        [&] { platform::hostLaunchLinear<Op>(count, args...); });
}

}  // namespace drelt
