#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"

#include "platform/check.h"

namespace drelt {

void mlCuStream3dOpt(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolumeByRows<&mlCuStream3dOptKernel, &streamRow>(coveringShape(nodes, 32, 16, 1), nodes,
                                                           flow, nodes.x, nodes.y, nodes.z,
                                                           nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mmlStreamChangeInlet(mlFlow* flow, const MLFluidParam* param, bool enable) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    const long nx = nodes.x;
    const long ny = nodes.y;
    const long nz = nodes.z;
    launchRange<&mmlStreamChangeInletGpuKernel>(coveringShape(nodes, 8, 8, 8), nodes, flow, 0.0f,
                                                0.0f, 0.0f, 0.0f, enable, nx, ny, nz);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
