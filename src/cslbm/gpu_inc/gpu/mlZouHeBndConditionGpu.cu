#include "cslbm/gpu_inc/gpu/mlZouHeBndConditionGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Left_KernelZouHe, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Right_KernelZouHe, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Up_KernelZouHe, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Down_KernelZouHe, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Forward_KernelZouHe, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuBoundaryCondition_Back_KernelZouHe, Axes);
