#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"

#include "cslbm/gpu_inc/gpu/mlCollideAlternatives.h"
#include "platform/check.h"

namespace drelt {

namespace {

// Launches an operator with flat node indices in blocks of 32 x 4 x 1. It takes `args`, then the four sizes.
template <auto Op, auto RowOp, class... Args>
void launchNodes(mlFlow* flow, const MLFluidParam* param, Args... args) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolumeByRows<Op, RowOp>(coveringShape(nodes, 32, 4, 1), nodes, flow, args..., nodes.x,
                                  nodes.y, nodes.z, nodes.x * nodes.y * nodes.z);
}

}  // namespace

void mlCollideAddForceHighorderFiiting(mlFlow* flow, const MLFluidParam* param) {
    launchNodes<&mlCollideAddForceHighorderFiitingKernel, &collideRow>(flow, param,
                                                                       param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideAddForceHighorderFitingPart1(mlFlow* flow, const MLFluidParam* param) {
    launchNodes<&mlCollideAddForceHighorderFitingPart1Kernel, &collideProbedRow>(flow, param,
                                                                                 param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideAddForceHighorder(mlFlow* flow, const MLFluidParam* param) {
    launchNodes<&mlCollideAddForceHighorderKernel, &collideHighorderRow>(flow, param);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideGpu(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchRangeByRows<&mlCollideGpuKernel, &collidePlainRow>(coveringShape(nodes, 8, 8, 4), nodes,
                                                             flow);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideAddForce(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchRangeByRows<&mlCollideAddForceKernel, &collideForcedRow>(
        coveringShape(nodes, 8, 8, 4), nodes, flow, param->bodyAccely, std::int64_t{nodes.x},
        std::int64_t{nodes.y}, std::int64_t{nodes.z});
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideAddForceOpt(mlFlow* flow, const MLFluidParam* param) {
    launchNodes<&mlCollideAddForceOptKernel, &relaxCascadeRow>(flow, param, param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    launchNodes<&mlCuCollideCascade0_13Kernel, &rebuildFirstHalfRow>(flow, param,
                                                                     param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    launchNodes<&mlCuCollideCascade14_26Kernel, &rebuildSecondHalfRow>(flow, param,
                                                                       param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlCollideAddForceTvcg(mlFlow* flow, const MLFluidParam* param) {
    launchNodes<&mlCollideAddForceTvcgDivKernel, &relaxPolynomialRow>(flow, param,
                                                                      param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    launchNodes<&mlCollideAddForceTvcg0_13Kernel, &rebuildFirstHalfRow>(flow, param,
                                                                        param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
    launchNodes<&mlCollideAddForceTvcg14_26Kernel, &rebuildSecondHalfRow>(flow, param,
                                                                          param->bodyAccely);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
