// The absorbing layer along the faces of the box (after Najafi-Yazdi and Mongeau, Comput. Fluids 68 (2012)
// 203). It subtracts a term from the post-collision populations. The term contains the deviation of the local
// equilibrium from a state at rest, the mean Q of this deviation over two time levels, and the derivative of
// Q along each direction. The damping is isotropic, with one strength per node.
#pragma once

#include "cslbm/PML/PMLScheme.h"
#include "cslbm/gpu_inc/gpu/mlProductEquilibrium.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlLattice.h"
#include "platform/launch.h"

namespace drelt {

namespace detail {

template <class D>
inline constexpr float lengthOf = directionLength(D::x* D::x + D::y * D::y + D::z * D::z);

// The distance in memory from a node to its neighbour in direction D.
template <class D>
DRELT_HOST_DEVICE std::int64_t directionShift(int nx, int ny) {
    return D::x + nx * (D::y + static_cast<std::int64_t>(ny) * D::z);
}

// One direction of each operator. The operators below loop over the directions.

template <class D>
DRELT_HOST_DEVICE void deviationAlong(D d, std::int64_t n, mlFlow* flow) {
    const std::int64_t entry = D::index * flow->count + n;
    const float equilibrium =
        productEquilibrium(d, flow->rou[n].value, flow->ux[n], flow->uy[n], flow->uz[n]);
    const float deviation = equilibrium - flow->fEqBar[entry];
    flow->fEqTilde[entry] = deviation;
    flow->Q[entry] = (flow->fEqTildeOld[entry] + deviation) * 0.5f;
}

// The central difference of Q, for nodes with all neighbours in the grid.
template <class D>
DRELT_HOST_DEVICE void innerDerivativeAlong(D, std::int64_t n, mlFlow* flow, int nx, int ny) {
    const float* const Q = flow->Q + D::index * flow->count + n;
    float* const cNQ = flow->cNQ + D::index * flow->count + n;
    if constexpr (D::index == 0) {
        *cNQ = 0.0f;
    } else {
        const std::int64_t shift = directionShift<D>(nx, ny);
        *cNQ = static_cast<float>((Q[shift] - Q[-shift]) * 0.5 / static_cast<double>(lengthOf<D>));
    }
}

// On the outermost plane, only directions that leave the grid have a derivative, and it is one-sided. The
// derivatives of all others are multiplied by 0.
template <class D>
DRELT_HOST_DEVICE void outerDerivativeAlong(D, const LaunchIndex& at, mlFlow* flow, int nx, int ny,
                                            int nz) {
    const float* const Q = flow->Q + D::index * flow->count + at.n;
    float* const cNQ = flow->cNQ + D::index * flow->count + at.n;
    if constexpr (D::index == 0) {
        *cNQ = 0.0f;
    } else {
        const auto inside = [&](int x, int y, int z) DRELT_LAMBDA_INLINE {
            return x >= 0 && x < nx && y >= 0 && y < ny && z >= 0 && z < nz;
        };
        const bool forward = inside(at.x + D::x, at.y + D::y, at.z + D::z);
        const bool backward = inside(at.x - D::x, at.y - D::y, at.z - D::z);
        const std::int64_t shift = directionShift<D>(nx, ny);
        const float c = forward && backward ? 0.5f : 1.0f;
        // With conditional loads instead of indices, a vector of nodes loads contiguous memory.
        float ahead = *Q;
        float behind = ahead;
        if (forward) ahead = Q[shift];
        if (backward) behind = Q[-shift];
        *cNQ = c / lengthOf<D> * (ahead - behind) * (forward ? 0.0f : 1.0f);
    }
}

template <class D>
DRELT_HOST_DEVICE void absorbAlong(D, std::int64_t n, mlFlow* flow) {
    const std::int64_t entry = D::index * flow->count + n;
    const float sigma = flow->sigma[n];
    flow->fPost[entry] -=
        sigma * (sigma * flow->Q[entry] + (2.0f * flow->fEqTilde[entry] + flow->cNQ[entry]));
}

template <class D>
DRELT_HOST_DEVICE void advanceAlong(D, std::int64_t n, mlFlow* flow) {
    const std::int64_t entry = D::index * flow->count + n;
    flow->fEqTildeOld[entry] = flow->fEqTilde[entry];
}

// Whether nodes of a type lie on the outermost plane: those in the layer, and always the box's corners.
DRELT_HOST_DEVICE bool isOuter(PML_TYPE type) { return type != PML_INTERIOR && type != PML_NONE; }

// Calls body(first, length) for each run of nodes of a row whose type passes the test.
template <class Test, class Body>
DRELT_HOST_DEVICE void forEachRun(const LaunchIndex& first, int length, const mlFlow* flow,
                                  Test&& test, Body&& body) {
    const PML_TYPE* const type = flow->PML_type + first.n;
    for (int begin = 0; begin < length;) {
        int end = begin;
        while (end < length && test(type[end])) ++end;
        if (end > begin) {
            body(LaunchIndex{first.x + begin, first.y, first.z, first.n + begin}, end - begin);
        }
        begin = end + 1;
    }
}

}  // namespace detail

// Forms fEqTilde = equilibrium - fEqBar and Q, its mean over two time levels, at every node. Reads rou,
// ux uy uz (velocities), fEqBar, fEqTildeOld. Run after the collision.
DRELT_KERNEL void PML_CalQFeqTildeKernel(LaunchIndex at, mlFlow* flow) {
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE { detail::deviationAlong(d, at.n, flow); });
}

// Forms cNQ by central differences at nodes of type PML_INTERIOR.
DRELT_KERNEL void PML_CalcNQInternalKernel(LaunchIndex at, mlFlow* flow) {
    if (flow->PML_type[at.n] != PML_INTERIOR) return;
    const int nx = flow->param->samples_x;
    const int ny = flow->param->samples_y;
    forEachDirection(
        [&](auto d) DRELT_LAMBDA_INLINE { detail::innerDerivativeAlong(d, at.n, flow, nx, ny); });
}

// Forms cNQ by the one-sided rule at the nodes of the outermost plane.
DRELT_KERNEL void PML_CalcNQBoundaryKernel(LaunchIndex at, mlFlow* flow) {
    if (!detail::isOuter(flow->PML_type[at.n])) return;
    const MLFluidParam* const param = flow->param;
    const int nx = param->samples_x;
    const int ny = param->samples_y;
    const int nz = param->samples_z;
    forEachDirection(
        [&](auto d) DRELT_LAMBDA_INLINE { detail::outerDerivativeAlong(d, at, flow, nx, ny, nz); });
}

// Subtracts sigma (sigma Q + 2 fEqTilde + cNQ) from fPost in the layer, and sets fEqTildeOld = fEqTilde at
// every node.
DRELT_KERNEL void PML_CollisionKernel(LaunchIndex at, mlFlow* flow) {
    if (flow->PML_type[at.n] != PML_NONE) {
        forEachDirection([&](auto d) DRELT_LAMBDA_INLINE { detail::absorbAlong(d, at.n, flow); });
    }
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE { detail::advanceAlong(d, at.n, flow); });
}

// The same operators for a row of nodes. They skip runs of nodes outside the layer.

DRELT_HOST_ROW void deviationRow(LaunchIndex first, int length, mlFlow* flow) {
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        forEachInRow(first, length, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
            detail::deviationAlong(d, at.n, flow);
        });
    });
}

DRELT_HOST_ROW void innerDerivativeRow(LaunchIndex first, int length, mlFlow* flow) {
    const int nx = flow->param->samples_x;
    const int ny = flow->param->samples_y;
    detail::forEachRun(
        first, length, flow, [](PML_TYPE type) DRELT_LAMBDA_INLINE { return type == PML_INTERIOR; },
        [&](const LaunchIndex& start, int run) DRELT_LAMBDA_INLINE {
            forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
                forEachInRow(start, run, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
                    detail::innerDerivativeAlong(d, at.n, flow, nx, ny);
                });
            });
        });
}

DRELT_HOST_ROW void outerDerivativeRow(LaunchIndex first, int length, mlFlow* flow) {
    const int nx = flow->param->samples_x;
    const int ny = flow->param->samples_y;
    const int nz = flow->param->samples_z;
    detail::forEachRun(
        first, length, flow,
        [](PML_TYPE type) DRELT_LAMBDA_INLINE { return detail::isOuter(type); },
        [&](const LaunchIndex& start, int run) DRELT_LAMBDA_INLINE {
            forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
                forEachInRow(start, run, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
                    detail::outerDerivativeAlong(d, at, flow, nx, ny, nz);
                });
            });
        });
}

DRELT_HOST_ROW void absorbRow(LaunchIndex first, int length, mlFlow* flow) {
    detail::forEachRun(
        first, length, flow, [](PML_TYPE type) DRELT_LAMBDA_INLINE { return type != PML_NONE; },
        [&](const LaunchIndex& start, int run) DRELT_LAMBDA_INLINE {
            forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
                forEachInRow(start, run, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
                    detail::absorbAlong(d, at.n, flow);
                });
            });
        });
    forEachDirection([&](auto d) DRELT_LAMBDA_INLINE {
        forEachInRow(first, length, [&](const LaunchIndex& at) DRELT_LAMBDA_INLINE {
            detail::advanceAlong(d, at.n, flow);
        });
    });
}

// Launches the four operators over the domain of a device record, in the order above.
void PML_Operation(mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
