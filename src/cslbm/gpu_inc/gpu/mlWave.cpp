#include "cslbm/gpu_inc/gpu/mlWave.h"

#include "platform/check.h"

namespace drelt {

void mlWave(mlFlow* flow, const MLFluidParam* param) {
    launchLinear<&mlWaveKernel>(LaunchShape{1, 1, 1, 1, 1, 1}, 1, flow, param->samples_x,
                                param->samples_y, param->samples_z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
