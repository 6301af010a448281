#include "MeshLoad/Sampler/IBSamplerMeshGpuKernel.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::updateSamplesPosNormalKernel, Flat);
