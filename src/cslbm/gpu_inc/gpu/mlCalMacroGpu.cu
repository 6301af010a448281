#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlSetFlowCenterKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlAddForcetoUOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCalOneOrderMomentOptKernel, Flat);
