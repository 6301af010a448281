// Collision: populations relax in central-moment space, with the force as a source there.
#pragma once

#include <algorithm>

#include "cslbm/gpu_inc/gpu/mlCentralMoments.h"
#include "cslbm/gpu_inc/gpu/mlTurbulence.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

// Populations of one node inside an array: direction i stands at first[i * stride].
template <class T>
struct NodePopulations {
    T* first;
    std::int64_t stride;
};

// Collides the populations `from` of node `at` into `to`; see the operator below.
DRELT_HOST_DEVICE void collideNode(const LaunchIndex& at, mlFlow* flow, int nx, int ny, int nz,
                                   NodePopulations<const float> from, NodePopulations<float> to) {
    const MLFluidParam* const param = flow->param;
    const float rho = flow->rou[at.n].value;
    const float u[3] = {flow->ux[at.n], flow->uy[at.n], flow->uz[at.n]};

    const Tensor3 gradient = velocityGradient(flow, at, nx, ny, nz);
    const float nu = flow->v0k;
    const float fit = fittedRelaxation(gradient, rho, u, nu);
    // a fit that is not a number fails the comparison and keeps the old value
    const float kept = flow->Sopt[at.n];
    const float sopt = fit > 0.0f ? fit : kept;
    flow->Sopt[at.n] = sopt;

    const float shear = relaxationRate(nu + waleEddyViscosity(gradient, rho));
    const float high = relaxationRate(sopt);
    const CentralForceSource force{
        static_cast<float>(flow->forcex[at.n] + rho * param->bodyAccelx),
        static_cast<float>(flow->forcey[at.n] + rho * param->bodyAccely),
        static_cast<float>(flow->forcez[at.n] + rho * param->bodyAccelz)};

    float f[kDirections];
    float plain[kMoments];
    float k[kMoments];
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        f[decltype(d)::index] = from.first[decltype(d)::index * from.stride];
    });
    plainMomentsOf(f, u[0], u[1], u[2], plain);
    packMoments(plain, k);
    k[0] = rho;
    k[1] = 0.5f * force.x;
    k[2] = 0.5f * force.y;
    k[3] = 0.5f * force.z;
    relaxMoments(k, MomentRates{shear, high, high, high}, ConstantEquilibrium{rho}, force);
    unpackMoments(k, plain);
    populationsOf(plain, u[0], u[1], u[2], f);
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        to.first[decltype(d)::index * to.stride] = f[decltype(d)::index];
    });
}

// Cascaded collision of all 27 central moments about the local velocity. The five shear moments
// relax with the molecular plus the eddy viscosity, the trace and the higher moments with Sopt, which
// is refreshed from the fit where that is positive and kept elsewhere. Mass comes from rou, and the
// first moments after collision from the force alone, so that with a velocity shifted by half the
// force the step adds the whole force to the momentum. param's body acceleration enters the source
// but not the velocity.
// Reads f, rou, ux uy uz (velocities) here and at the six neighbours, force arrays, Sopt; writes fPost
// and Sopt. Run after the frame forcing. The float argument is not used.
DRELT_KERNEL void mlCollideAddForceHighorderFiitingKernel(LaunchIndex at, mlFlow* flow, float,
                                                          int nx, int ny, int nz, int count) {
    collideNode(at, flow, nx, ny, nz, {flow->f + at.n, count}, {flow->fPost + at.n, count});
}

// The same for a row of nodes on the host, in blocks whose populations are staged in a buffer that is
// filled and emptied direction by direction: 54 arrays walked side by side are more than caches and
// hardware prefetchers follow. While a vector of nodes is collided, the lines of the next block's
// populations and of this block's results are on their way to the cache.
DRELT_HOST_ROW void collideRow(LaunchIndex first, int length, mlFlow* flow, float, int nx, int ny,
                               int nz, int count) {
    constexpr int block = 256;
    constexpr int group = 16;
    const std::int64_t stride = count;
    alignas(64) float staged[kDirections * block];
    for (int done = 0; done < length; done += block) {
        const int part = length - done < block ? length - done : block;
        const LaunchIndex start{first.x + done, first.y, first.z, first.n + done};
        const float* const f = flow->f + start.n;
        float* const fPost = flow->fPost + start.n;
        for (std::ptrdiff_t i = 0; i < kDirections; ++i) {
            std::copy(f + i * stride, f + i * stride + part, staged + i * block);
        }
        for (int offset = 0; offset < part; offset += group) {
            for (int i = 0; i < kDirections; ++i) {
                __builtin_prefetch(f + i * stride + offset + part, 0, 2);
                __builtin_prefetch(fPost + i * stride + offset, 1, 2);
            }
            const LaunchIndex node{start.x + offset, start.y, start.z, start.n + offset};
            const int size = part - offset < group ? part - offset : group;
            forEachInRow(node, size, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
                float* const own = staged + (at.x - start.x);
                collideNode(at, flow, nx, ny, nz, {own, block}, {own, block});
            });
        }
        for (std::ptrdiff_t i = 0; i < kDirections; ++i) {
            std::copy(staged + i * block, staged + i * block + part, fPost + i * stride);
        }
    }
}

// Launches mlCollideAddForceHighorderFiitingKernel over the domain of a device record.
void mlCollideAddForceHighorderFiiting(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
