#include "cslbm/PML/PMLOperation.h"

#include "platform/launch_cuda.cuh"

DRELT_INSTANTIATE_DEVICE(drelt::PML_CalQFeqTildeKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::PML_CalcNQInternalKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::PML_CalcNQBoundaryKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::PML_CollisionKernel, Flat);
