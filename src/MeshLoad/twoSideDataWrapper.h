// Data with a copy on the host and one on a device, and one dirty flag per side.
#pragma once

namespace drelt {

// Base of everything with a device side: names the device.
struct GpuCopyable {
    explicit GpuCopyable(int device) : gpuId(device) {}
    int gpuId;
};

// Pairs a Host value with a Device record of device pointers. hostDirty: the host side has changed and
// the device side is out of date. deviceDirty: the reverse.
template <class Host, class Device>
class twoSideDataWrapper : public GpuCopyable {
public:
    explicit twoSideDataWrapper(int device) : GpuCopyable(device) {}
    virtual ~twoSideDataWrapper() = default;
    twoSideDataWrapper(const twoSideDataWrapper&) = delete;
    twoSideDataWrapper& operator=(const twoSideDataWrapper&) = delete;

    virtual void allocateDevice() = 0;  // allocates and uploads everything
    virtual void copyToDevice() = 0;    // uploads what changes
    virtual void copyToHost() = 0;      // downloads what changes
    virtual void freeDevice() = 0;

    Host data_cpu{};
    Device data_gpu{};
    bool hostDirty = false;
    bool deviceDirty = false;
};

}  // namespace drelt
