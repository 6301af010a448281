#include "bandwidth.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::bench::scaleKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::bench::copyKernel, Flat);
