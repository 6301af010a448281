// Open boundaries by non-equilibrium extrapolation with a zero-gradient copy of density and momentum (Guo,
// Zheng, Shi, Chin. Phys. 11 (2002) 366). The nodes of the six open planes take the state of their inner
// neighbours. Nodes outside the planes keep theirs.
#pragma once

#include "cslbm/gpu_inc/gpu/mlOpenPlane.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// Node b of a plane takes density and momentum of its source s, and the populations of s with the equilibrium
// part exchanged. ux uy uz hold momentum here, not velocity. Both equilibria use the same values, so the
// difference cancels up to rounding.
DRELT_HOST_DEVICE void extrapolate(mlFlow* flow, NodeIndex b, NodeIndex s, int nx, int ny,
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

// The planes across x include their edges. Nodes there take the state of the diagonal inner node.
DRELT_HOST_DEVICE void extrapolateX(mlFlow* flow, int x, int sourceX, int y, int z, int nx, int ny,
                                    int nz, int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(y, ny, w) || !withinPlanes(z, nz, w)) return;
    extrapolate(flow, {x, y, z}, {sourceX, innerCoordinate(y, ny, w), innerCoordinate(z, nz, w)},
                nx, ny, count);
}

// The planes across z also include their edges.
DRELT_HOST_DEVICE void extrapolateZ(mlFlow* flow, int z, int sourceZ, int x, int y, int nx, int ny,
                                    int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(x, nx, w) || !withinPlanes(y, ny, w)) return;
    extrapolate(flow, {x, y, z}, {innerCoordinate(x, nx, w), innerCoordinate(y, ny, w), sourceZ},
                nx, ny, count);
}

// The planes across y are one node narrower on every side and have no edges.
DRELT_HOST_DEVICE void extrapolateY(mlFlow* flow, int y, int sourceY, int x, int z, int nx, int ny,
                                    int nz, int count) {
    const int w = flow->param->pml_width;
    if (!withinPlanes(x, nx, w + 1) || !withinPlanes(z, nz, w + 1)) return;
    extrapolate(flow, {x, y, z}, {x, sourceY, z}, nx, ny, count);
}

}  // namespace detail

// The six planes. Each reads and writes f, rou and ux uy uz (momentum). Run them after the moments, in the
// order of mlBoundaryConditionNEE.

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

// Launches the operators of the six planes of a device record: Left, Right, Forward, Back, Up, Down.
void mlBoundaryConditionNEE(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
