#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"

#include <cstddef>

#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"
#include "platform/check.h"
#include "supplement/IBBoundaryMemMgr.h"

namespace drelt {

void mlImmersedSolver::spreadBoundaries(mlFlow* flow_dev, const MLFluidParam* param) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        mlLagrangeBoundary* const record = boundary->mllaboundary_gpu;
        const int sampleCount = boundary->mllaboundary->count;
        mlInterpolateFluidForce(flow_dev, param, record, sampleCount, scale, ibKernelSelector);
        mlSpreadForce(flow_dev, param, record, sampleCount, scale, ibKernelSelector, workspace_);
    }
}

void mlImmersedSolver::sampleNodes(const mlFlow& flow, const MLFluidParam& param,
                                   std::vector<NodeIndex>& nodes) const {
    std::size_t total = 0;
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        total += static_cast<std::size_t>(boundary->mllaboundary->count);
    }
    nodes.resize(total);
    NodeIndex* to = nodes.data();
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        const mlLagrangeBoundary* const record = boundary->mllaboundary_gpu;
        const int count = boundary->mllaboundary->count;
#pragma omp parallel if (count >= platform::kWorthThreads)
        {
            FlushDenormals flush;  // as the operators do: a sample is inside for both or for none
#pragma omp for schedule(static)
            for (int i = 0; i < count; ++i) {
                const GridPosition p = gridPosition(record, &flow, i, scale.N, scale.l0p);
                if (insideGrid(p, param.samples_x, param.samples_y, param.samples_z)) {
                    to[i] = {static_cast<int>(p.x), static_cast<int>(p.y), static_cast<int>(p.z)};
                } else {
                    to[i] = {-1, 0, 0};
                }
            }
        }
        to += count;
    }
}

}  // namespace drelt
