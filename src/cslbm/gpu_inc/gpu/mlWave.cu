#include "cslbm/gpu_inc/gpu/mlWave.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::mlWaveKernel, Flat);
