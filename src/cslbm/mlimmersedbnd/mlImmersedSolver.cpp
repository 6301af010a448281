#include "cslbm/mlimmersedbnd/mlImmersedSolver.h"

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

void mlImmersedSolver::sampleReach(const mlFlow& flow, const MLFluidParam& param,
                                   std::vector<NodeBox>& reach) const {
    constexpr int kBelow =
        2;  // a delta function of four points reaches 1 below; one more for rounding
    constexpr int kAbove = 4;
    reach.clear();
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        const mlLagrangeBoundary& record = *boundary->mllaboundary_gpu;
        for (int i = 0; i < record.count; ++i) {
            const GridPosition p = gridPosition(&record, &flow, i, scale.N, scale.l0p);
            if (!insideGrid(p, param.samples_x, param.samples_y, param.samples_z)) continue;
            const int x = static_cast<int>(p.x);
            const int y = static_cast<int>(p.y);
            const int z = static_cast<int>(p.z);
            reach.push_back(
                {x - kBelow, y - kBelow, z - kBelow, x + kAbove, y + kAbove, z + kAbove});
        }
    }
}

}  // namespace drelt
