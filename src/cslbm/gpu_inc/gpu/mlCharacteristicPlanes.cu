#include "cslbm/gpu_inc/gpu/mlCharacteristicPlanes.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Left_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Right_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Forward_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Back_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Up_Kernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCharacteristicPlane_Down_Kernel, Axes);
