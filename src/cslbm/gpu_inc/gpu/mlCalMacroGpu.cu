#include "cslbm/gpu_inc/gpu/mlCalMacroGpuOther.h"
#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlSetFlowCenterKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlAddForcetoUOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCalOneOrderMomentOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCalOneOrderMomentKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlAddForcetoUKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlRestoreUOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCalMacroGpuKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlCopyFTildeKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlCalForceTermKernel, Axes);
