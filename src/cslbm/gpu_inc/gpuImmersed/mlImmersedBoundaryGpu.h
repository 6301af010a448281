// Direct forcing between the fluid and the samples of a boundary: interpolates the fluid's momentum to the
// samples, computes their forces, and spreads the forces to the nodes.
#pragma once

#include <cmath>
#include <cstdio>

#include "cslbm/gpu_inc/gpuImmersed/mlDelta.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"
#include "platform/launch.h"

namespace drelt {

class SpreadWorkspace;

// Weights of the interpolation along one axis: nodes from floor(X) - R to floor(X) + R inside the grid.
DRELT_HOST_DEVICE void interpolationWeights(DeltaWeights& axis, float X, long n, int R) {
    const int base = static_cast<int>(std::floor(X));
    const int from = base - R > 0 ? base - R : 0;
    const int to = base + R + 1 < n ? base + R + 1 : static_cast<int>(n);
    mlDeltaWeights(axis, from, to, R,
                   [&](int i) DRELT_LAMBDA_INLINE { return X - static_cast<float>(i); });
}

// Sums weight times momentum over the nodes of non-zero weight, k outermost and i innermost, in single
// precision with fused multiply-adds. With Report, prints every node from the first one on whose sum is not
// a number.
template <bool Report>
DRELT_HOST_DEVICE void interpolateMomentum(const mlFlow* flow, const DeltaWeights& wx,
                                           const DeltaWeights& wy, const DeltaWeights& wz, long nx,
                                           long ny, float m[3]) {
    float mx = 0.0f, my = 0.0f, mz = 0.0f;
    for (int c = 0; c < wz.count; ++c) {
        for (int b = 0; b < wy.count; ++b) {
            const std::int64_t row =
                (static_cast<std::int64_t>(wz.first + c) * ny + (wy.first + b)) * nx + wx.first;
            for (int a = 0; a < wx.count; ++a) {
                const float weight = wx.weight[a] * wy.weight[b] * wz.weight[c];
                const float ux = flow->ux[row + a];
                const float uy = flow->uy[row + a];
                const float uz = flow->uz[row + a];
                mx = std::fma(weight, ux, mx);
                my = std::fma(weight, uy, my);
                mz = std::fma(weight, uz, mz);
                if constexpr (Report) {
                    if (mx != mx || my != my || mz != mz) {
                        // sic: prescribed text
                        printf("NAN find! %d  %.3f %.3f %.3f %.3f  \n", static_cast<int>(row + a),
                               static_cast<double>(ux), static_cast<double>(uy),
                               static_cast<double>(uz), static_cast<double>(weight));
                    }
                }
            }
        }
    }
    m[0] = mx;
    m[1] = my;
    m[2] = mz;
}

// The force density along one axis [N/m^3]. The slip ratio s blends the no-slip term, which gives the sample's
// momentum to the fluid, with a term for the normal components only. U: sample velocity [lattice units],
// m: fluid momentum, Un and mn: their components along the normal n, rou: sample density.
DRELT_HOST_DEVICE double directForce(double s, float u0p, float rou0p, float N, float D, float U,
                                     float m, float Un, float mn, float n, float rou) {
    const float C = u0p * u0p * rou0p;
    const float noSlip = C * (U * rou - m) * N / D;
    const float normal = C * (Un * n * rou - mn * n) * N / D;
    return (1 - s) * static_cast<double>(noSlip) + static_cast<double>(normal) * s;
}

// Writes the force density of sample i. m: momentum of the fluid there, s: slip ratio.
DRELT_HOST_DEVICE void forceSample(const mlLagrangeBoundary* boundary, std::int64_t i, float mx,
                                   float my, float mz, double s, float N, float l0p, float rou0p,
                                   float u0k, mlVelocity3D<float> u0p) {
    const float Ux = (u0k / u0p.x) * boundary->ux[i];
    const float Uy = (u0k / u0p.y) * boundary->uy[i];
    const float Uz = (u0k / u0p.z) * boundary->uz[i];
    const float nX = boundary->normalx[i];
    const float nY = boundary->normaly[i];
    const float nZ = boundary->normalz[i];
    const float rou = boundary->rou[i].value;
    const float Un = Ux * nX + Uy * nY + Uz * nZ;
    const float mn = mx * nX + my * nY + mz * nZ;
    const float D = l0p * u0k * u0k;
    boundary->forcex[i] = directForce(s, u0p.x, rou0p, N, D, Ux, mx, Un, mn, nX, rou);
    boundary->forcey[i] = directForce(s, u0p.y, rou0p, N, D, Uy, my, Un, mn, nY, rou);
    boundary->forcez[i] = directForce(s, u0p.z, rou0p, N, D, Uz, mz, Un, mn, nZ, rou);
}

// Interpolates the fluid's momentum to a sample and computes its force by direct forcing (Uhlmann, J. Comput.
// Phys. 209, 2005, with one interpolation and one spreading per step). Reads the flow's raw momentum and the
// sample's position, velocity, normal and density. Writes the sample's force density, 0 for a sample outside
// the grid. Skips nodes of weight 0.
DRELT_KERNEL void mlInterpolateFluidForceKernel(LaunchIndex at, mlLagrangeBoundary* boundary,
                                                mlFlow* flow, double s, float N, float l0p,
                                                float rou0p, float u0k, mlVelocity3D<float> u0p,
                                                int R, long sx, long sy, long /*sz*/, long nx,
                                                long ny, long nz) {
    const std::int64_t i = (at.z * sy + at.y) * sx + at.x;
    if (i >= boundary->count) return;
    boundary->forcex[i] = 0.0;
    boundary->forcey[i] = 0.0;
    boundary->forcez[i] = 0.0;
    const GridPosition p = gridPosition(boundary, flow, i, N, l0p);
    if (!insideGrid(p, nx, ny, nz)) return;

    DeltaWeights wx, wy, wz;
    interpolationWeights(wx, p.x, nx, R);
    interpolationWeights(wy, p.y, ny, R);
    interpolationWeights(wz, p.z, nz, R);
    float m[3];
    interpolateMomentum<false>(flow, wx, wy, wz, nx, ny, m);
    if (m[0] != m[0] || m[1] != m[1] || m[2] != m[2]) {
        interpolateMomentum<true>(flow, wx, wy, wz, nx, ny, m);
    }
    forceSample(boundary, i, m[0], m[1], m[2], s, N, l0p, rou0p, u0k, u0p);
}

// The separation of a sample at X from node i in the spreading. The node's position is formed in metres, so
// that it is rounded like the sample's.
DRELT_HOST_DEVICE float spreadSeparation(float X, int i, float perMetre, float dx, float start) {
    return X - perMetre * ((static_cast<float>(i) * dx + start) - start);
}

// Weights of the spreading along one axis: nodes from floor(X) - R - 2 to floor(X) + R + 2 inside the grid.
DRELT_HOST_DEVICE void spreadWeights(DeltaWeights& axis, float X, long n, int R, float perMetre,
                                     float dx, float start) {
    const int base = static_cast<int>(std::floor(X));
    const int from = base - R - 2 > 0 ? base - R - 2 : 0;
    const int to = base + R + 3 < n ? base + R + 3 : static_cast<int>(n);
    mlDeltaWeights(axis, from, to, R, [&](int i) DRELT_LAMBDA_INLINE {
        return spreadSeparation(X, i, perMetre, dx, start);
    });
}

// The force that sample i puts on the grid [lattice units]. This undoes the conversion in directForce.
DRELT_HOST_DEVICE void spreadForce(const mlLagrangeBoundary* boundary, std::int64_t i, float N,
                                   float l0p, float rou0p, float u0k, mlVelocity3D<float> u0p,
                                   double& forcex, double& forcey, double& forcez) {
    const double G = static_cast<double>(N / l0p * N / l0p * boundary->sampleArea);
    const double H = static_cast<double>(l0p * u0k * u0k);
    forcex = G * ((H * boundary->forcex[i]) / static_cast<double>(u0p.x * u0p.x * N * rou0p));
    forcey = G * ((H * boundary->forcey[i]) / static_cast<double>(u0p.y * u0p.y * N * rou0p));
    forcez = G * ((H * boundary->forcez[i]) / static_cast<double>(u0p.z * u0p.z * N * rou0p));
}

// The nodes that one sample reaches, their weights, and the force to spread.
struct SpreadStencil {
    double forcex, forcey, forcez;  // lattice units
    DeltaWeights x, y, z;

    DRELT_HOST_DEVICE NodeBox box() const {
        return {x.first, y.first, z.first, x.first + x.count, y.first + y.count, z.first + z.count};
    }
};

// Forms the stencil of sample i. It has no nodes if the sample lies outside the grid.
DRELT_HOST_DEVICE void spreadStencil(SpreadStencil& stencil, const mlLagrangeBoundary* boundary,
                                     const mlFlow* flow, std::int64_t i, float N, float l0p,
                                     float rou0p, float u0k, mlVelocity3D<float> u0p, int R,
                                     long nx, long ny, long nz) {
    stencil.x.count = stencil.y.count = stencil.z.count = 0;
    stencil.x.first = stencil.y.first = stencil.z.first = 0;
    const GridPosition p = gridPosition(boundary, flow, i, N, l0p);
    if (!insideGrid(p, nx, ny, nz)) return;
    const float dx = flow->param->dx;
    spreadWeights(stencil.x, p.x, nx, R, N / l0p, dx, flow->startx);
    spreadWeights(stencil.y, p.y, ny, R, N / l0p, dx, flow->starty);
    spreadWeights(stencil.z, p.z, nz, R, N / l0p, dx, flow->startz);
    spreadForce(boundary, i, N, l0p, rou0p, u0k, u0p, stencil.forcex, stencil.forcey,
                stencil.forcez);
}

// Adds to a sum that other invocations of the launch may add to at the same time.
struct AtomicAdd {
    DRELT_HOST_DEVICE void operator()(double& sum, double term) const {
#if defined(__CUDA_ARCH__)
        atomicAdd(&sum, term);
#else
        sum += term;
#endif
    }
};

// Adds to a sum that no one else uses.
struct PlainAdd {
    DRELT_HOST_DEVICE void operator()(double& sum, double term) const { sum += term; }
};

// Adds one component of a stencil's force to the nodes of a box, k outermost and i innermost.
template <class Add>
DRELT_HOST_DEVICE void addComponent(const SpreadStencil& stencil, const NodeBox& box,
                                    double* forces, double force, std::int64_t nx, std::int64_t ny,
                                    Add add) {
    const float* const wx = stencil.x.weight + (box.x0 - stencil.x.first);
    const int count = box.x1 - box.x0;
    for (int k = box.z0; k < box.z1; ++k) {
        const float wz = stencil.z.weight[k - stencil.z.first];
        for (int j = box.y0; j < box.y1; ++j) {
            const float wy = stencil.y.weight[j - stencil.y.first];
            double* const row = forces + (k * ny + j) * nx + box.x0;
            for (int i = 0; i < count; ++i) {
                add(row[i], static_cast<double>(wx[i] * wy * wz) * force);
            }
        }
    }
}

// Adds a stencil's force to the nodes in the window, one component after the other. The three arrays often lie
// a multiple of 4,096 bytes apart, so their rows would evict each other from the first-level cache.
template <class Add>
DRELT_HOST_DEVICE void addStencil(const SpreadStencil& stencil, const NodeBox& window,
                                  const mlFlow* flow, std::int64_t nx, std::int64_t ny, Add add) {
    const NodeBox box = intersection(stencil.box(), window);
    addComponent(stencil, box, flow->forcex, stencil.forcex, nx, ny, add);
    addComponent(stencil, box, flow->forcey, stencil.forcey, nx, ny, add);
    addComponent(stencil, box, flow->forcez, stencil.forcez, nx, ny, add);
}

// Spreads the force of one sample to the flow's force arrays, in double precision. A GPU runs this operator.
// Host threads spread plane by plane (spreadOnHostThreads); on the host this operator must not run in
// parallel.
DRELT_KERNEL void mlSpreadForceKernel(LaunchIndex at, mlLagrangeBoundary* boundary, mlFlow* flow,
                                      float N, float l0p, float rou0p, float u0k,
                                      mlVelocity3D<float> u0p, int R, long sx, long sy, long /*sz*/,
                                      long nx, long ny, long nz) {
    const std::int64_t i = (at.z * sy + at.y) * sx + at.x;
    if (i >= boundary->count) return;
    SpreadStencil stencil;
    spreadStencil(stencil, boundary, flow, i, N, l0p, rou0p, u0k, u0p, R, nx, ny, nz);
    const NodeBox grid{0, 0, 0, static_cast<int>(nx), static_cast<int>(ny), static_cast<int>(nz)};
    addStencil(stencil, grid, flow, nx, ny, AtomicAdd{});
}

// The reference velocity, one value per axis [m/s].
inline mlVelocity3D<float> referenceVelocity(const mlUnitScale& scale) {
    return {scale.u0px, scale.u0py, scale.u0pz};
}

// Launches mlInterpolateFluidForceKernel for all samples of a device record. R is the number of points of the
// delta function. The slip ratio comes from the host's `param`.
void mlInterpolateFluidForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                             int sampleCount, const mlUnitScale& scale, int R);

// Launches mlSpreadForceKernel for all samples. On host threads every node receives the contributions in
// sample order, so the result is that of one loop for any number of threads.
void mlSpreadForce(mlFlow* flow, const MLFluidParam* param, mlLagrangeBoundary* boundary,
                   int sampleCount, const mlUnitScale& scale, int R, SpreadWorkspace& workspace);

}  // namespace drelt
