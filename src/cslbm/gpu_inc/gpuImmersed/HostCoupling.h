// The immersed boundary's launches on host threads.
#pragma once

#include "cslbm/gpu_inc/gpuImmersed/SampleLanes.h"
#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

namespace drelt {

// Do the work of mlInterpolateFluidForceKernel and mlSpreadForceKernel for all samples. The results have the
// same bits as those of one loop over the samples.
void interpolateOnHostThreads(const SampleArguments& a, double slip);
void spreadOnHostThreads(const SampleArguments& a, SpreadWorkspace& workspace);

}  // namespace drelt
