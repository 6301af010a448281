// The six open planes by characteristics, as operators; mlCharacteristicWave.h tells the method. Places and
// inner neighbours are those of the copied planes. The steps run them in their place on request.
#pragma once

#include "cslbm/gpu_inc/gpu/mlBoxFace.h"
#include "cslbm/gpu_inc/gpu/mlCharacteristicWave.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"

namespace drelt {

namespace detail {

// From the raw momentum that the moments have left.
DRELT_HOST_DEVICE PlaneFluid<float> fluidAt(const mlFlow* flow, std::int64_t n) {
    const float rho = flow->rou[n].value;
    return {rho, {flow->ux[n] / rho, flow->uy[n] / rho, flow->uz[n] / rho}};
}

// Writes f, rou and ux uy uz (momentum) of the node on the face's plane that `at` stands for. The x and z
// planes cover their whole rim, the y planes own no edge.
template <class Face>
DRELT_HOST_DEVICE void openNode(const LaunchIndex& at, mlFlow* flow, int nx, int ny, int nz,
                                int count, const OpenPlanes& planes) {
    const int w = flow->param->pml_width;
    constexpr int axis = Face::axis;
    const int sizes[3] = {nx, ny, nz};
    int node[3] = {at.x, at.y, at.z};
    node[axis] = Face::inward > 0 ? w : sizes[axis] - 1 - w;
    int inner[3];
    for (int a = 0; a < 3; ++a) {
        const int rim = axis == 1 && a != 1 ? w + 1 : w;
        if (!withinPlanes(node[a], sizes[a], rim)) return;
        inner[a] = innerCoordinate(node[a], sizes[a], w);
    }
    const auto indexOf = [&](const int(&p)[3]) DRELT_LAMBDA_INLINE {
        return p[0] + nx * (p[1] + static_cast<std::int64_t>(ny) * p[2]);
    };
    const std::int64_t from = indexOf(inner);
    inner[axis] = innerCoordinate(inner[axis] + Face::inward, sizes[axis], w);
    const PlaneFluid<float> first = fluidAt(flow, from);
    const PlaneFluid<float> plane =
        fluidOnPlane(planes, {axis, -Face::inward}, first, fluidAt(flow, indexOf(inner)));

    const std::int64_t to = indexOf(node);
    const std::int64_t stride = count;
    flow->rou[to].value = plane.rho;
    flow->ux[to] = plane.rho * plane.u.x;
    flow->uy[to] = plane.rho * plane.u.y;
    flow->uz[to] = plane.rho * plane.u.z;
    float* const f = flow->f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        const float change = productEquilibrium(d, plane.rho, plane.u.x, plane.u.y, plane.u.z) -
                             productEquilibrium(d, first.rho, first.u.x, first.u.y, first.u.z);
        f[D::index * stride + to] = f[D::index * stride + from] + change;
    });
}

}  // namespace detail

// Each reads f, rou and ux uy uz (momentum) of two nodes inside and writes those of its own nodes. Run them
// after the moments, in the order of mlCharacteristicPlanes.

DRELT_KERNEL void mlCharacteristicPlane_Left_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count, OpenPlanes planes) {
    detail::openNode<LeftFace>(at, flow, nx, ny, nz, count, planes);
}
DRELT_KERNEL void mlCharacteristicPlane_Right_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                     int nz, int count, OpenPlanes planes) {
    detail::openNode<RightFace>(at, flow, nx, ny, nz, count, planes);
}
DRELT_KERNEL void mlCharacteristicPlane_Forward_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count, OpenPlanes planes) {
    detail::openNode<ForwardFace>(at, flow, nx, ny, nz, count, planes);
}
DRELT_KERNEL void mlCharacteristicPlane_Back_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count, OpenPlanes planes) {
    detail::openNode<BackFace>(at, flow, nx, ny, nz, count, planes);
}
DRELT_KERNEL void mlCharacteristicPlane_Up_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                  int nz, int count, OpenPlanes planes) {
    detail::openNode<UpFace>(at, flow, nx, ny, nz, count, planes);
}
DRELT_KERNEL void mlCharacteristicPlane_Down_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count, OpenPlanes planes) {
    detail::openNode<DownFace>(at, flow, nx, ny, nz, count, planes);
}

// Launches the six planes over the domain of a device record: Left, Right, Forward, Back, Up, Down.
void mlCharacteristicPlanes(mlFlow* flow, const MLFluidParam* param, const OpenPlanes& planes);

}  // namespace drelt
