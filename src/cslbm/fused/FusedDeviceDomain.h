// A fluid domain under the production schedule on a device, computed by launches: on a GPU or, one node
// after the other, on host threads. Host code touches none of its memory.
#pragma once

#include <vector>

#include "cslbm/fused/FusedDeviceState.h"
#include "cslbm/fused/ProductionDomain.h"

namespace drelt {

// A step is three launches, four with a layer. Under platform::DeferredWaits it waits for none of them.
// It allocates and copies nothing.
class FusedDeviceDomain : public ProductionDomain {
public:
    // As makeProductionDomain, on the device that is selected here and at every later call.
    FusedDeviceDomain(const MLFluidParam& param, float nu, float sigmaMax);
    ~FusedDeviceDomain() override;

    static double bytesPerNode(const MLFluidParam& param);

    void load(const mlFlow& host) override;
    void upload(const mlFlow& host) override;
    void resetLayer(const mlDensity<float>* rou) override;
    void setStepBefore(const mlFlow& fluid) override;
    void step(const FrameMotion& motion) override;
    mlFlow* record() override { return record_; }
    bool holdsMoments() const override { return true; }
    void prepareMoments(const NodeBox*, int) override {}
    // One launch per box.
    void announceForces(const NodeBox* boxes, int count) override;
    void prepareCoupling(const mlLagrangeBoundary* samples, int count,
                         const mlUnitScale& scale) override;
    void materialise(mlFlow& host) const override;
    void visitState(StateVisitor& state) override;
    void stateLoaded(bool hostNewer) override;
    std::size_t residentBytes() const override;
    const char* instructionSet() const override { return "device"; }

    // What the kernels work on, for their tests.
    const FusedDeviceState& state() const { return state_; }

private:
    bool stepped() const override { return state_.base.planesPending; }
    template <class T>
    T* allocate(std::size_t count);
    void allocateMoments(DeviceMoments& moments);
    void makeRecord(const MLFluidParam& param, float nu);
    template <auto Op, class... Args>
    void launchNodes(Args... args) const;
    void turnFrame(const FrameMotion& motion);
    void collide();
    void storePopulations(const mlFlow& host);
    void visitMoments(StateVisitor& state, DeviceMoments& moments) const;
    void dropForces() override;

    FusedDeviceState state_{};
    mlFlow* record_ = nullptr;
    float* reference_ = nullptr;  // null until a reset at a density other than 1
    std::size_t nodes_ = 0;
    std::vector<void*> arrays_;
};

}  // namespace drelt
