#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"

#include "platform/check.h"

namespace drelt {
namespace {

// One plane: block is 8 along the two free axes and 1 along the fixed one.
template <auto Op>
void launchPlane(LaunchExtent plane, LaunchExtent nodes, mlFlow* flow) {
    const auto block = [](int extent) { return extent == 1 ? 1u : 8u; };
    launchRange<Op>(coveringShape(plane, block(plane.x), block(plane.y), block(plane.z)), plane,
                    flow, nodes.x, nodes.y, nodes.z, nodes.x * nodes.y * nodes.z);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace

void mlBoundaryConditionNEE(mlFlow* flow, const MLFluidParam* param) {
    const LaunchExtent nodes{param->samples_x, param->samples_y, param->samples_z};
    const LaunchExtent planeX{1, nodes.y, nodes.z};
    const LaunchExtent planeY{nodes.x, 1, nodes.z};
    const LaunchExtent planeZ{nodes.x, nodes.y, 1};
    launchPlane<&mlCuBoundaryCondition_Left_KernelNEE>(planeX, nodes, flow);
    launchPlane<&mlCuBoundaryCondition_Right_KernelNEE>(planeX, nodes, flow);
    launchPlane<&mlCuBoundaryCondition_Forward_KernelNEE>(planeZ, nodes, flow);
    launchPlane<&mlCuBoundaryCondition_Back_KernelNEE>(planeZ, nodes, flow);
    launchPlane<&mlCuBoundaryCondition_Up_KernelNEE>(planeY, nodes, flow);
    launchPlane<&mlCuBoundaryCondition_Down_KernelNEE>(planeY, nodes, flow);
}

}  // namespace drelt
