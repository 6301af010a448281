#include "SkeletonDynamics/skSystem_GPU.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::calExtForcesKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::assignExtForceKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::updateSampleVelKernel, Flat);
