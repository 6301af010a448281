// The default collision: the central moments of the populations relax, and the force is one of their sources.
#pragma once

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlCollideNode.h"
#include "cslbm/gpu_inc/gpu/mlTurbulence.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/launch.h"

namespace drelt {

// Collides the populations `from` of node `at` and writes them to `to`; see the operator below.
DRELT_HOST_DEVICE void collideNode(const LaunchIndex& at, mlFlow* flow, int nx, int ny, int nz,
                                   NodePopulations<const float> from, NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    const float nu = flow->v0k;
    const float fit = fittedRelaxation(gradient, node.rho, node.u, nu);
    // A fit that is not a number fails the comparison, so the old value stays.
    const float kept = flow->Sopt[at.n];
    const float sopt = fit > 0.0f ? fit : kept;
    flow->Sopt[at.n] = sopt;

    const float shear = relaxationRate(nu + waleEddyViscosity(gradient, node.rho));
    const float high = relaxationRate(sopt);
    collidePopulations(node, MomentRates{shear, high, high, high}, ConstantEquilibrium{node.rho},
                       centralForce(flow, at, node.rho), NoPopulationSource{}, from, to);
}

// Cascaded collision of all 27 central moments about the local velocity. The five shear moments relax with the
// molecular plus the eddy viscosity. The trace and the higher moments relax with Sopt. Sopt takes the value
// of the fit if that is positive; otherwise it keeps its own. The mass is set to rou. The first central
// moments after the collision are half the force. The velocity is shifted by the other half, so the step adds
// the whole force to the momentum. param's body acceleration enters the source but not the velocity.
// Reads f, rou, Sopt, the force arrays, and ux uy uz (velocities) here and at the six neighbours; writes fPost
// and Sopt. Run after the frame forcing. The float argument is not used.
DRELT_KERNEL void mlCollideAddForceHighorderFiitingKernel(LaunchIndex at, mlFlow* flow, float,
                                                          int nx, int ny, int nz, int count) {
    collideNode(at, flow, nx, ny, nz, {flow->f + at.n, count}, {flow->fPost + at.n, count});
}

// The same for a row of nodes on the host.
DRELT_HOST_ROW void collideRow(LaunchIndex first, int length, mlFlow* flow, float, int nx, int ny,
                               int nz, int count) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fPost, count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { collideNode(at, flow, nx, ny, nz, from, to); });
}

// Launches mlCollideAddForceHighorderFiitingKernel over the domain of a device record.
void mlCollideAddForceHighorderFiiting(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
