#include "MeshLoad/MeshDatatGPUKernel.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::updateVerticesPosKernel, Flat);
