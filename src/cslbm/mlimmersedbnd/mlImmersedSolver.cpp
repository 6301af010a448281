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

void mlImmersedSolver::interpolateForces(mlFlow* flow_dev, const MLFluidParam* param) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        mlInterpolateFluidForce(flow_dev, param, boundary->mllaboundary_gpu,
                                boundary->mllaboundary->count, scale, ibKernelSelector);
    }
}

void mlImmersedSolver::spreadForces(mlFlow* flow_dev, const MLFluidParam* param) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    for (const IBBoundaryMemMgr* boundary : boundaries) {
        mlSpreadForce(flow_dev, param, boundary->mllaboundary_gpu, boundary->mllaboundary->count,
                      scale, ibKernelSelector, workspace_);
    }
}

void mlImmersedSolver::normaliseForces(mlFlow* flow_dev, const MLFluidParam* param) {
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    std::vector<WeighedSamples> all;
    for (IBBoundaryMemMgr* boundary : boundaries) {
        boundary->reserveWeights();
        all.push_back(
            {boundary->mllaboundary_gpu, boundary->mllaboundary->count, boundary->weights_dev});
    }
    mlNormaliseForces(flow_dev, param, all, scale, ibKernelSelector, areas_.reserve(*param),
                      workspace_);
}

void mlImmersedSolver::dropWeights() {
    for (IBBoundaryMemMgr* boundary : boundaries) boundary->dropWeights();
}

}  // namespace drelt
