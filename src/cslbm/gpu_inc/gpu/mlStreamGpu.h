// Streaming: post-collision populations move to their neighbours.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// One direction of the streaming at one node: the source's value, where the source lies in the grid.
template <class D>
DRELT_HOST_DEVICE void pullPopulation(D, const LaunchIndex& at, const float* fPost, float* f,
                                      int nx, int ny, int nz, int count) {
    const int sx = at.x - D::x;
    const int sy = at.y - D::y;
    const int sz = at.z - D::z;
    if (sx > -1 && sx < nx && sy > -1 && sy < ny && sz > -1 && sz < nz) {
        const std::int64_t to = D::index * static_cast<std::int64_t>(count) + at.n;
        const std::int64_t shift = D::x + nx * (D::y + static_cast<std::int64_t>(ny) * D::z);
        f[to] = fPost[to - shift];
    }
}

}  // namespace detail

// Pull streaming: f_i(n) = fPost_i(n - e_i), where the source lies in the grid. Where it does not,
// f keeps its value: the population that came in at the step before. No node class is tested.
// Reads fPost, writes f; run after collision and absorbing layer.
DRELT_KERNEL void mlCuStream3dOptKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz,
                                        int count) {
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        detail::pullPopulation(d, at, flow->fPost, flow->f, nx, ny, nz, count);
    });
}

// The same for a row of nodes on the host.
DRELT_HOST_ROW void streamRow(LaunchIndex first, int length, mlFlow* flow, int nx, int ny, int nz,
                              int count) {
    const float* const fPost = flow->fPost;
    float* const f = flow->f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        forEachInRow(first, length, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
            detail::pullPopulation(d, at, fPost, f, nx, ny, nz, count);
        });
    });
}

// Launches mlCuStream3dOptKernel over the domain of a device record.
void mlCuStream3dOpt(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
