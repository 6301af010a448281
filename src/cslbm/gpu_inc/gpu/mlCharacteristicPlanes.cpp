#include "cslbm/gpu_inc/gpu/mlCharacteristicPlanes.h"

#include "platform/check.h"

namespace drelt {
namespace {

template <auto Op, int Axis>
void launchChecked(mlFlow* flow, const MLFluidParam* param, const OpenPlanes& planes) {
    launchPlane<Op, Axis>(flow, param, planes);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace

void mlCharacteristicPlanes(mlFlow* flow, const MLFluidParam* param, const OpenPlanes& planes) {
    launchChecked<&mlCharacteristicPlane_Left_Kernel, 0>(flow, param, planes);
    launchChecked<&mlCharacteristicPlane_Right_Kernel, 0>(flow, param, planes);
    launchChecked<&mlCharacteristicPlane_Forward_Kernel, 2>(flow, param, planes);
    launchChecked<&mlCharacteristicPlane_Back_Kernel, 2>(flow, param, planes);
    launchChecked<&mlCharacteristicPlane_Up_Kernel, 1>(flow, param, planes);
    launchChecked<&mlCharacteristicPlane_Down_Kernel, 1>(flow, param, planes);
}

}  // namespace drelt
