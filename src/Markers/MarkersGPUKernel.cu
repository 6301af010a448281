#include "Markers/MarkersGPUKernel.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::copyMarkersPosNormalGPUKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::getMarkersPropertiesGPUKernel, Flat);
