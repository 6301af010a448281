#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

#include <algorithm>
#include <climits>

#include "platform/check.h"

namespace drelt {
namespace {

// Samples of one z index of the launch, and its extent.
constexpr int kPlaneX = 20;
constexpr int kPlaneY = 20;

int planes(int sampleCount) { return (sampleCount + kPlaneX * kPlaneY - 1) / (kPlaneX * kPlaneY); }

mlVelocity3D<float> referenceVelocity(const mlUnitScale& scale) {
    return {scale.u0px, scale.u0py, scale.u0pz};
}

// Blocks of 4 x 4 x 4 threads on a GPU; nothing without one.
template <auto Op, class... Args>
void launchOnDevice([[maybe_unused]] int sampleCount, [[maybe_unused]] Args... args) {
#if defined(DRELT_CUDA)
    const LaunchExtent extent{kPlaneX, kPlaneY, planes(sampleCount)};
    deviceLaunch<Op, ThreadMapping::Axes>(coveringShape(extent, 4, 4, 4), extent, args...);
#endif
}

template <auto Op, class... Args>
void launchSamples(int sampleCount, Args... args) {
    if (platform::onHostDevice()) {
        platform::hostLaunchLinear<Op>(sampleCount, args...);
    } else {
        launchOnDevice<Op>(sampleCount, args...);
    }
}

// Forms the stencils of all samples; returns a box that holds all nodes they reach.
NodeBox formStencils(const mlFlow* flow, const MLFluidParam* param,
                     const mlLagrangeBoundary* boundary, int sampleCount, const mlUnitScale& scale,
                     int R, SpreadStencil* stencils, NodeBox* boxes) {
    const mlVelocity3D<float> u0p = referenceVelocity(scale);
    int x0 = INT_MAX, y0 = INT_MAX, z0 = INT_MAX, x1 = 0, y1 = 0, z1 = 0;
#pragma omp parallel
    {
        FlushDenormals flush;
#pragma omp for schedule(static) reduction(min : x0, y0, z0) reduction(max : x1, y1, z1)
        for (int i = 0; i < sampleCount; ++i) {
            spreadStencil(stencils[i], boundary, flow, i, scale.N, scale.l0p, scale.rou0p,
                          scale.u0k, u0p, R, param->samples_x, param->samples_y, param->samples_z);
            const NodeBox box = stencils[i].box();
            boxes[i] = box;
            if (box.empty()) continue;
            x0 = box.x0 < x0 ? box.x0 : x0;
            y0 = box.y0 < y0 ? box.y0 : y0;
            z0 = box.z0 < z0 ? box.z0 : z0;
            x1 = box.x1 > x1 ? box.x1 : x1;
            y1 = box.y1 > y1 ? box.y1 : y1;
            z1 = box.z1 > z1 ? box.z1 : z1;
        }
    }
    return {x0, y0, z0, x1, y1, z1};
}

// Nodes of a block of a row, and of two blocks.
constexpr int kBlock = 4;
constexpr int kBlocks = 2 * kBlock;

// Adds one component of a stencil's force to the nodes of a box, whose rows begin with block `start` and
// have the weights wx, zero outside the box. Where the rows of samples overlap, they overlap in
// whole blocks: no load has to wait for parts of two stores.
void addBlocks(const SpreadStencil& stencil, const NodeBox& box, int start,
               const float (&wx)[kBlocks], double* forces, double force, std::int64_t nx,
               std::int64_t ny) {
    const int first = box.x0 - start;
    const int last = box.x1 - start;
    for (int k = box.z0; k < box.z1; ++k) {
        const float wz = stencil.z.weight[k - stencil.z.first];
        for (int j = box.y0; j < box.y1; ++j) {
            const float wy = stencil.y.weight[j - stencil.y.first];
            double* const row = forces + (k * ny + j) * nx + start;
#pragma omp simd
            for (int i = 0; i < kBlocks; ++i) {
                const double term = static_cast<double>(wx[i] * wy * wz) * force;
                row[i] += i >= first && i < last ? term : 0.0;
            }
        }
    }
}

// Adds a stencil's force to the nodes of a tile.
void addToTile(const SpreadStencil& stencil, const NodeBox& tile, const mlFlow* flow,
               std::int64_t nx, std::int64_t ny) {
    const NodeBox box = intersection(stencil.box(), tile);
    const int start = box.x0 / kBlock * kBlock;
    if (box.x1 > start + kBlocks || start < tile.x0 || start + kBlocks > tile.x1) {
        addStencil(stencil, tile, flow, nx, ny, PlainAdd{});
        return;
    }
    float wx[kBlocks] = {};
    for (int i = box.x0; i < box.x1; ++i) wx[i - start] = stencil.x.weight[i - stencil.x.first];
    addBlocks(stencil, box, start, wx, flow->forcex, stencil.forcex, nx, ny);
    addBlocks(stencil, box, start, wx, flow->forcey, stencil.forcey, nx, ny);
    addBlocks(stencil, box, start, wx, flow->forcez, stencil.forcez, nx, ny);
}

// Stencils in parallel over samples, then sums in parallel over tiles: each tile takes its samples
// in their order and adds to its own nodes only, so every node's sum has one order.
void spreadOnHostThreads(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                         int sampleCount, const mlUnitScale& scale, int R,
                         SpreadWorkspace& workspace) {
    const platform::HostAccess access;
    workspace.reserve(sampleCount);
    const SpreadStencil* const stencils = workspace.stencils();
    const NodeBox reach = formStencils(flow, param, boundary, sampleCount, scale, R,
                                       workspace.stencils(), workspace.boxes());
    if (reach.empty()) return;
    const int rowEnd = (reach.x1 + kBlock - 1) / kBlock * kBlock;
    workspace.sortByTile({reach.x0 / kBlock * kBlock, reach.y0, reach.z0,
                          std::min(rowEnd, param->samples_x), reach.y1, reach.z1},
                         sampleCount);
    const int* const samples = workspace.samples();
    const int tileCount = workspace.tileCount();
#pragma omp parallel
    {
        FlushDenormals flush;
#pragma omp for schedule(dynamic)
        for (int t = 0; t < tileCount; ++t) {
            const NodeBox tile = workspace.tile(t);
            const int end = workspace.end(t);
            for (int s = workspace.begin(t); s < end; ++s) {
                addToTile(stencils[samples[s]], tile, flow, param->samples_x, param->samples_y);
            }
        }
    }
}

}  // namespace

void mlInterpolateFluidForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                             int sampleCount, const mlUnitScale& scale, int R) {
    if (sampleCount <= 0) return;
    launchSamples<&mlInterpolateFluidForceKernel>(
        sampleCount, boundary, flow, static_cast<double>(param->slip_ratio), scale.N, scale.l0p,
        scale.rou0p, scale.u0k, referenceVelocity(scale), R, long{kPlaneX}, long{kPlaneY},
        long{planes(sampleCount)}, long{param->samples_x}, long{param->samples_y},
        long{param->samples_z});
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlSpreadForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                   int sampleCount, const mlUnitScale& scale, int R, SpreadWorkspace& workspace) {
    if (sampleCount <= 0) return;
    if (platform::onHostDevice()) {
        spreadOnHostThreads(flow, param, boundary, sampleCount, scale, R, workspace);
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
