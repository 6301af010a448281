// Moments of the populations, the forcing of the moving frame, and the grid's origin.
//
// ux, uy, uz hold raw momentum from mlCalOneOrderMomentOptKernel until mlAddForcetoUOptKernel of the next
// step. From then on they hold the velocity, shifted by half the force, until the next moments.
#pragma once

#include <Eigen/Geometry>

#include "cslbm/gpu_inc/gpu/mlForce.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

using FrameTransform = Eigen::Transform<double, 3, Eigen::Affine>;

// Moves the origin so that the centre of the box lies at (cx, cy, cz) [m]. One invocation.
DRELT_KERNEL void mlSetFlowCenterKernel(LaunchIndex, mlFlow* flow, float cx, float cy, float cz) {
    const MLFluidParam* const param = flow->param;
    flow->startx = static_cast<float>(cx - param->width * 0.5);
    flow->starty = static_cast<float>(cy - param->height * 0.5);
    flow->startz = static_cast<float>(cz - param->depth * 0.5);
}

// Adds the inertial force of the moving frame to the force arrays and turns momentum into velocity shifted
// by half the force: u = (momentum + F/2) / rho. The acceleration in the frame is
//     a = -linear - Omega x (Omega x r) - 2 Omega x v - alpha x r.
// r is the node's position in the frame; `transform` maps world positions [m] to it. v is the momentum times
// velocityScale. lengthScale turns a [m/s^2] into lattice units, axis by axis. The motion of the frame is in
// SI units and double precision.
// NOLINTBEGIN(performance-unnecessary-value-param): device operators take their arguments by value
DRELT_KERNEL void mlAddForcetoUOptKernel(LaunchIndex at, mlFlow* flow, int, int, int, int,
                                         float velocityScale, Eigen::Vector3d lengthScale,
                                         Eigen::Vector3d linearAcceleration,
                                         Eigen::Vector3d angularVelocity,
                                         Eigen::Vector3d angularAcceleration,
                                         FrameTransform transform) {
    // NOLINTEND(performance-unnecessary-value-param)
    const float dx = flow->param->dx;
    const Vector3<double> p{at.x * dx + flow->startx, at.y * dx + flow->starty,
                            at.z * dx + flow->startz};
    const double* const t = transform.data();  // column-major, 4 x 4
    const Vector3<double> r{t[0] * p.x + t[4] * p.y + t[8] * p.z + t[12],
                            t[1] * p.x + t[5] * p.y + t[9] * p.z + t[13],
                            t[2] * p.x + t[6] * p.y + t[10] * p.z + t[14]};
    const Vector3<double> v{flow->ux[at.n] * velocityScale, flow->uy[at.n] * velocityScale,
                            flow->uz[at.n] * velocityScale};

    const Vector3<double> omega = vector3(angularVelocity.data());
    const Vector3<double> linear = vector3(linearAcceleration.data());
    const Vector3<double> scale = vector3(lengthScale.data());
    const Vector3<double> centrifugal = cross(omega, cross(omega, r));
    const Vector3<double> coriolis = cross(omega, v);
    const Vector3<double> euler = cross(vector3(angularAcceleration.data()), r);

    const float rho = flow->rou[at.n].value;
    addForceComponent(flow->forcex, flow->ux, at.n,
                      scale.x * (-linear.x - centrifugal.x - 2.0 * coriolis.x - euler.x), rho);
    addForceComponent(flow->forcey, flow->uy, at.n,
                      scale.y * (-linear.y - centrifugal.y - 2.0 * coriolis.y - euler.y), rho);
    addForceComponent(flow->forcez, flow->uz, at.n,
                      scale.z * (-linear.z - centrifugal.z - 2.0 * coriolis.z - euler.z), rho);
}

namespace detail {

// The sums of one node's populations: density and momentum.
struct MomentSums {
    float rho, mx, my, mz;
};

// Sums the populations first[i * stride].
DRELT_HOST_DEVICE MomentSums momentSums(const float* first, std::int64_t stride) {
    // The sum runs by the length of the directions, small populations first. A running sum that starts with
    // the rest population would lose a little mass in every step.
    float bySquaredLength[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    MomentSums sums{0.0f, 0.0f, 0.0f, 0.0f};
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        using D = decltype(d);
        const float value = first[D::index * stride];
        bySquaredLength[D::x * D::x + D::y * D::y + D::z * D::z] += value;
        if constexpr (D::x != 0) sums.mx += D::x * value;
        if constexpr (D::y != 0) sums.my += D::y * value;
        if constexpr (D::z != 0) sums.mz += D::z * value;
    });
    sums.rho =
        ((bySquaredLength[3] + bySquaredLength[2]) + bySquaredLength[1]) + bySquaredLength[0];
    return sums;
}

// Stores density and raw momentum of node n and clears its force.
DRELT_HOST_DEVICE void storeMoments(mlFlow* flow, std::int64_t n, std::int64_t stride) {
    const MomentSums sums = momentSums(flow->f + n, stride);
    flow->rou[n].value = sums.rho;
    flow->ux[n] = sums.mx;
    flow->uy[n] = sums.my;
    flow->uz[n] = sums.mz;
    flow->forcex[n] = 0.0;
    flow->forcey[n] = 0.0;
    flow->forcez[n] = 0.0;
}

}  // namespace detail

// Forms density and raw momentum (not divided by the density) of the streamed populations and clears the force
// arrays for the next step. Reads f; writes rou, ux uy uz, forcex forcey forcez.
DRELT_KERNEL void mlCalOneOrderMomentOptKernel(LaunchIndex at, mlFlow* flow, int, int, int,
                                               int count) {
    detail::storeMoments(flow, at.n, count);
}

// Launches mlSetFlowCenterKernel for a device record. The centre is in metres, world axes.
void mlSetFlowCenter(mlFlow* flow, float cx, float cy, float cz);

// Launches mlAddForcetoUOptKernel over the domain of a device record.
void mlAddForcetoUOpt(mlFlow* flow, const MLFluidParam* param, float velocityScale,
                      const Eigen::Vector3d& lengthScale, const Eigen::Vector3d& linearAcceleration,
                      const Eigen::Vector3d& angularVelocity,
                      const Eigen::Vector3d& angularAcceleration, const FrameTransform& transform);

// Launches mlCalOneOrderMomentOptKernel over the domain of a device record.
void mlCalOneOrderMomentOpt(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
