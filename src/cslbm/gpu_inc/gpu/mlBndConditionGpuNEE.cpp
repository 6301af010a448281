#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"

#include "cslbm/gpu_inc/gpu/mlBoxFace.h"
#include "platform/check.h"

namespace drelt {
namespace {

template <auto Op, int Axis>
void launchChecked(mlFlow* flow, const MLFluidParam* param) {
    launchPlane<Op, Axis>(flow, param);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace

void mlBoundaryConditionNEE(mlFlow* flow, const MLFluidParam* param) {
    launchChecked<&mlCuBoundaryCondition_Left_KernelNEE, 0>(flow, param);
    launchChecked<&mlCuBoundaryCondition_Right_KernelNEE, 0>(flow, param);
    launchChecked<&mlCuBoundaryCondition_Forward_KernelNEE, 2>(flow, param);
    launchChecked<&mlCuBoundaryCondition_Back_KernelNEE, 2>(flow, param);
    launchChecked<&mlCuBoundaryCondition_Up_KernelNEE, 1>(flow, param);
    launchChecked<&mlCuBoundaryCondition_Down_KernelNEE, 1>(flow, param);
}

}  // namespace drelt
