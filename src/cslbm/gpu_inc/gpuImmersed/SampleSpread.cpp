// Spreading on host threads. First, the threads form the stencils, in parallel over samples. Then they add
// them, in parallel over planes of nodes. Each plane takes its samples in their order and adds to its own
// nodes only, so the order of every node's sum is fixed. Consecutive samples that reach the same nodes of a
// plane are added in registers.
#if defined(__AVX512F__)
#include <immintrin.h>
#endif

#include <climits>
#include <cmath>
#include <type_traits>

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"

namespace drelt {
namespace {

constexpr int kRow = SpreadSample::kRow;
// Rows of stencils begin at a multiple of kHalf, or at nx - kRow if they would not fit otherwise.
constexpr int kHalf = kRow / 2;

// The first of the kRow nodes of a stencil's rows.
DRELT_HOST_DEVICE int stencilStart(int firstNode, int nx) {
    const int start = firstNode / kHalf * kHalf;
    return start + kRow <= nx ? start : nx - kRow;
}

// Fills a record from the operator's stencil.
void fillRecord(SpreadSample& to, const SpreadStencil& from, int nx) {
    to.z0 = to.planes = to.rows = 0;
    if (from.box().empty()) return;
    to.z0 = from.z.first;
    to.planes = from.z.count;
    const double size = from.forcex * 0.0 + from.forcey * 0.0 + from.forcez * 0.0;
    // A force that is not finite, times the weight 0 of a node out of reach, would not be a number.
    if (nx < kRow || from.x.count > SpreadSample::kMost || from.y.count > SpreadSample::kMost ||
        from.z.count > SpreadSample::kMost || size != 0.0)
        return;
    to.rows = from.y.count;
    to.y0 = from.y.first;
    to.x0 = stencilStart(from.x.first, nx);
    for (float& weight : to.x) weight = 0.0f;
    for (int i = 0; i < from.x.count; ++i) to.x[from.x.first - to.x0 + i] = from.x.weight[i];
    for (int i = 0; i < from.y.count; ++i) to.y[i] = from.y.weight[i];
    for (int i = 0; i < from.z.count; ++i) to.z[i] = from.z.weight[i];
    to.force[0] = from.forcex;
    to.force[1] = from.forcey;
    to.force[2] = from.forcez;
}

// The weights of a group along one axis. Clears `plain` for samples whose weights may reach further nodes.
template <class R>
DRELT_HOST_DEVICE void weigh(float (&weight)[kReach][kSampleLanes], int (&plain)[kSampleLanes],
                             const float (&X)[kSampleLanes], const int (&node)[kSampleLanes],
                             float perMetre, float dx, float start, R) {
    for (int n = 0; n < kReach; ++n) {
#pragma omp simd
        for (int l = 0; l < kSampleLanes; ++l) {
            const float r = spreadSeparation(X[l], node[l] + n, perMetre, dx, start);
            weight[n][l] = mlDelta(r, R::value);
        }
    }
#pragma omp simd
    for (int l = 0; l < kSampleLanes; ++l) {
        const float before = spreadSeparation(X[l], node[l] - 1, perMetre, dx, start);
        const float after = spreadSeparation(X[l], node[l] + kReach, perMetre, dx, start);
        plain[l] &= static_cast<int>(before >= 2.0f) & static_cast<int>(after <= -2.0f);
    }
}

// A group of samples: weights along the axes, and forces.
struct alignas(64) SpreadGroup {
    LanePositions at;
    float x[kReach][kSampleLanes], y[kReach][kSampleLanes], z[kReach][kSampleLanes];
    double force[3][kSampleLanes];
};

DRELT_HOST_DEVICE void findWeights(SpreadGroup& g, const SampleArguments& a) {
    const float perMetre = a.N / a.l0p;
    const float dx = a.flow->param->dx;
    withDelta(a.R, [&](auto points) DRELT_LAMBDA_INLINE {
        weigh(g.x, g.at.inside, g.at.x, g.at.nodeX, perMetre, dx, a.flow->startx, points);
        weigh(g.y, g.at.inside, g.at.y, g.at.nodeY, perMetre, dx, a.flow->starty, points);
        weigh(g.z, g.at.inside, g.at.z, g.at.nodeZ, perMetre, dx, a.flow->startz, points);
    });
}

// Fills the records of a group's samples.
DRELT_SAMPLE_LOOP void formGroup(SpreadGroup& g, const SampleArguments& a, int first, int count,
                                 SpreadSample* samples) {
    findPositions(g.at, a, first, count);
    findWeights(g, a);
#pragma omp simd
    for (int l = 0; l < count; ++l) {
        double x, y, z;
        spreadForce(a.boundary, first + l, a.N, a.l0p, a.rou0p, a.u0k, a.u0p, x, y, z);
        g.force[0][l] = x;
        g.force[1][l] = y;
        g.force[2][l] = z;
        g.at.inside[l] &= static_cast<int>(x * 0.0 + y * 0.0 + z * 0.0 == 0.0);
    }
    for (int l = 0; l < count; ++l) {
        SpreadSample& to = samples[first + l];
        if (g.at.inside[l] == 0 || a.nx < kRow) {
            SpreadStencil stencil;
            spreadStencil(stencil, a.boundary, a.flow, first + l, a.N, a.l0p, a.rou0p, a.u0k, a.u0p,
                          a.R, a.nx, a.ny, a.nz);
            fillRecord(to, stencil, a.nx);
            continue;
        }
        to.x0 = stencilStart(g.at.nodeX[l], a.nx);
        to.y0 = g.at.nodeY[l];
        to.z0 = g.at.nodeZ[l];
        to.rows = to.planes = kReach;
        for (float& weight : to.x) weight = 0.0f;
        float* const x = to.x + (g.at.nodeX[l] - to.x0);
        for (int n = 0; n < kReach; ++n) {
            x[n] = g.x[n][l];
            to.y[n] = g.y[n][l];
            to.z[n] = g.z[n][l];
        }
        for (int c = 0; c < 3; ++c) to.force[c] = g.force[c][l];
    }
}

using Row __attribute__((vector_size(8 * kRow))) = double;
using Weights __attribute__((vector_size(4 * kRow))) = float;
using LooseWeights __attribute__((vector_size(4 * kRow), aligned(4), may_alias)) = float;
using Half __attribute__((vector_size(8 * kHalf))) = double;
using LooseHalf __attribute__((vector_size(8 * kHalf), aligned(8), may_alias)) = double;

DRELT_HOST_DEVICE Row widened(Weights weights) {
#if defined(__AVX512F__)
    // GCC's own conversion works in quarters, and the form without a mask draws a warning.
    return (Row)_mm512_maskz_cvtps_pd(static_cast<__mmask8>(0xff), (__m256)weights);
#else
    return __builtin_convertvector(weights, Row);
#endif
}

// Rows are loaded and stored in halves. Except at the high end of x, rows of two samples overlap in whole
// halves, so a load does not wait for parts of two stores.
DRELT_HOST_DEVICE Row loadRow(const double* from) {
    const Half low = *reinterpret_cast<const LooseHalf*>(from);
    const Half high = *reinterpret_cast<const LooseHalf*>(from + kHalf);
    return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
}
DRELT_HOST_DEVICE void storeRow(double* to, Row row) {
    *reinterpret_cast<LooseHalf*>(to) = __builtin_shufflevector(row, row, 0, 1, 2, 3);
    *reinterpret_cast<LooseHalf*>(to + kHalf) = __builtin_shufflevector(row, row, 4, 5, 6, 7);
}

// The force arrays of a plane.
struct Plane {
    double* force[3];
    std::ptrdiff_t nx;
    int z;
};

// Adds a run of samples to a plane: sample s of the list, and the samples right after it that reach the same
// nodes. Adds `Rows` rows of their stencils, from row `from` on. Returns the place after the run.
template <int Rows>
DRELT_HOST_DEVICE int addRun(const Plane& plane, const SpreadSample* samples, const int* list,
                             int s, int end, int from) {
    const SpreadSample* sample = samples + list[s];
    const int x0 = sample->x0;
    const int y0 = sample->y0;
    const int rows = sample->rows;
    const std::ptrdiff_t start = (y0 + from) * plane.nx + x0;
    Row sum[3][Rows];
    for (int c = 0; c < 3; ++c) {
        for (int r = 0; r < Rows; ++r) sum[c][r] = loadRow(plane.force[c] + start + r * plane.nx);
    }
    do {
        const Weights x = *reinterpret_cast<const LooseWeights*>(sample->x);
        const float z = sample->z[plane.z - sample->z0];
        for (int r = 0; r < Rows; ++r) {
            const Row weight = widened(x * sample->y[from + r] * z);
            for (int c = 0; c < 3; ++c) sum[c][r] += weight * sample->force[c];
        }
        if (++s == end) break;
        sample = samples + list[s];
    } while (sample->x0 == x0 && sample->y0 == y0 && sample->rows == rows);
    for (int c = 0; c < 3; ++c) {
        for (int r = 0; r < Rows; ++r) storeRow(plane.force[c] + start + r * plane.nx, sum[c][r]);
    }
    return s;
}

// Adds the samples of a plane.
DRELT_SAMPLE_LOOP void addPlane(const SampleArguments& a, const SpreadSample* samples,
                                const int* list, int begin, int end, int z) {
    const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(z) * a.ny * a.nx;
    const Plane plane{
        {a.flow->forcex + first, a.flow->forcey + first, a.flow->forcez + first}, a.nx, z};
    for (int s = begin; s < end;) {
        const int rows = samples[list[s]].rows;
        if (rows == kReach) {
            s = addRun<kReach>(plane, samples, list, s, end, 0);
        } else if (rows > 0) {
            int next = s;
            for (int r = 0; r < rows; ++r) next = addRun<1>(plane, samples, list, s, end, r);
            s = next;
        } else {
            SpreadStencil stencil;
            spreadStencil(stencil, a.boundary, a.flow, list[s], a.N, a.l0p, a.rou0p, a.u0k, a.u0p,
                          a.R, a.nx, a.ny, a.nz);
            addStencil(stencil, {0, 0, z, a.nx, a.ny, z + 1}, a.flow, a.nx, a.ny, PlainAdd{});
            ++s;
        }
    }
}

}  // namespace

void spreadOnHostThreads(const SampleArguments& a, SpreadWorkspace& workspace) {
    const platform::HostAccess access;
    workspace.reserve(a.sampleCount);
    SpreadSample* const samples = workspace.samples();
    const int groups = (a.sampleCount + kSampleLanes - 1) / kSampleLanes;
    int z0 = INT_MAX, z1 = 0;
#pragma omp parallel if (a.sampleCount >= platform::kWorthThreadsEach)
    {
        FlushDenormals flush;
        SpreadGroup group;
#pragma omp for schedule(static) reduction(min : z0) reduction(max : z1)
        for (int g = 0; g < groups; ++g) {
            const int first = g * kSampleLanes;
            const int left = a.sampleCount - first;
            const int count = left < kSampleLanes ? left : kSampleLanes;
            formGroup(group, a, first, count, samples);
            for (int i = first; i < first + count; ++i) {
                const int from = samples[i].planes == 0 ? z0 : samples[i].z0;
                const int to = samples[i].planes == 0 ? z1 : samples[i].z0 + samples[i].planes;
                z0 = from < z0 ? from : z0;
                z1 = to > z1 ? to : z1;
            }
        }
    }
    if (z0 >= z1) return;
    workspace.sortByPlane(z0, z1, a.sampleCount);
    const int* const list = workspace.list();
#pragma omp parallel if (a.sampleCount >= platform::kWorthThreadsEach)
    {
        FlushDenormals flush;
#pragma omp for schedule(dynamic)
        for (int z = z0; z < z1; ++z) {
            addPlane(a, samples, list, workspace.begin(z), workspace.end(z), z);
        }
    }
}

}  // namespace drelt
