// Boundaries by node class, on the post-collision populations. A step runs them only if the boundary family
// says so. Run them after the absorbing layer and before streaming, while ux uy uz hold velocities.
#pragma once

#include "cslbm/gpu_inc/gpu/mlBoxFace.h"

namespace drelt {

namespace detail {

// The second moments of the non-equilibrium part of a node's populations.
struct NonEquilibriumMoments {
    float xx, yy, zz, xy, xz, yz;
};

// The regularised population of direction D: w / (2 cs^4) Q : P with Q = e e - cs^2. It has the second
// moments P and no others.
template <class D>
DRELT_HOST_DEVICE float regularised(D, const NonEquilibriumMoments& p) {
    constexpr double weight = D::weight / (2.0 / 9.0);
    return static_cast<float>(weight *
                              (p.xx * (D::x * D::x - 1.0 / 3.0) + p.yy * (D::y * D::y - 1.0 / 3.0) +
                               // sic: prescribed value
                               p.zz * (D::y * D::z - 1.0 / 3.0) + 2 * D::x * D::y * p.xy +
                               2 * D::x * D::z * p.xz + 2 * D::y * D::z * p.yz));
}

// A velocity boundary by regularised populations (Latt, Chopard, Malaspinas, Deville and Michler, Phys. Rev. E
// 77 (2008) 056703), at node n of a face. The density follows from the populations that leave through the
// face or run along it. A population that enters takes the non-equilibrium part of its opposite. On the low
// x and y faces, the divisor of the density amplifies disturbances. At a viscosity of 0.01, rounding errors
// of a fluid at rest grow tenfold in 20 steps; at about 0.1 and above they do not grow.
// Reads fPost and ux uy uz (velocities); writes fPost and rou.
template <class Face>
DRELT_HOST_DEVICE void regulariseFace(mlFlow* flow, std::int64_t n, int count) {
    const std::int64_t stride = count;
    float* const fPost = flow->fPost + n;
    const float u[3] = {flow->ux[n], flow->uy[n], flow->uz[n]};
    float leaving = 0.0f;
    float along = 0.0f;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        if constexpr (Face::template leaves<D>) leaving += fPost[D::index * stride];
        if constexpr (Face::template along<D>) along += fPost[D::index * stride];
    });
    const float rho = (2.0f * leaving + along) / (u[Face::axis] + 1.0f);  // sic: prescribed value
    flow->rou[n].value = rho;

    float equilibrium[kDirections];
    float rest[kDirections];
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(d)::index;
        equilibrium[i] = secondOrderEquilibrium(d, rho, u[0], u[1], u[2]);
        rest[i] = fPost[i * stride] - equilibrium[i];
    });
    NonEquilibriumMoments p{0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        const float part = rest[Face::template enters<D> ? D::opposite : D::index];
        if constexpr (D::x != 0) p.xx += part;
        if constexpr (D::y != 0) p.yy += part;
        if constexpr (D::z != 0) p.zz += part;
        if constexpr (D::x * D::y != 0) p.xy += D::x * D::y * part;
        if constexpr (D::x * D::z != 0) p.xz += D::x * D::z * part;
        if constexpr (D::y * D::z != 0) p.yz += D::y * D::z * part;
    });
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        constexpr int i = decltype(d)::index;
        fPost[i * stride] = equilibrium[i] + regularised(d, p);
    });
}

// Regularises the node of a launch index if it has the face's class.
template <class Face>
DRELT_HOST_DEVICE void regulariseFlagged(const LaunchIndex& at, mlFlow* flow, int nx, int ny,
                                         int nz, int count, MLLATTICENODE_FLAG face) {
    const std::int64_t n = Face::node(at, nx, ny, nz);
    if (flow->flag[n] == face) regulariseFace<Face>(flow, n, count);
}

// Sets node n to the equilibrium of its density and velocity.
DRELT_HOST_DEVICE void equilibrateNode(mlFlow* flow, std::int64_t n, int count) {
    const std::int64_t stride = count;
    const float rho = flow->rou[n].value;
    const float u[3] = {flow->ux[n], flow->uy[n], flow->uz[n]};
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        flow->fPost[decltype(d)::index * stride + n] =
            secondOrderEquilibrium(d, rho, u[0], u[1], u[2]);
    });
}

}  // namespace detail

// The six faces. Each operator treats the nodes of the face's class on the face's plane.

DRELT_KERNEL void mlCuBoundaryCondition_Left_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count) {
    detail::regulariseFlagged<LeftFace>(at, flow, nx, ny, nz, count, ML_NODE_LEFT);
}

DRELT_KERNEL void mlCuBoundaryCondition_Right_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                     int nz, int count) {
    detail::regulariseFlagged<RightFace>(at, flow, nx, ny, nz, count, ML_NODE_RIGHT);
}

DRELT_KERNEL void mlCuBoundaryCondition_Down_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count) {
    detail::regulariseFlagged<DownFace>(at, flow, nx, ny, nz, count, ML_NODE_DOWN);
}

DRELT_KERNEL void mlCuBoundaryCondition_Up_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                  int nz, int count) {
    detail::regulariseFlagged<UpFace>(at, flow, nx, ny, nz, count, ML_NODE_UP);
}

DRELT_KERNEL void mlCuBoundaryCondition_Forward_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                       int nz, int count) {
    detail::regulariseFlagged<ForwardFace>(at, flow, nx, ny, nz, count, ML_NODE_FORWARD);
}

DRELT_KERNEL void mlCuBoundaryCondition_Back_Kernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                    int nz, int count) {
    detail::regulariseFlagged<BackFace>(at, flow, nx, ny, nz, count, ML_NODE_BACK);
}

// Sets a solid node, wherever it lies, to the equilibrium of its density and velocity.
DRELT_KERNEL void mlCuBoundaryCondition_Solid_Kernel(LaunchIndex at, mlFlow* flow, int, int, int,
                                                     int count) {
    if (flow->flag[at.n] == ML_NODE_SOLID) detail::equilibrateNode(flow, at.n, count);
}

// Does the work of the seven operators above in one launch. Only the node's class decides.
DRELT_KERNEL void mlBndConditionOtherKernel(LaunchIndex at, mlFlow* flow, int, int, int,
                                            int count) {
    switch (flow->flag[at.n]) {
        case ML_NODE_LEFT: return detail::regulariseFace<LeftFace>(flow, at.n, count);
        case ML_NODE_RIGHT: return detail::regulariseFace<RightFace>(flow, at.n, count);
        case ML_NODE_DOWN: return detail::regulariseFace<DownFace>(flow, at.n, count);
        case ML_NODE_UP: return detail::regulariseFace<UpFace>(flow, at.n, count);
        case ML_NODE_FORWARD: return detail::regulariseFace<ForwardFace>(flow, at.n, count);
        case ML_NODE_BACK: return detail::regulariseFace<BackFace>(flow, at.n, count);
        case ML_NODE_SOLID: return detail::equilibrateNode(flow, at.n, count);
        default: return;
    }
}

// A fluid node x copies its populations to neighbours on a face or in a solid: fPost_j(y) = fPost_j(x) for
// y = x + e_j. The result does not depend on the order of the nodes: only node y - e_j writes entry j of
// node y, and the operator reads fluid nodes only, which it never writes.
DRELT_KERNEL void mlBndConditionKernel(LaunchIndex at, mlFlow* flow, int nx, int ny, int nz,
                                       int count) {
    if (flow->flag[at.n] != ML_NODE_FLUID) return;
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        const int x = at.x + D::x;
        const int y = at.y + D::y;
        const int z = at.z + D::z;
        if (x < 0 || x >= nx || y < 0 || y >= ny || z < 0 || z >= nz) return;
        const std::int64_t shift = D::x + nx * (D::y + static_cast<std::int64_t>(ny) * D::z);
        const MLLATTICENODE_FLAG flag = flow->flag[at.n + shift];
        if (flag < ML_NODE_LEFT || flag > ML_NODE_SOLID) return;
        float* const own = flow->fPost + D::index * static_cast<std::int64_t>(count) + at.n;
        own[shift] = own[0];
    });
}

// Launches the operator of one class over the domain of a device record. Throws std::invalid_argument for a
// class that is neither a face nor ML_NODE_SOLID.
void mlBoundaryConditionFlag(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG which);
// Launch mlBndConditionOtherKernel and mlBndConditionKernel over the domain of a device record.
void mlBndConditionOther(mlFlow* flow, const MLFluidParam* param);
void mlBndCondition(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
