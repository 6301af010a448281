#include "cslbm/gpu_inc/gpu/mlCollideGpu.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlCollideAddForceHighorderFiitingKernel, Flat);
