#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"

#include <stdexcept>
#include <string>

#include "platform/check.h"

namespace drelt {
namespace {

void launchFlagged(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG which) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    switch (which) {
        case ML_NODE_LEFT: return launchPlane<&mlCuBoundaryCondition_Left_Kernel, 0>(flow, param);
        case ML_NODE_RIGHT: return launchPlane<&mlCuBoundaryCondition_Right_Kernel, 0>(flow, param);
        case ML_NODE_DOWN: return launchPlane<&mlCuBoundaryCondition_Down_Kernel, 1>(flow, param);
        case ML_NODE_UP: return launchPlane<&mlCuBoundaryCondition_Up_Kernel, 1>(flow, param);
        case ML_NODE_FORWARD:
            return launchPlane<&mlCuBoundaryCondition_Forward_Kernel, 2>(flow, param);
        case ML_NODE_BACK: return launchPlane<&mlCuBoundaryCondition_Back_Kernel, 2>(flow, param);
        case ML_NODE_SOLID:
            return launchRange<&mlCuBoundaryCondition_Solid_Kernel>(
                coveringShape(nodes, 8, 8, 8), nodes, flow, nodes.x, nodes.y, nodes.z,
                nodes.x * nodes.y * nodes.z);
        default:
            throw std::invalid_argument(
                "mlBoundaryConditionFlag: node class " + std::to_string(which) +
                " has no operator; give the class of a face or ML_NODE_SOLID");
    }
}

}  // namespace

void mlBoundaryConditionFlag(mlFlow* flow, const MLFluidParam* param, MLLATTICENODE_FLAG which) {
    launchFlagged(flow, param, which);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlBndConditionOther(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchRange<&mlBndConditionOtherKernel>(coveringShape(nodes, 8, 8, 8), nodes, flow, nodes.x,
                                            nodes.y, nodes.z, nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void mlBndCondition(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    launchVolume<&mlBndConditionKernel>(coveringShape(nodes, 32, 4, 1), nodes, flow, nodes.x,
                                        nodes.y, nodes.z, nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
