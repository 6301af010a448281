// The immersed boundary's launches on host threads.
#pragma once

#include <vector>

#include "cslbm/gpu_inc/gpuImmersed/SampleLanes.h"
#include "cslbm/gpu_inc/gpuImmersed/SampleWeights.h"
#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

namespace drelt {

// Do the work of mlInterpolateFluidForceKernel and mlSpreadForceKernel for all samples. The results have the
// same bits as those of one loop over the samples.
void interpolateOnHostThreads(const SampleArguments& a, double slip);
void spreadOnHostThreads(const SampleArguments& a, SpreadWorkspace& workspace);
// Does that of mlClearAreaKernel, mlSpreadAreaKernel and mlNormaliseForceKernel, for all boundaries. A sample
// sums over its nodes in another order.
void normaliseOnHostThreads(mlFlow* flow, const MLFluidParam* param, const AreaSums& sums,
                            const std::vector<WeighedSamples>& all, const mlUnitScale& scale, int R,
                            SpreadWorkspace& workspace);

}  // namespace drelt
