#include "cslbm/PML/PMLOperation.h"

#include "platform/check.h"

namespace drelt {
namespace {

void check() {
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace

void PML_Operation(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    const LaunchShape shape = coveringShape(nodes, 32, 16, 1);
    launchVolumeByRows<&PML_CalQFeqTildeKernel, &deviationRow>(shape, nodes, flow);
    check();
    launchVolumeByRows<&PML_CalcNQInternalKernel, &innerDerivativeRow>(shape, nodes, flow);
    check();
    launchVolumeByRows<&PML_CalcNQBoundaryKernel, &outerDerivativeRow>(shape, nodes, flow);
    check();
    launchVolumeByRows<&PML_CollisionKernel, &absorbRow>(shape, nodes, flow);
    check();
}

}  // namespace drelt
