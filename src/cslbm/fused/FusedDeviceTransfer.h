// Kernels that move data between a device domain's arrays and the operators' records, and kernels that run
// seldom or for few nodes. They have one invocation per node unless a comment says otherwise.
#pragma once

#include "cslbm/fused/FusedDeviceNode.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

namespace drelt {
namespace fused_device {

// Sets a fluid at rest with density 1, in this step and the last one.
DRELT_KERNEL void startKernel(LaunchIndex at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    float* const own = placesOf(s, at.x, at.y, at.z);
    forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
        using E = TowardOf<decltype(e)>;
        own[s.place[E::code]] = E::weight;
    });
    d.now.rho[at.n] = 1.0f;
    if (d.before.rho != nullptr) d.before.rho[at.n] = 1.0f;
    for (int a = 0; a < 3; ++a) {
        d.now.momentum[a][at.n] = 0.0f;
        if (d.before.rho != nullptr) d.before.momentum[a][at.n] = 0.0f;
        s.force[a][at.n] = 0.0;
    }
    s.sopt[at.n] = 0.0f;
    constexpr int wordNodes = 32 * kChunkNodes;
    if (at.x % wordNodes == 0) marksOf(s, at.y, at.z)[at.x / wordNodes] = 0;
}

// Sets the streamed populations of a fluid with the given densities and one velocity.
DRELT_KERNEL void uniformKernel(LaunchIndex at, const FusedDeviceState& d, const float* rho,
                                Vector3<float> velocity) {
    float* const own = placesOf(d.base, at.x, at.y, at.z);
    forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
        using E = TowardOf<decltype(e)>;
        own[d.base.place[E::code]] = uniformPopulation(E{}, rho[at.n], velocity);
    });
}

// Store the streamed populations of one direction from a dense array, and fetch them into one. The fetch
// applies the open planes.
DRELT_KERNEL void storeKernel(LaunchIndex at, const FusedDeviceState& d, int code,
                              const float* from) {
    placesOf(d.base, at.x, at.y, at.z)[d.base.place[code]] = from[at.n];
}
DRELT_KERNEL void fetchKernel(LaunchIndex at, const FusedDeviceState& d, int code, float* to) {
    const FusedState& s = d.base;
    SourceNode from{at.x, at.y, at.z, false};
    if (s.planesPending) from = sourceOf(s, at);
    if (from.other && hasCharacteristicPlanes(s)) {
        const auto f = openPopulationsOf(s, at, from);
        forEachDirection([&](auto e) DRELT_LAMBDA_INLINE {
            using E = TowardOf<decltype(e)>;
            if (E::code == code) to[at.n] = f(E{});
        });
        return;
    }
    to[at.n] = placesOf(s, from.x, from.y, from.z)[s.place[code]];
}
// Fetches the post-collision populations of one direction. Each is in the place where the neighbour in that
// direction looks for it; neighbours outside the grid have such places too.
DRELT_KERNEL void fetchPostKernel(LaunchIndex at, const FusedDeviceState& d, int code, float* to) {
    const FusedState& s = d.base;
    to[at.n] =
        placesOf(s, at.x + codeX(code), at.y + codeY(code), at.z + codeZ(code))[s.place[code]];
}

DRELT_KERNEL void clearKernel(LaunchIndex at, float* x, float* y, float* z) {
    x[at.n] = y[at.n] = z[at.n] = 0.0f;
}

// Turns the velocity that the frame forcing leaves back into momentum.
DRELT_KERNEL void momentumKernel(LaunchIndex at, const DeviceMoments& m) {
    for (int a = 0; a < 3; ++a) m.momentum[a][at.n] *= m.rho[at.n];
}

// Marks the nodes of a box in the grid as under a spread force. One invocation per row of the box: at.x
// counts along y, at.y along z.
DRELT_KERNEL void markBoxKernel(LaunchIndex at, const FusedDeviceState& d, NodeBox box) {
    markRow(d.base, box.x0, box.x1, box.y0 + at.x, box.z0 + at.y);
}

// Marks the nodes that a sample can spread to with a delta function of four points. One invocation per
// sample.
DRELT_KERNEL void markSampleKernel(LaunchIndex at, const FusedDeviceState& d,
                                   const mlLagrangeBoundary* boundary, const mlFlow* flow, float N,
                                   float l0p) {
    const FusedState& s = d.base;
    const GridPosition p = gridPosition(boundary, flow, at.n, N, l0p);
    if (!insideGrid(p, s.nx, s.ny, s.nz)) return;
    const int x = static_cast<int>(p.x);
    const int y = static_cast<int>(p.y);
    const int z = static_cast<int>(p.z);
    const NodeBox box = intersection({x - kSampleBelow, y - kSampleBelow, z - kSampleBelow,
                                      x + kSampleAbove, y + kSampleAbove, z + kSampleAbove},
                                     {0, 0, 0, s.nx, s.ny, s.nz});
    for (int k = box.z0; k < box.z1; ++k) {
        for (int j = box.y0; j < box.y1; ++j) {
            markRow(s, box.x0, box.x1, j, k);
        }
    }
}

// Clears the force arrays where they are marked, and the marks. One invocation per word of marks.
DRELT_KERNEL void dropForcesKernel(LaunchIndex at, const FusedDeviceState& d) {
    const FusedState& s = d.base;
    if (s.spread[at.n] == 0) return;
    s.spread[at.n] = 0;
    constexpr int wordNodes = 32 * kChunkNodes;
    const int end = (at.x + 1) * wordNodes < s.nx ? (at.x + 1) * wordNodes : s.nx;
    for (int a = 0; a < 3; ++a) {
        double* const row = s.force[a] + nodeOf(s, 0, at.y, at.z);
        for (int x = at.x * wordNodes; x < end; ++x) row[x] = 0.0;
    }
}

}  // namespace fused_device
}  // namespace drelt
