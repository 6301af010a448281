#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"

#include "platform/check.h"

namespace drelt {

void mlCollideAddForceHighorderFiiting(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolumeByRows<&mlCollideAddForceHighorderFiitingKernel, &collideRow>(
        coveringShape(nodes, 32, 4, 1), nodes, flow, param->bodyAccely, nodes.x, nodes.y, nodes.z,
        nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
