#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"

#include "cslbm/gpu_inc/gpu/mlCollideAlternatives.h"
#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceHighorderFiitingKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceHighorderFitingPart1Kernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceHighorderKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideGpuKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuCollideCascade0_13Kernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCuCollideCascade14_26Kernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceTvcgDivKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceTvcg0_13Kernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceTvcg14_26Kernel, Flat);
