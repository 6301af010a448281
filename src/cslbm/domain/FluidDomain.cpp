#include "cslbm/domain/FluidDomain.h"

#include "supplement/MLCuMemcpy.h"
#include "supplement/StateVisitor.h"

namespace drelt {

void FluidDomain::visitState(StateVisitor& state) {
    state.deviceArray("origin", &record()->startx, 3);
}

mlFlow FluidDomain::originToHost(mlFlow& host) {
    mlFlow device{};
    _MLCuMemcpy(&device, record(), sizeof(mlFlow), cudaMemcpyDeviceToHost);
    host.startx = device.startx;
    host.starty = device.starty;
    host.startz = device.startz;
    return device;
}

void FluidDomain::originToDevice(const mlFlow& host) {
    _MLCuMemcpy(&record()->startx, &host.startx, 3 * sizeof(float), cudaMemcpyHostToDevice);
}

}  // namespace drelt
