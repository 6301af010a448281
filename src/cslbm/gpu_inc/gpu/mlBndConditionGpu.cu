#include "cslbm/gpu_inc/gpu/mlBndConditionGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Left_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Right_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Down_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Up_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Forward_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Back_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Solid_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlBndConditionOtherKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlBndConditionKernel, Flat);
