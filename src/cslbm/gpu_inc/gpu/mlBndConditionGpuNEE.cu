#include "cslbm/gpu_inc/gpu/mlBndConditionGpuNEE.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Left_KernelNEE, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Right_KernelNEE, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Forward_KernelNEE, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Back_KernelNEE, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Up_KernelNEE, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Down_KernelNEE, Axes);
