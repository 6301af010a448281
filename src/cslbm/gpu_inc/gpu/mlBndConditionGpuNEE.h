// Open boundaries by non-equilibrium extrapolation with a zero-gradient copy of density and momentum
// (Guo, Zheng, Shi, Chin. Phys. 11 (2002) 366). Six planes, pml_width nodes inside the faces of the
// array, take the state of the plane next to them on the inside. Nodes outside them are not touched.
#pragma once

#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

struct PlaneNode {
    int x, y, z;
};

// First inner node of an axis of n nodes and its last, of which a coordinate takes the nearest; the
// upper bound wins where the box is too thin for both.
DRELT_HOST_DEVICE int clampInside(int a, int n, int w) {
    const int low = a > w + 1 ? a : w + 1;
    return low < n - 2 - w ? low : n - 2 - w;
}

// Whether a coordinate lies between the boundary planes of its axis, these included.
DRELT_HOST_DEVICE bool withinPlanes(int a, int n, int w) { return a >= w && a <= n - 1 - w; }

// Boundary node b takes density and momentum of s, and the populations of s with the equilibrium part
// exchanged. ux uy uz hold momentum here; both equilibria get the same arguments, so that has no
// effect beyond rounding.
DRELT_HOST_DEVICE void extrapolate(mlFlow* flow, PlaneNode b, PlaneNode s, int nx, int ny,
                                   int count) {
    const std::int64_t stride = count;
    const std::int64_t to = b.x + nx * (b.y + static_cast<std::int64_t>(ny) * b.z);
    const std::int64_t from = s.x + nx * (s.y + static_cast<std::int64_t>(ny) * s.z);
    const float ux = flow->ux[from];
    const float uy = flow->uy[from];
    const float uz = flow->uz[from];
    const float rho = flow->rou[from].value;
    flow->ux[to] = ux;
    flow->uy[to] = uy;
    flow->uz[to] = uz;
    flow->rou[to].value = rho;
    float* const f = flow->f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        const float atBoundary =
            productEquilibrium(d, flow->rou[to].value, flow->ux[to], flow->uy[to], flow->uz[to]);
        const float atSource = productEquilibrium(d, rho, ux, uy, uz);
        f[D::index * stride + to] = atBoundary + f[D::index * stride + from] - atSource;
    });
}

// The x faces cover their whole rim; edges and corners take the diagonal inner node.
DRELT_HOST_DEVICE void extrapolateX(mlFlow* flow, int x, int sourceX, int y, int z, int nx, int ny,
                                    int nz, int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(y, ny, w) || !withinPlanes(z, nz, w)) return;
    extrapolate(flow, {x, y, z}, {sourceX, clampInside(y, ny, w), clampInside(z, nz, w)}, nx, ny,
                count);
}

// The z faces as well.
DRELT_HOST_DEVICE void extrapolateZ(mlFlow* flow, int z, int sourceZ, int x, int y, int nx, int ny,
                                    int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(x, nx, w) || !withinPlanes(y, ny, w)) return;
    extrapolate(flow, {x, y, z}, {clampInside(x, nx, w), clampInside(y, ny, w), sourceZ}, nx, ny,
                count);
}

// The y faces are one node narrower on every side and own no edge.
DRELT_HOST_DEVICE void extrapolateY(mlFlow* flow, int y, int sourceY, int x, int z, int nx, int ny,
                                    int nz, int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(x, nx, w + 1) || !withinPlanes(z, nz, w + 1)) return;
    extrapolate(flow, {x, y, z}, {x, sourceY, z}, nx, ny, count);
}

}  // namespace detail

// The six planes. Each reads and writes f, rou and ux uy uz (momentum); run in the order of
// mlBoundaryConditionNEE, after the moments.

DRELT_KERNEL void mlCuBoundaryCondition_Left_KernelNEE(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateX(flow, w, w + 1, at.y, at.z, nx, ny, nz, count);
}

DRELT_KERNEL void mlCuBoundaryCondition_Right_KernelNEE(LaunchIndex at, mlFlow* flow, int nx,
                                                        int ny, int nz, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateX(flow, nx - 1 - w, nx - 2 - w, at.y, at.z, nx, ny, nz, count);
}

DRELT_KERNEL void mlCuBoundaryCondition_Forward_KernelNEE(LaunchIndex at, mlFlow* flow, int nx,
                                                          int ny, int, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateZ(flow, w, w + 1, at.x, at.y, nx, ny, count);
}

DRELT_KERNEL void mlCuBoundaryCondition_Back_KernelNEE(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateZ(flow, nz - 1 - w, nz - 2 - w, at.x, at.y, nx, ny, count);
}

DRELT_KERNEL void mlCuBoundaryCondition_Up_KernelNEE(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                     int nz, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateY(flow, ny - 1 - w, ny - 2 - w, at.x, at.z, nx, ny, nz, count);
}

DRELT_KERNEL void mlCuBoundaryCondition_Down_KernelNEE(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count) {
    const int w = flow->param->pml_width;
    detail::extrapolateY(flow, w, w + 1, at.x, at.z, nx, ny, nz, count);
}

// Launches the six planes of a device record: Left, Right, Forward, Back, Up, Down.
void mlBoundaryConditionNEE(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
