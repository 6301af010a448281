// Interpolation and force of samples on host threads, one group of samples at a time.
#include <type_traits>

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"
#include "cslbm/gpu_inc/gpuImmersed/SampleLanes.h"

namespace drelt {
namespace {

constexpr int kNodes = kReach * kReach * kReach;

// A group of samples: their weights per node (k outermost, i innermost) and their interpolated momentum.
struct alignas(64) InterpolationGroup {
    LanePositions at;
    float weight[kNodes][kSampleLanes];
    std::int64_t start[kSampleLanes];  // index of the first node within reach, -1 if not inside
    float mx[kSampleLanes], my[kSampleLanes], mz[kSampleLanes];
};

DRELT_HOST_DEVICE void findWeights(InterpolationGroup& g, int R) {
    alignas(64) float wx[kReach][kSampleLanes];
    alignas(64) float wy[kReach][kSampleLanes];
    alignas(64) float wz[kReach][kSampleLanes];
    withDelta(R, [&](auto points) DRELT_LAMBDA_INLINE {
        weighAxis(wx, g.at.x, g.at.nodeX, points);
        weighAxis(wy, g.at.y, g.at.nodeY, points);
        weighAxis(wz, g.at.z, g.at.nodeZ, points);
    });
    for (int c = 0; c < kReach; ++c) {
        for (int b = 0; b < kReach; ++b) {
            for (int a = 0; a < kReach; ++a) {
                float(&weight)[kSampleLanes] = g.weight[a + kReach * (b + kReach * c)];
#pragma omp simd
                for (int l = 0; l < kSampleLanes; ++l) weight[l] = wx[a][l] * wy[b][l] * wz[c][l];
            }
        }
    }
}

// The momentum of a box of nodes, in the order of the weights.
struct alignas(64) NodeMomentum {
    float x[kNodes], y[kNodes], z[kNodes];
};

// Loads the box that begins at node `start`.
DRELT_HOST_DEVICE void fetch(NodeMomentum& u, const mlFlow* flow, std::int64_t start,
                             std::int64_t nx, std::int64_t ny) {
    for (int c = 0; c < kReach; ++c) {
        for (int b = 0; b < kReach; ++b) {
            const std::int64_t from = start + (c * ny + b) * nx;
            const int to = kReach * (b + kReach * c);
            for (int a = 0; a < kReach; ++a) u.x[to + a] = flow->ux[from + a];
            for (int a = 0; a < kReach; ++a) u.y[to + a] = flow->uy[from + a];
            for (int a = 0; a < kReach; ++a) u.z[to + a] = flow->uz[from + a];
        }
    }
}

// Boxes of nodes that are summed at the same time, so that the latencies of their sums overlap.
constexpr int kTogether = 2;

// Forms the sums of the samples whose boxes begin at starts[b] and have the momentum u[b].
DRELT_HOST_DEVICE void sum(InterpolationGroup& g, const NodeMomentum (&u)[kTogether],
                           const std::int64_t (&starts)[kTogether]) {
    alignas(64) float mx[kTogether][kSampleLanes] = {};
    alignas(64) float my[kTogether][kSampleLanes] = {};
    alignas(64) float mz[kTogether][kSampleLanes] = {};
    for (int n = 0; n < kNodes; ++n) {
        for (int b = 0; b < kTogether; ++b) {
            const float ux = u[b].x[n];
            const float uy = u[b].y[n];
            const float uz = u[b].z[n];
#pragma omp simd
            for (int l = 0; l < kSampleLanes; ++l) {
                mx[b][l] = std::fma(g.weight[n][l], ux, mx[b][l]);
                my[b][l] = std::fma(g.weight[n][l], uy, my[b][l]);
                mz[b][l] = std::fma(g.weight[n][l], uz, mz[b][l]);
            }
        }
    }
    for (int b = 0; b < kTogether; ++b) {
#pragma omp simd
        for (int l = 0; l < kSampleLanes; ++l) {
            const bool here = g.start[l] == starts[b];
            g.mx[l] = here ? mx[b][l] : g.mx[l];
            g.my[l] = here ? my[b][l] : g.my[l];
            g.mz[l] = here ? mz[b][l] : g.mz[l];
        }
    }
}

// Forms the sums of all samples of a group, box by box: neighbouring samples often share a box.
DRELT_HOST_DEVICE void sumAll(InterpolationGroup& g, const SampleArguments& a) {
    NodeMomentum u[kTogether] = {};
    std::int64_t starts[kTogether];
    unsigned left = 0;
    for (int l = 0; l < kSampleLanes; ++l) left |= static_cast<unsigned>(g.at.inside[l]) << l;
    while (left != 0) {
        for (int b = 0; b < kTogether; ++b) {
            if (left == 0) {
                starts[b] = -2;  // matches no sample
                continue;
            }
            starts[b] = g.start[__builtin_ctz(left)];
            for (int l = 0; l < kSampleLanes; ++l) {
                left &= ~(static_cast<unsigned>(g.start[l] == starts[b]) << l);
            }
            fetch(u[b], a.flow, starts[b], a.nx, a.ny);
        }
        sum(g, u, starts);
    }
}

// Runs the operator for one sample.
DRELT_HOST_DEVICE void forceOne(const SampleArguments& a, double slip, std::int64_t i) {
    mlInterpolateFluidForceKernel({static_cast<int>(i), 0, 0, i}, a.boundary, a.flow, slip, a.N,
                                  a.l0p, a.rou0p, a.u0k, a.u0p, a.R, a.sampleCount, 1, 1, a.nx,
                                  a.ny, a.nz);
}

DRELT_SAMPLE_LOOP void forceGroup(InterpolationGroup& g, const SampleArguments& a, double slip,
                                  std::int64_t first, int count) {
    findPositions(g.at, a, first, count);
    findWeights(g, a.R);
#pragma omp simd
    for (int l = 0; l < kSampleLanes; ++l) {
        g.start[l] =
            g.at.inside[l] != 0
                ? (static_cast<std::int64_t>(g.at.nodeZ[l]) * a.ny + g.at.nodeY[l]) * a.nx +
                      g.at.nodeX[l]
                : -1;
        g.mx[l] = 0.0f;
        g.my[l] = 0.0f;
        g.mz[l] = 0.0f;
    }
    sumAll(g, a);
#pragma omp simd
    for (int l = 0; l < count; ++l) {
        forceSample(a.boundary, first + l, g.mx[l], g.my[l], g.mz[l], slip, a.N, a.l0p, a.rou0p,
                    a.u0k, a.u0p);
    }
    // The operator treats the other samples. It also treats samples whose sum is not a number: it skips
    // nodes of weight 0 and reports the others.
    for (int l = 0; l < count; ++l) {
        const float all = g.mx[l] + g.my[l] + g.mz[l];
        if (g.at.inside[l] != 0 && all == all) continue;
        forceOne(a, slip, first + l);
    }
}

// Whether the hardware fuses multiply-adds. Without it, one library call per lane would cost more than the
// operator does.
bool fusesInHardware() {
#if !defined(__x86_64__) || defined(__FMA__) || defined(__SANITIZE_ADDRESS__)
    return true;  // sanitizers should see the groups, too
#elif defined(DRELT_SAMPLE_CLONES)
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
#else
    return false;
#endif
}

}  // namespace

void interpolateOnHostThreads(const SampleArguments& a, double slip) {
    const platform::HostAccess access;
    const bool byGroups = fusesInHardware();
    const int groups = (a.sampleCount + kSampleLanes - 1) / kSampleLanes;
#pragma omp parallel if (a.sampleCount >= platform::kWorthThreadsEach)
    {
        FlushDenormals flush;
        InterpolationGroup group;
#pragma omp for schedule(static)
        for (int g = 0; g < groups; ++g) {
            const int first = g * kSampleLanes;
            const int left = a.sampleCount - first;
            const int count = left < kSampleLanes ? left : kSampleLanes;
            if (byGroups) {
                forceGroup(group, a, slip, first, count);
            } else {
                for (int l = 0; l < count; ++l) forceOne(a, slip, first + l);
            }
        }
    }
}

}  // namespace drelt
