// A group of samples on host threads, one lane per sample: the arithmetic of the operators in the same order,
// vectorised.
#pragma once

#include <cstdint>
#include <type_traits>

#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

// Marks the functions that take most of the time. A portable build compiles them for several instruction sets
// and chooses when it starts.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__AVX512F__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define DRELT_SAMPLE_CLONES
#define DRELT_SAMPLE_LOOP \
    __attribute__((noinline, target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define DRELT_SAMPLE_LOOP __attribute__((noinline))
#endif

namespace drelt {

inline constexpr int kSampleLanes = 16;
// Nodes along an axis that a delta function of up to four points reaches. For a sample at X, the first one is
// floor(X) - 1.
inline constexpr int kReach = 4;

// The arguments that both operators share.
struct SampleArguments {
    mlLagrangeBoundary* boundary;
    mlFlow* flow;
    int sampleCount;
    int nx, ny, nz;
    float N, l0p, rou0p, u0k;
    mlVelocity3D<float> u0p;
    int R;
};

inline SampleArguments sampleArguments(mlLagrangeBoundary* boundary, mlFlow* flow,
                                       const MLFluidParam* param, int sampleCount,
                                       const mlUnitScale& scale, int R) {
    return {boundary,
            flow,
            sampleCount,
            param->samples_x,
            param->samples_y,
            param->samples_z,
            scale.N,
            scale.l0p,
            scale.rou0p,
            scale.u0k,
            referenceVelocity(scale),
            R};
}

// The positions of a group's samples [lattice units], and the first node that each one reaches.
struct alignas(64) LanePositions {
    float x[kSampleLanes], y[kSampleLanes], z[kSampleLanes];
    int nodeX[kSampleLanes], nodeY[kSampleLanes], nodeZ[kSampleLanes];
    int inside
        [kSampleLanes];  // 1 if the sample takes part and all nodes within reach lie in the grid
};

// Fills the lanes with the samples first .. first + count - 1. Marks the other lanes as not inside.
DRELT_HOST_DEVICE void findPositions(LanePositions& at, const SampleArguments& a,
                                     std::int64_t first, int count) {
    for (int l = 0; l < kSampleLanes; ++l) at.x[l] = at.y[l] = at.z[l] = -1.0f;
#pragma omp simd
    for (int l = 0; l < count; ++l) {
        const GridPosition p = gridPosition(a.boundary, a.flow, first + l, a.N, a.l0p);
        at.x[l] = p.x;
        at.y[l] = p.y;
        at.z[l] = p.z;
    }
    const auto endX = static_cast<float>(a.nx - 2);
    const auto endY = static_cast<float>(a.ny - 2);
    const auto endZ = static_cast<float>(a.nz - 2);
#pragma omp simd
    for (int l = 0; l < kSampleLanes; ++l) {
        const int inside = static_cast<int>(at.x[l] >= 1.0f) & static_cast<int>(at.x[l] < endX) &
                           static_cast<int>(at.y[l] >= 1.0f) & static_cast<int>(at.y[l] < endY) &
                           static_cast<int>(at.z[l] >= 1.0f) & static_cast<int>(at.z[l] < endZ);
        at.inside[l] = inside;
        at.x[l] = inside != 0 ? at.x[l] : 1.0f;
        at.y[l] = inside != 0 ? at.y[l] : 1.0f;
        at.z[l] = inside != 0 ? at.z[l] : 1.0f;
        at.nodeX[l] = static_cast<int>(at.x[l]) - 1;
        at.nodeY[l] = static_cast<int>(at.y[l]) - 1;
        at.nodeZ[l] = static_cast<int>(at.z[l]) - 1;
    }
}

// Calls visit(R) with R as a compile-time constant, so that the delta functions vectorise. Passes 0 for an R
// without a delta function.
template <class Visit>
DRELT_HOST_DEVICE void withDelta(int R, Visit&& visit) {
    switch (R) {
        case 2: visit(std::integral_constant<int, 2>{}); break;
        case 3: visit(std::integral_constant<int, 3>{}); break;
        case 4: visit(std::integral_constant<int, 4>{}); break;
        default: visit(std::integral_constant<int, 0>{});
    }
}

// The interpolation weights of a group along one axis.
template <class R>
DRELT_HOST_DEVICE void weighAxis(float (&weight)[kReach][kSampleLanes],
                                 const float (&X)[kSampleLanes], const int (&node)[kSampleLanes],
                                 R) {
    for (int n = 0; n < kReach; ++n) {
#pragma omp simd
        for (int l = 0; l < kSampleLanes; ++l) {
            weight[n][l] = mlDelta(X[l] - static_cast<float>(node[l] + n), R::value);
        }
    }
}

}  // namespace drelt
