#include "cslbm/gpu_inc/gpuImmersed/SampleWeights.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlClearAreaKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlSpreadAreaKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mlNormaliseForceKernel, Flat);
