// The immersed boundary's launches on host threads.
#pragma once

#include "cslbm/gpu_inc/gpuImmersed/SampleLanes.h"
#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

namespace drelt {

// mlInterpolateFluidForceKernel for all samples, with its bits.
void gatherOnHostThreads(const SampleArguments& a, double slip);

// mlSpreadForceKernel for all samples, with the bits of one loop over them.
void spreadOnHostThreads(const SampleArguments& a, SpreadWorkspace& workspace);

}  // namespace drelt
