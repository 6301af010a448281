#include "cslbm/gpu_inc/gpu/mlStreamGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCuStream3dOptKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::mmlStreamChangeInletGpuKernel, Axes);
