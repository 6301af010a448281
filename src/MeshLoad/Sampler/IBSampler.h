// Interface: places the Lagrangian points of the immersed boundary on a surface.
#pragma once

#include "MeshLoad/twoSideDataWrapper.h"

namespace drelt {

template <class Surface>
class IBSampler : public GpuCopyable {
public:
    explicit IBSampler(int device) : GpuCopyable(device) {}
    virtual ~IBSampler() = default;
    IBSampler(const IBSampler&) = delete;
    IBSampler& operator=(const IBSampler&) = delete;

    virtual void updateOnHost() = 0;    // samples from the host's surface
    virtual void updateOnDevice() = 0;  // samples from the device's surface
    virtual void allocateDevice() = 0;
    virtual void freeDevice() = 0;
    virtual void copyToDevice() = 0;
    virtual void copyToHost() = 0;
    virtual void generateSamples(int sampleNum) = 0;
    virtual void update(bool onDevice, bool fetch) = 0;
};

}  // namespace drelt
