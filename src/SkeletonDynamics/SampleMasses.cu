#include "SkeletonDynamics/SampleMasses.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::sampleMassKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::correctSampleForceKernel, Flat);
