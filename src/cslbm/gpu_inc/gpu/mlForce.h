// How a node's forces add up: the force that samples have spread, the inertial force of the moving frame
// and the body acceleration. Force densities in lattice units.
//
// The operators add the forces in two stages: mlAddForcetoUOptKernel, then the collision. Between them, the
// force arrays hold the sum of the first two forces in double precision. The production schedule adds all
// three in one stage, for one float or for a pack, and stores nothing. The rounding differs, so each has its
// own form.
#pragma once

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/arithmetic.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

// Operators, first stage, for one component: adds the frame's force to the force array and turns momentum
// into velocity by half of the sum. `acceleration` is the lattice acceleration of the frame.
DRELT_HOST_DEVICE void addForceComponent(double* force, float* u, std::int64_t n,
                                         double acceleration, float rho) {
    const double sum = force[n] + static_cast<float>(acceleration) * rho;
    force[n] = sum;
    u[n] = static_cast<float>((sum * 0.5 + u[n]) / rho);
}

// Operators, second stage: the total force as a source of central moments. The body acceleration enters
// here but not in the velocity.
DRELT_HOST_DEVICE CentralForceSource centralForce(const mlFlow* flow, const LaunchIndex& at,
                                                  float rho) {
    const MLFluidParam* const param = flow->param;
    return {static_cast<float>(flow->forcex[at.n] + rho * param->bodyAccelx),
            static_cast<float>(flow->forcey[at.n] + rho * param->bodyAccely),
            static_cast<float>(flow->forcez[at.n] + rho * param->bodyAccelz)};
}

// Production: the frame's inertial force. Its acceleration is the same for all nodes.
template <class V>
DRELT_HOST_DEVICE Vector3<V> inertialForce(const float (&acceleration)[3], const V& rho) {
    return {acceleration[0] * rho, acceleration[1] * rho, acceleration[2] * rho};
}

// Production: one component of the spread and the inertial force, added in double precision.
template <class V>
DRELT_HOST_DEVICE V addedForce(const typename Arithmetic<V>::Double& spread, const V& inertial) {
    return Arithmetic<V>::narrowed(spread + Arithmetic<V>::widened(inertial));
}

// Production: adds the body force to the force whose source enters the moments.
template <class V>
DRELT_HOST_DEVICE Vector3<V> withBodyForce(const float (&acceleration)[3], const V& rho,
                                           const Vector3<V>& force) {
    return {mulAdd(acceleration[0], rho, force.x), mulAdd(acceleration[1], rho, force.y),
            mulAdd(acceleration[2], rho, force.z)};
}

}  // namespace drelt
