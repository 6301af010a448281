#include "cslbm/fused/FusedDeviceDomain.h"

#include "cslbm/fused/FusedDeviceKernels.h"
#include "cslbm/fused/FusedDeviceTransfer.h"
#include "platform/launch_cuda.cuh"

// The collisions with a layer need more than the 128 registers per thread that larger blocks would leave.
template <>
inline constexpr int drelt::kBlockThreadsOf<&drelt::fused_device::collideLayerKernel> = 128;
template <>
inline constexpr int drelt::kBlockThreadsOf<&drelt::fused_device::collideWholeLayerKernel> = 128;

DRELT_INSTANTIATE_DEVICE(drelt::fused_device::prepareKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::collideKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::collideLayerKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::collideWholeKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::collideWholeLayerKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::momentsKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::recordKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::startKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::uniformKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::storeKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::fetchKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::fetchPostKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::clearKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::momentumKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::markBoxKernel, Axes);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::markSampleKernel, Flat);
DRELT_INSTANTIATE_DEVICE(drelt::fused_device::dropForcesKernel, Axes);
