// Normalised weights on host threads. First, the threads form the stencils of all samples. Then they clear
// and add the areas, in parallel over planes of nodes: each plane takes its samples in their order, so the
// order of every node's sum is fixed. Last, each sample sums over its nodes.
#include <climits>

#include "cslbm/gpu_inc/gpuImmersed/HostCoupling.h"

namespace drelt {
namespace {

constexpr int kRow = SpreadSample::kRow;
static_assert(kRow <= AreaSums::kRoom, "a row of a stencil may end behind the grid");

// A group of samples and their weights along the axes.
struct alignas(64) AreaGroup {
    LanePositions at;
    float x[kReach][kSampleLanes], y[kReach][kSampleLanes], z[kReach][kSampleLanes];
};

// Fills the record of a sample that the lanes do not treat.
void fillRecord(SpreadSample& to, const SampleArguments& a, const AreaSums& sums, std::int64_t i) {
    AreaStencil stencil;
    to.planes = to.rows = 0;
    if (!areaStencil(stencil, a.boundary, a.flow, i, sums, a.N, a.l0p, a.R)) return;
    to.x0 = stencil.x.first;
    to.y0 = stencil.y.first;
    to.z0 = stencil.z.first;
    to.rows = stencil.y.count;
    to.planes = stencil.z.count;
    for (int n = 0; n < kRow; ++n) to.x[n] = n < stencil.x.count ? stencil.x.weight[n] : 0.0f;
    for (int n = 0; n < to.rows; ++n) to.y[n] = stencil.y.weight[n];
    for (int n = 0; n < to.planes; ++n) to.z[n] = stencil.z.weight[n];
}

DRELT_SAMPLE_LOOP void formGroup(AreaGroup& g, const SampleArguments& a, const AreaSums& sums,
                                 int first, int count, SpreadSample* samples) {
    findPositions(g.at, a, first, count);
    withDelta(a.R, [&](auto points) DRELT_LAMBDA_INLINE {
        weighAxis(g.x, g.at.x, g.at.nodeX, points);
        weighAxis(g.y, g.at.y, g.at.nodeY, points);
        weighAxis(g.z, g.at.z, g.at.nodeZ, points);
    });
    for (int l = 0; l < count; ++l) {
        SpreadSample& to = samples[l];
        to.force[0] = latticeArea(a.boundary, a.N, a.l0p);
        if (g.at.inside[l] == 0) {
            fillRecord(to, a, sums, first + l);
            continue;
        }
        to.x0 = g.at.nodeX[l];
        to.y0 = g.at.nodeY[l];
        to.z0 = g.at.nodeZ[l];
        to.rows = to.planes = kReach;
        for (int n = 0; n < kRow; ++n) to.x[n] = n < kReach ? g.x[n][l] : 0.0f;
        for (int n = 0; n < kReach; ++n) {
            to.y[n] = g.y[n][l];
            to.z[n] = g.z[n][l];
        }
    }
}

// Calls visit(node, weight) for the nodes of a row, vectorised; nodes behind the stencil have weight 0.
template <class Visit>
DRELT_HOST_DEVICE void forEachInRowOf(const SpreadSample& s, const AreaSums& sums, int row, int z,
                                      Visit&& visit) {
    double* const nodes = sums.row(s.y0 + row, z) + s.x0;
    const float yz = s.y[row] * s.z[z - s.z0];
#pragma omp simd
    for (int n = 0; n < kRow; ++n) visit(n, nodes[n], static_cast<double>(s.x[n] * yz));
}

// Sums the areas of the samples that reach a plane.
DRELT_SAMPLE_LOOP void sumPlane(const AreaSums& sums, const SpreadSample* samples, const int* list,
                                int begin, int end, int z) {
    for (int s = begin; s < end; ++s) {
        const SpreadSample& sample = samples[list[s]];
        for (int r = 0; r < sample.rows; ++r)
            forEachInRowOf(sample, sums, r, z,
                           [](int, double& node, double) DRELT_LAMBDA_INLINE { node = 0.0; });
    }
    for (int s = begin; s < end; ++s) {
        const SpreadSample& sample = samples[list[s]];
        for (int r = 0; r < sample.rows; ++r)
            forEachInRowOf(sample, sums, r, z,
                           [&](int, double& node, double weight)
                               DRELT_LAMBDA_INLINE { node += weight * sample.force[0]; });
    }
}

// The share of sample s, 0 outside the grid.
DRELT_SAMPLE_LOOP double shareOf(const SpreadSample& s, const AreaSums& sums) {
    double lanes[kRow] = {};
    for (int c = 0; c < s.planes; ++c) {
        for (int r = 0; r < s.rows; ++r)
            forEachInRowOf(s, sums, r, s.z0 + c,
                           [&](int n, const double& node, double weight)
                               DRELT_LAMBDA_INLINE { lanes[n] += weight * node; });
    }
    double sum = 0;
    for (const double lane : lanes) sum += lane;
    return sum;
}

// The planes that samples reach; none if z0 >= z1.
struct PlaneRange {
    int z0 = INT_MAX, z1 = 0;

    void take(const SpreadSample& sample) {
        if (sample.planes == 0) return;
        z0 = sample.z0 < z0 ? sample.z0 : z0;
        z1 = sample.z0 + sample.planes > z1 ? sample.z0 + sample.planes : z1;
    }
    void take(const PlaneRange& other) {
        z0 = other.z0 < z0 ? other.z0 : z0;
        z1 = other.z1 > z1 ? other.z1 : z1;
    }
};
#pragma omp declare reduction(join:PlaneRange : omp_out.take(omp_in))

// Forms the records of a boundary's samples.
void formStencils(const SampleArguments& a, const AreaSums& sums, SpreadSample* samples,
                  PlaneRange& planes) {
    const int groups = (a.sampleCount + kSampleLanes - 1) / kSampleLanes;
#pragma omp parallel if (a.sampleCount >= platform::kWorthThreadsEach)
    {
        FlushDenormals flush;
        AreaGroup group;
#pragma omp for schedule(static) reduction(join : planes)
        for (int g = 0; g < groups; ++g) {
            const int first = g * kSampleLanes;
            const int left = a.sampleCount - first;
            const int count = left < kSampleLanes ? left : kSampleLanes;
            formGroup(group, a, sums, first, count, samples + first);
            for (int i = first; i < first + count; ++i) planes.take(samples[i]);
        }
    }
}

}  // namespace

void normaliseOnHostThreads(mlFlow* flow, const MLFluidParam* param, const AreaSums& sums,
                            const std::vector<WeighedSamples>& all, const mlUnitScale& scale, int R,
                            SpreadWorkspace& workspace) {
    const platform::HostAccess access;
    int total = 0;
    for (const WeighedSamples& s : all) total += s.count;
    workspace.reserve(total);
    SpreadSample* const samples = workspace.samples();
    PlaneRange planes;
    int start = 0;
    for (const WeighedSamples& s : all) {
        formStencils(sampleArguments(s.boundary, flow, param, s.count, scale, R), sums,
                     samples + start, planes);
        start += s.count;
    }
    if (planes.z0 < planes.z1) {
        workspace.sortByPlane(planes.z0, planes.z1, total);
        const int* const list = workspace.list();
#pragma omp parallel if (total >= platform::kWorthThreadsEach)
        {
            FlushDenormals flush;
#pragma omp for schedule(dynamic)
            for (int z = planes.z0; z < planes.z1; ++z)
                sumPlane(sums, samples, list, workspace.begin(z), workspace.end(z), z);
        }
    }
    start = 0;
    for (const WeighedSamples& s : all) {
#pragma omp parallel if (s.count >= platform::kWorthThreadsEach)
        {
            FlushDenormals flush;
#pragma omp for schedule(static)
            for (int i = 0; i < s.count; ++i)
                normaliseForce(s.boundary, i, shareOf(samples[start + i], sums), s.weights);
        }
        start += s.count;
    }
}

}  // namespace drelt
