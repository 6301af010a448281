// Velocity boundaries by bounce-back of the non-equilibrium part (Zou and He, Phys. Fluids 9 (1997) 1591; in
// three dimensions Hecht and Harting, J. Stat. Mech. (2010) P01018), on the streamed populations. Each
// imposes a fixed velocity on the inner part of one face. A step runs them only if the boundary family says
// so. Run them after the moments.
#pragma once

#include "cslbm/gpu_inc/gpu/mlBoxFace.h"

namespace drelt {

namespace detail {

inline constexpr int kZouHeMargin = 10;  // indices along a face run from this to n minus this

// Whether index a along an axis of n nodes lies inside the margins.
DRELT_HOST_DEVICE bool withinMargin(int a, int n) {
    return a >= kZouHeMargin && a <= n - kZouHeMargin;
}

// The transverse correction of one axis: a sixth of the momentum along it, summed over the populations that run
// along the face.
template <class Face, int Axis>
DRELT_HOST_DEVICE float transverse(const float* f, std::int64_t stride) {
    float sum = 0.0f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        constexpr int e = Axis == 0 ? D::x : (Axis == 1 ? D::y : D::z);
        if constexpr (Face::template along<D> && e != 0) sum += e * f[D::index * stride];
    });
    return sum / 6.0f;
}

// Imposes the velocity `inflow` along the inward normal at a node of the face, and no transverse velocity. A
// population that enters is its opposite plus a share of rho * inflow, minus the transverse corrections.
// ux uy uz get the velocity, not the momentum.
// Reads f; writes the entering populations of f, rou and ux uy uz.
template <class Face>
DRELT_HOST_DEVICE void imposeVelocity(mlFlow* flow, std::int64_t n, int count, float inflow) {
    const std::int64_t stride = count;
    float* const f = flow->f + n;
    float leaving = 0.0f;
    float along = 0.0f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        if constexpr (Face::template leaves<D>) leaving += f[D::index * stride];
        if constexpr (Face::template along<D>) along += f[D::index * stride];
    });
    const float rho = (2.0f * leaving + along) / (1.0f - inflow);
    const float velocity = Face::inward * inflow;
    flow->rou[n].value = rho;
    flow->ux[n] = Face::axis == 0 ? velocity : 0.0f;
    flow->uy[n] = Face::axis == 1 ? velocity : 0.0f;
    flow->uz[n] = Face::axis == 2 ? velocity : 0.0f;

    const float correction[3] = {Face::axis == 0 ? 0.0f : transverse<Face, 0>(f, stride),
                                 Face::axis == 1 ? 0.0f : transverse<Face, 1>(f, stride),
                                 Face::axis == 2 ? 0.0f : transverse<Face, 2>(f, stride)};
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        if constexpr (Face::template enters<D>) {
            constexpr int length = D::x * D::x + D::y * D::y + D::z * D::z;
            // sic: prescribed value
            constexpr float share =
                length == 1 ? 4.0f / 9.0f : (length == 2 ? 1.0f / 9.0f : 1.0f / 36.0f);
            f[D::index * stride] = f[D::opposite * stride] + share * rho * inflow -
                                   D::x * correction[0] - D::y * correction[1] -
                                   D::z * correction[2];
        }
    });
}

// Imposes the velocity at the node of a launch index if it lies inside the margins.
template <class Face>
DRELT_HOST_DEVICE void imposeInside(const LaunchIndex& at, mlFlow* flow, int nx, int ny, int nz,
                                    int count, float inflow) {
    if (Face::axis != 0 && !withinMargin(at.x, nx)) return;
    if (Face::axis != 1 && !withinMargin(at.y, ny)) return;
    if (Face::axis != 2 && !withinMargin(at.z, nz)) return;
    imposeVelocity<Face>(flow, Face::node(at, nx, ny, nz), count, inflow);
}

}  // namespace detail

// The six faces. Left has an inflow of 0.2, the others are walls at rest.

DRELT_KERNEL void mlCuBoundaryCondition_Left_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx,
                                                         int ny, int nz, int count) {
    detail::imposeInside<LeftFace>(at, flow, nx, ny, nz, count, 0.2f);
}

DRELT_KERNEL void mlCuBoundaryCondition_Right_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx,
                                                          int ny, int nz, int count) {
    detail::imposeInside<RightFace>(at, flow, nx, ny, nz, count, 0.0f);
}

DRELT_KERNEL void mlCuBoundaryCondition_Up_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count) {
    detail::imposeInside<UpFace>(at, flow, nx, ny, nz, count, 0.0f);
}

DRELT_KERNEL void mlCuBoundaryCondition_Down_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx,
                                                         int ny, int nz, int count) {
    detail::imposeInside<DownFace>(at, flow, nx, ny, nz, count, 0.0f);
}

DRELT_KERNEL void mlCuBoundaryCondition_Forward_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx,
                                                            int ny, int nz, int count) {
    detail::imposeInside<ForwardFace>(at, flow, nx, ny, nz, count, 0.0f);
}

DRELT_KERNEL void mlCuBoundaryCondition_Back_KernelZouHe(LaunchIndex at, mlFlow* flow, int nx,
                                                         int ny, int nz, int count) {
    detail::imposeInside<BackFace>(at, flow, nx, ny, nz, count, 0.0f);
}

// Launches the operator of one face over the domain of a device record. `face` is the node class of the face;
// throws std::invalid_argument for other classes. The operators do not test the class of a node.
void mlBoundaryConditionZouHe(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG face);

}  // namespace drelt
