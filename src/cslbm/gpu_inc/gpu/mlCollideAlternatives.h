// Alternatives to the default collision (mlCollideGpu.h). Each reads f and writes fPost and can replace it in a
// step. All use the 27 central moments. They differ in rates, equilibrium, and how the force enters:
//
//   operator             shear rate        other rates           equilibrium   force
//   mlCollideGpu         molecular         0.005.. + strain lift constant      none
//   mlCollideAddForce    molecular + eddy  0.01.. + strain lift  constant      populations
//   ..AddForceOpt        the same in two stages (cascade)
//   ..AddForceTvcg       molecular         0.005.. + strain lift polynomial    populations, two stages
//   ..Highorder          molecular + eddy  0.01.. + strain lift  constant      central moments
//   ..HighorderFitingPart1  as the default one
//
// Where the force enters as a source of populations, the first central moments are 0 after the collision, and
// the float argument is a body acceleration along y.
#pragma once

#include <cstdio>

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"
#include "cslbm/gpu_inc/gpu/mlCollideNode.h"
#include "cslbm/gpu_inc/gpu/mlPolynomialEquilibrium.h"
#include "cslbm/gpu_inc/gpu/mlPopulationSource.h"
#include "cslbm/gpu_inc/gpu/mlTurbulence.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

// The rates with the eddy viscosity in the shear rate and the strain lift in the others.
DRELT_HOST_DEVICE MomentRates eddyRates(const mlFlow* flow, const Tensor3& gradient, float rho) {
    return liftedRates(flow->v0k + waleEddyViscosity(gradient, rho),
                       static_cast<float>(strainLift(gradient)), 0.01f, 0.014f, 0.02f);
}

// The rates with the molecular viscosity only. The filter width of the lift is the node spacing.
template <class T>
DRELT_HOST_DEVICE MomentRates molecularRates(const mlFlow* flow, const Tensor3& gradient, T high,
                                             T fifth, T sixth) {
    const double dx = flow->param->dx;
    return liftedRates(flow->v0k, static_cast<T>(strainLift(gradient) * dx * dx), high, fifth,
                       sixth);
}

DRELT_HOST_DEVICE void collidePlain(const LaunchIndex& at, const mlFlow* flow,
                                    NodePopulations<const float> from, NodePopulations<float> to) {
    const MLFluidParam* const p = flow->param;
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, p->samples_x, p->samples_y, p->samples_z);
    collidePopulations(node, molecularRates(flow, gradient, 0.005f, 0.007f, 0.01f),
                       ConstantEquilibrium{node.rho}, NoMomentSource{}, NoPopulationSource{}, from,
                       to);
}

DRELT_HOST_DEVICE void collideForced(const LaunchIndex& at, const mlFlow* flow, float gy, int nx,
                                     int ny, int nz, NodePopulations<const float> from,
                                     NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    collidePopulations(node, eddyRates(flow, gradient, node.rho), ConstantEquilibrium{node.rho},
                       NoMomentSource{}, populationSource(flow, at, node, gy), from, to);
}

DRELT_HOST_DEVICE void collideHighorder(const LaunchIndex& at, const mlFlow* flow, int nx, int ny,
                                        int nz, NodePopulations<const float> from,
                                        NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    collidePopulations(node, eddyRates(flow, gradient, node.rho), ConstantEquilibrium{node.rho},
                       centralForce(flow, at, node.rho), NoPopulationSource{}, from, to);
}

// First stages: relax the moments of a node's populations.
DRELT_HOST_DEVICE void relaxCascade(const LaunchIndex& at, const mlFlow* flow, int nx, int ny,
                                    int nz, NodePopulations<const float> from,
                                    NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    float k[kMoments];
    gatherMoments(from, node, k);
    // sic: prescribed value
    k[0] = 2.0f * node.rho - k[0];
    k[1] = -k[1];
    k[2] = -k[2];
    k[3] = 0.0f;
    relaxMoments(k, eddyRates(flow, gradient, node.rho), ConstantEquilibrium{node.rho},
                 NoMomentSource{});
    scatterMoments(k, to);
}

DRELT_HOST_DEVICE void relaxPolynomial(const LaunchIndex& at, const mlFlow* flow, int nx, int ny,
                                       int nz, NodePopulations<const float> from,
                                       NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    float k[kMoments];
    gatherMoments(from, node, k);
    relaxMoments(k, molecularRates(flow, gradient, 0.005, 0.007, 0.01),
                 PolynomialEquilibrium(node.rho, node.u), NoMomentSource{});
    scatterMoments(k, to);
}

// Second stages: read the moments from 4 on and write a range of the populations.
using StoredMoments = Entries<4, kMoments>;
using FirstHalf = Entries<0, 14>;
using SecondHalf = Entries<14, kDirections>;

template <class Range>
DRELT_HOST_DEVICE void rebuildNode(Range range, const LaunchIndex& at, const mlFlow* flow, float gy,
                                   NodePopulations<const float> from, NodePopulations<float> to) {
    const NodeState node = nodeState(flow, at);
    float k[kMoments];
    setConserved(k, node.rho, NoMomentSource{});
    forEachIndex<kMoments - 4>([&](auto i) DRELT_LAMBDA_INLINE {
        constexpr int j = decltype(i)::value + 4;
        k[j] = from.first[j * from.stride];
    });
    scatterPopulations(range, k, node, populationSource(flow, at, node, gy), to);
}

template <class Range>
DRELT_HOST_ROW void rebuildRow(Range range, LaunchIndex first, int length, const mlFlow* flow,
                               float gy, int count) {
    forEachStagedNode<StoredMoments, Range>(
        first, length, flow->fStore, flow->fPost, count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { rebuildNode(range, at, flow, gy, from, to); });
}

// The node whose fit mlCollideAddForceHighorderFitingPart1Kernel prints.
inline constexpr std::int64_t kProbedNode = 2412130;  // sic: prescribed value

DRELT_HOST_DEVICE void printFit(const LaunchIndex& at, const mlFlow* flow, int nx, int ny, int nz) {
    const NodeState node = nodeState(flow, at);
    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    printf("%f\n", fittedRelaxation(gradient, node.rho, node.u, flow->v0k));
}

}  // namespace detail

// Without force. Reads f, rou, ux uy uz here and at the six neighbours; writes fPost.
DRELT_KERNEL void mlCollideGpuKernel(LaunchIndex at, mlFlow* flow) {
    const std::int64_t count = flow->count;
    detail::collidePlain(at, flow, {flow->f + at.n, count}, {flow->fPost + at.n, count});
}
DRELT_HOST_ROW void collidePlainRow(LaunchIndex first, int length, mlFlow* flow) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fPost, flow->count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { detail::collidePlain(at, flow, from, to); });
}

// With the force as a source of populations. Reads f, rou, ux uy uz here and at the six neighbours,
// force arrays; writes fPost.
DRELT_KERNEL void mlCollideAddForceKernel(LaunchIndex at, mlFlow* flow, float gy, std::int64_t nx,
                                          std::int64_t ny, std::int64_t nz) {
    const std::int64_t count = nx * ny * nz;
    detail::collideForced(at, flow, gy, static_cast<int>(nx), static_cast<int>(ny),
                          static_cast<int>(nz), {flow->f + at.n, count},
                          {flow->fPost + at.n, count});
}
DRELT_HOST_ROW void collideForcedRow(LaunchIndex first, int length, mlFlow* flow, float gy,
                                     std::int64_t nx, std::int64_t ny, std::int64_t nz) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fPost, nx * ny * nz,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE {
                detail::collideForced(at, flow, gy, static_cast<int>(nx), static_cast<int>(ny),
                                      static_cast<int>(nz), from, to);
            });
}

// The default collision with fixed rates instead of the fit. Reads f, rou, ux uy uz here and at the six
// neighbours, force arrays; writes fPost.
DRELT_KERNEL void mlCollideAddForceHighorderKernel(LaunchIndex at, mlFlow* flow, int nx, int ny,
                                                   int nz, int count) {
    detail::collideHighorder(at, flow, nx, ny, nz, {flow->f + at.n, count},
                             {flow->fPost + at.n, count});
}
DRELT_HOST_ROW void collideHighorderRow(LaunchIndex first, int length, mlFlow* flow, int nx, int ny,
                                        int nz, int count) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fPost, count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { detail::collideHighorder(at, flow, nx, ny, nz, from, to); });
}

// The default collision with a probe: one node prints its fit. The float argument is not used.
DRELT_KERNEL void mlCollideAddForceHighorderFitingPart1Kernel(LaunchIndex at, mlFlow* flow, float,
                                                              int nx, int ny, int nz, int count) {
    if (at.n == detail::kProbedNode) detail::printFit(at, flow, nx, ny, nz);
    collideNode(at, flow, nx, ny, nz, {flow->f + at.n, count}, {flow->fPost + at.n, count});
}
DRELT_HOST_ROW void collideProbedRow(LaunchIndex first, int length, mlFlow* flow, float unused,
                                     int nx, int ny, int nz, int count) {
    const std::int64_t x = detail::kProbedNode - first.n;
    if (x >= 0 && x < length) {
        const LaunchIndex probed{first.x + static_cast<int>(x), first.y, first.z, first.n + x};
        detail::printFit(probed, flow, nx, ny, nz);
    }
    collideRow(first, length, flow, unused, nx, ny, nz, count);
}

// First stage of the cascade, the form of mlCollideAddForceKernel in two stages. Reads f, rou, ux uy uz here
// and at the six neighbours; writes the relaxed moments to fStore. The float argument is not used.
DRELT_KERNEL void mlCollideAddForceOptKernel(LaunchIndex at, mlFlow* flow, float, int nx, int ny,
                                             int nz, int count) {
    detail::relaxCascade(at, flow, nx, ny, nz, {flow->f + at.n, count},
                         {flow->fStore + at.n, count});
}
DRELT_HOST_ROW void relaxCascadeRow(LaunchIndex first, int length, mlFlow* flow, float, int nx,
                                    int ny, int nz, int count) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fStore, count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { detail::relaxCascade(at, flow, nx, ny, nz, from, to); });
}

// Second stage of the cascade: one operator for the directions 0 to 13 and one for 14 to 26, run in either
// order. Both read fStore, rou, ux uy uz and the force arrays, and write fPost.
DRELT_KERNEL void mlCuCollideCascade0_13Kernel(LaunchIndex at, mlFlow* flow, float gy, int, int,
                                               int, int count) {
    detail::rebuildNode(detail::FirstHalf{}, at, flow, gy, {flow->fStore + at.n, count},
                        {flow->fPost + at.n, count});
}
DRELT_KERNEL void mlCuCollideCascade14_26Kernel(LaunchIndex at, mlFlow* flow, float gy, int, int,
                                                int, int count) {
    detail::rebuildNode(detail::SecondHalf{}, at, flow, gy, {flow->fStore + at.n, count},
                        {flow->fPost + at.n, count});
}

// First stage of the collision towards the second-order polynomial equilibrium. Reads f, rou, ux uy uz here
// and at the six neighbours; writes the relaxed moments to fStore. The float argument is not used.
DRELT_KERNEL void mlCollideAddForceTvcgDivKernel(LaunchIndex at, mlFlow* flow, float, int nx,
                                                 int ny, int nz, int count) {
    detail::relaxPolynomial(at, flow, nx, ny, nz, {flow->f + at.n, count},
                            {flow->fStore + at.n, count});
}
DRELT_HOST_ROW void relaxPolynomialRow(LaunchIndex first, int length, mlFlow* flow, float, int nx,
                                       int ny, int nz, int count) {
    forEachStagedNode<AllEntries, AllEntries>(
        first, length, flow->f, flow->fStore, count,
        [=](const LaunchIndex& at, NodePopulations<const float> from, NodePopulations<float> to)
            DRELT_LAMBDA_INLINE { detail::relaxPolynomial(at, flow, nx, ny, nz, from, to); });
}

// Second stage of this collision. It does the same as that of the cascade.
DRELT_KERNEL void mlCollideAddForceTvcg0_13Kernel(LaunchIndex at, mlFlow* flow, float gy, int, int,
                                                  int, int count) {
    detail::rebuildNode(detail::FirstHalf{}, at, flow, gy, {flow->fStore + at.n, count},
                        {flow->fPost + at.n, count});
}
DRELT_KERNEL void mlCollideAddForceTvcg14_26Kernel(LaunchIndex at, mlFlow* flow, float gy, int, int,
                                                   int, int count) {
    detail::rebuildNode(detail::SecondHalf{}, at, flow, gy, {flow->fStore + at.n, count},
                        {flow->fPost + at.n, count});
}

// The second stages of both sequences for a row of nodes.
DRELT_HOST_ROW void rebuildFirstHalfRow(LaunchIndex first, int length, mlFlow* flow, float gy, int,
                                        int, int, int count) {
    detail::rebuildRow(detail::FirstHalf{}, first, length, flow, gy, count);
}
DRELT_HOST_ROW void rebuildSecondHalfRow(LaunchIndex first, int length, mlFlow* flow, float gy, int,
                                         int, int, int count) {
    detail::rebuildRow(detail::SecondHalf{}, first, length, flow, gy, count);
}

// Launch an operator, or the three stages of a sequence, over the domain of a device record. The float argument
// is param's bodyAccely.
void mlCollideGpu(mlFlow* flow, const MLFluidParam* param);
void mlCollideAddForce(mlFlow* flow, const MLFluidParam* param);
void mlCollideAddForceOpt(mlFlow* flow, const MLFluidParam* param);
void mlCollideAddForceTvcg(mlFlow* flow, const MLFluidParam* param);
void mlCollideAddForceHighorder(mlFlow* flow, const MLFluidParam* param);
void mlCollideAddForceHighorderFitingPart1(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
