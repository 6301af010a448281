#include "cslbm/fused/FusedDeviceDomain.h"

#include "cslbm/fused/FusedDeviceKernels.h"
#include "cslbm/fused/FusedDeviceTransfer.h"
#include "platform/launch_cuda.cuh"

// In the layer a node has more at hand than 128 registers hold.
template <>
inline constexpr int drelt::kBlockThreadsOf<&drelt::fusedCollideLayerKernel> = 128;
template <>
inline constexpr int drelt::kBlockThreadsOf<&drelt::fusedCollideWholeLayerKernel> = 128;

DRELT_INSTANTIATE_DEVICE(drelt::fusedPrepareKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedCollideKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedCollideLayerKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedCollideWholeKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedCollideWholeLayerKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedMomentsKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedRecordKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::fusedStartKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedRestKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedStoreKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedFetchKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedFetchPostKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedClearKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedMomentumKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedMarkBoxKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fusedMarkSampleKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::fusedDropForcesKernel, Axes);
