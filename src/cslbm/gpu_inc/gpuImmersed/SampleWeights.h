// Normalised weights of samples (after Pinelli, Naqavi, Piomelli and Favier, J. Comput. Phys. 229, 2010, in the
// lumped form of one number per sample). Spreading the samples' areas and interpolating them back gives, at
// each sample, the share of its slip that forcing by area would take away. A sample's force divided by this
// share takes away all of a slip that varies slowly along the surface, however densely samples stand and
// however many skins overlap.
#pragma once

#include <vector>

#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

namespace drelt {

// The samples of one boundary, and where their weights go: over the weight of the area alone, 0 outside the
// grid. Device pointers.
struct WeighedSamples {
    mlLagrangeBoundary* boundary;
    int count;
    double* weights;
};

// The area of a sample [node spacings squared].
DRELT_HOST_DEVICE double latticeArea(const mlLagrangeBoundary* boundary, float N, float l0p) {
    const double perMetre = static_cast<double>(N) / static_cast<double>(l0p);
    return perMetre * perMetre * static_cast<double>(boundary->sampleArea);
}

// Sums over areas at the nodes of a grid. Rows stand `pitch` apart, which leaves room behind each row.
struct AreaSums {
    static constexpr int kRoom = 8;

    double* nodes;
    std::int64_t pitch;
    int nx, ny, nz;

    DRELT_HOST_DEVICE double* row(int y, int z) const {
        return nodes + (static_cast<std::int64_t>(z) * ny + y) * pitch;
    }
};

// The nodes that a sample reaches: those of the interpolation of momentum.
struct AreaStencil {
    DeltaWeights x, y, z;
};

// Forms the stencil of sample i. False if the sample lies outside the grid.
DRELT_HOST_DEVICE bool areaStencil(AreaStencil& stencil, const mlLagrangeBoundary* boundary,
                                   const mlFlow* flow, std::int64_t i, const AreaSums& sums,
                                   float N, float l0p, int R) {
    const GridPosition p = gridPosition(boundary, flow, i, N, l0p);
    if (!insideGrid(p, sums.nx, sums.ny, sums.nz)) return false;
    interpolationWeights(stencil.x, p.x, sums.nx, R);
    interpolationWeights(stencil.y, p.y, sums.ny, R);
    interpolationWeights(stencil.z, p.z, sums.nz, R);
    return true;
}

// Calls visit(node, weight) for the nodes of a stencil, k outermost and i innermost.
template <class Visit>
DRELT_HOST_DEVICE void forEachNode(const AreaStencil& s, const AreaSums& sums, Visit&& visit) {
    for (int c = 0; c < s.z.count; ++c) {
        for (int b = 0; b < s.y.count; ++b) {
            double* const row = sums.row(s.y.first + b, s.z.first + c) + s.x.first;
            const float yz = s.y.weight[b] * s.z.weight[c];
            for (int a = 0; a < s.x.count; ++a)
                visit(row[a], static_cast<double>(s.x.weight[a] * yz));
        }
    }
}

// Sets the nodes that sample i reaches to 0. For all samples of all boundaries, before the areas are spread.
DRELT_KERNEL void mlClearAreaKernel(LaunchIndex at, const mlLagrangeBoundary* boundary,
                                    const mlFlow* flow, AreaSums sums, int sampleCount, float N,
                                    float l0p, int R) {
    AreaStencil stencil;
    if (at.n >= sampleCount || !areaStencil(stencil, boundary, flow, at.n, sums, N, l0p, R)) return;
    forEachNode(stencil, sums, [](double& node, double) DRELT_LAMBDA_INLINE { node = 0.0; });
}

// Spreads the area of sample i.
DRELT_KERNEL void mlSpreadAreaKernel(LaunchIndex at, const mlLagrangeBoundary* boundary,
                                     const mlFlow* flow, AreaSums sums, int sampleCount, float N,
                                     float l0p, int R) {
    AreaStencil stencil;
    if (at.n >= sampleCount || !areaStencil(stencil, boundary, flow, at.n, sums, N, l0p, R)) return;
    const double area = latticeArea(boundary, N, l0p);
    forEachNode(stencil, sums, [&](double& node, double weight) DRELT_LAMBDA_INLINE {
        AtomicAdd{}(node, weight * area);
    });
}

// The weight for the share g that the sums give a sample, and the sample's force times this weight. A delta
// function without nodes gives 0.
DRELT_HOST_DEVICE void normaliseForce(mlLagrangeBoundary* boundary, std::int64_t i, double g,
                                      double* weights) {
    const double weight = g > 0.0 ? 1.0 / g : 0.0;
    weights[i] = weight;
    boundary->forcex[i] *= weight;
    boundary->forcey[i] *= weight;
    boundary->forcez[i] *= weight;
}

// Interpolates the sums of all boundaries to sample i, and gives the sample its weight.
DRELT_KERNEL void mlNormaliseForceKernel(LaunchIndex at, mlLagrangeBoundary* boundary,
                                         const mlFlow* flow, AreaSums sums, double* weights,
                                         int sampleCount, float N, float l0p, int R) {
    if (at.n >= sampleCount) return;
    double g = 0.0;
    AreaStencil stencil;
    if (areaStencil(stencil, boundary, flow, at.n, sums, N, l0p, R)) {
        forEachNode(stencil, sums, [&](const double& node, double weight) DRELT_LAMBDA_INLINE {
            g += weight * node;
        });
    }
    normaliseForce(boundary, at.n, g, weights);
}

// Runs the three operators over the samples of all boundaries of a domain, with the samples where the
// interpolation found them. `nodes` are those of a NodeSums for the domain. On host threads every node
// receives the areas in the order of the samples, so the result does not depend on the number of threads.
void mlNormaliseForces(mlFlow* flow, const MLFluidParam* param,
                       const std::vector<WeighedSamples>& all, const mlUnitScale& scale, int R,
                       double* nodes, SpreadWorkspace& workspace);

// Device memory for the sums of a domain. Samples touch it near their places only.
class NodeSums {
public:
    NodeSums() = default;
    ~NodeSums() { release(); }
    NodeSums(const NodeSums&) = delete;
    NodeSums& operator=(const NodeSums&) = delete;

    static double bytes(const MLFluidParam& param);
    // The sums of a domain on the selected device; not cleared.
    double* reserve(const MLFluidParam& param);

private:
    void release();

    double* nodes_ = nullptr;
    std::size_t size_ = 0;
    int device_ = 0;
};

// The same weights for samples that stand alone in open space, in the order of the given positions [node
// spacings] and areas [node spacings squared]. For checks before there is a grid; costs a second for 100,000
// samples.
std::vector<double> weightsInOpenSpace(const std::vector<Vector3<float>>& positions,
                                       const std::vector<double>& areas, int R);

}  // namespace drelt
