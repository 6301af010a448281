// Streaming: post-collision populations move to their neighbours.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

// Pull streaming: f_i(n) = fPost_i(n - e_i), where the source lies in the grid. Where it does not,
// f keeps its value: the population that came in at the step before. No node class is tested.
// Reads fPost, writes f; run after collision and absorbing layer.
DRELT_KERNEL void mlCuStream3dOptKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz,
                                        int count) {
    const std::int64_t stride = count;
    const float* const fPost = flow->fPost;
    float* const f = flow->f;
    forEachDirection([&](auto direction) DRELT_LAMBDA_INLINE {
        using D = decltype(direction);
        const int sx = at.x - D::x;
        const int sy = at.y - D::y;
        const int sz = at.z - D::z;
        if (sx > -1 && sx < nx && sy > -1 && sy < ny && sz > -1 && sz < nz) {
            const std::int64_t shift = D::x + nx * (D::y + static_cast<std::int64_t>(ny) * D::z);
            f[D::index * stride + at.n] = fPost[D::index * stride + at.n - shift];
        }
    });
}

// Launches mlCuStream3dOptKernel over the domain of a device record.
void mlCuStream3dOpt(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
