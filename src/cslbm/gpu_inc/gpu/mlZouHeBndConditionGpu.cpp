#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"

#include <stdexcept>
#include <string>

#include "platform/check.h"

namespace drelt {
namespace {

void launchFace(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG face) {
    switch (face) {
        case ML_NODE_LEFT:
            return launchPlane<&mlCuBoundaryCondition_Left_KernelZouHe, 0>(flow, param);
        case ML_NODE_RIGHT:
            return launchPlane<&mlCuBoundaryCondition_Right_KernelZouHe, 0>(flow, param);
        case ML_NODE_UP: return launchPlane<&mlCuBoundaryCondition_Up_KernelZouHe, 1>(flow, param);
        case ML_NODE_DOWN:
            return launchPlane<&mlCuBoundaryCondition_Down_KernelZouHe, 1>(flow, param);
        case ML_NODE_FORWARD:
            return launchPlane<&mlCuBoundaryCondition_Forward_KernelZouHe, 2>(flow, param);
        case ML_NODE_BACK:
            return launchPlane<&mlCuBoundaryCondition_Back_KernelZouHe, 2>(flow, param);
        default:
            throw std::invalid_argument("mlBoundaryConditionZouHe: node class " +
                                        std::to_string(face) +
                                        " has no operator; give the class of a face");
    }
}

}  // namespace

void mlBoundaryConditionZouHe(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG face) {
    launchFace(flow, param, face);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
