#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"

#include "cslbm/gpu_inc/gpu/mlCalMacroGpuOther.h"
#include "platform/check.h"

namespace drelt {

void mlSetFlowCenter(mlFlow* flow, float cx, float cy, float cz) {
    launchLinear<&mlSetFlowCenterKernel>(LaunchShape{1, 1, 1, 1, 1, 1}, 1, flow, cx, cy, cz);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlAddForcetoUOpt(mlFlow* flow, const MLFluidParam* param, float velocityScale,
                      const Eigen::Vector3d& lengthScale, const Eigen::Vector3d& linearAcceleration,
                      const Eigen::Vector3d& angularVelocity,
                      const Eigen::Vector3d& angularAcceleration, const FrameTransform& transform) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolume<&mlAddForcetoUOptKernel>(coveringShape(nodes, 32, 4, 1), nodes, flow, nodes.x,
                                          nodes.y, nodes.z, nodes.x * nodes.y * nodes.z,
                                          velocityScale, lengthScale, linearAcceleration,
                                          angularVelocity, angularAcceleration, transform);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCalOneOrderMomentOpt(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolume<&mlCalOneOrderMomentOptKernel>(coveringShape(nodes, 32, 4, 1), nodes, flow,
                                                nodes.x, nodes.y, nodes.z,
                                                nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlRestoreUOpt(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolume<&mlRestoreUOptKernel>(coveringShape(nodes, 32, 4, 1), nodes, flow, nodes.x,
                                       nodes.y, nodes.z, nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCalMacroGpu(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchRange<&mlCalMacroGpuKernel>(coveringShape(nodes, 8, 8, 8), nodes, flow);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCopyFTilde(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolumeByRows<&mlCopyFTildeKernel, &copyFTildeRow>(coveringShape(nodes, 32, 4, 1), nodes,
                                                            flow, nodes.x, nodes.y, nodes.z,
                                                            nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCalForceTerm(mlFlow* flow, const MLFluidParam* param, bool wallJets, bool inletVelocity,
                    float phase) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchRange<&mlCalForceTermKernel>(coveringShape(nodes, 8, 8, 8), nodes, flow, wallJets,
                                       inletVelocity, phase);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
