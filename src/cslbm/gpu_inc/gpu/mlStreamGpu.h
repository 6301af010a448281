// Streaming: post-collision populations move to their neighbours.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// Streams one direction at one node: copies the value of the source if the source lies in the grid.
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

// Pull streaming: f_i(n) = fPost_i(n - e_i) if the source n - e_i lies in the grid. Otherwise f keeps the value
// of the step before. All node classes are treated alike. Reads fPost, writes f. Run after the collision
// and the absorbing layer.
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

// Brings the nodes whose height y * dx + starty [m] is exactly 0 to rest: sets the class ML_NODE_DOWN, no
// velocity, and the equilibrium of the node's density in f and fPost. Does nothing unless `enable` is true.
// The float arguments are not used.
DRELT_KERNEL void mmlStreamChangeInletGpuKernel(LaunchIndex at, mlFlow* flow, float, float, float,
                                                float, bool enable, long nx, long ny, long nz) {
    if (!enable || at.y * flow->param->dx + flow->starty != 0.0f) return;
    const std::int64_t n = at.x + nx * (at.y + ny * at.z);
    const std::int64_t stride = nx * ny * nz;
    const float rho = flow->rou[n].value;
    flow->flag[n] = ML_NODE_DOWN;
    flow->ux[n] = 0.0f;
    flow->uy[n] = 0.0f;
    flow->uz[n] = 0.0f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        const std::int64_t entry = decltype(d)::index * stride + n;
        flow->f[entry] = flow->fPost[entry] = secondOrderEquilibrium(d, rho, 0.0f, 0.0f, 0.0f);
    });
}

// Launches mlCuStream3dOptKernel over the domain of a device record.
void mlCuStream3dOpt(mlFlow* flow, const MLFluidParam* param);

// Launches mmlStreamChangeInletGpuKernel over the domain of a device record.
void mmlStreamChangeInlet(mlFlow* flow, const MLFluidParam* param, bool enable);

}  // namespace drelt
