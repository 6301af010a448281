#include "cslbm/gpu_inc/gpuImmersed/mlImmersedBoundaryGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlInterpolateFluidForceKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::mlSpreadForceKernel, Axes);
