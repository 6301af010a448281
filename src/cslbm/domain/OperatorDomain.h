// A fluid domain under the operator schedule: all arrays of the flow record on the device, and one
// operator after the other.
#pragma once

#include "cslbm/domain/FluidDomain.h"

namespace drelt {

class OperatorDomain : public FluidDomain {
public:
    // Allocates the device side of a host record and uploads all its arrays. The record's parameters
    // must outlive the domain. A failing device call ends the process.
    explicit OperatorDomain(const mlFlow& host);
    ~OperatorDomain() override;

    // Device bytes per node.
    static double bytesPerNode();

    Schedule schedule() const override { return Schedule::Operators; }
    mlFlow* record() override { return record_; }
    void choose(const StepChoices& choices) override { choices_ = choices; }
    void prepareCoupling(const mlLagrangeBoundary*, int, const mlUnitScale&) override {}
    void step(const FrameMotion& motion) override;
    bool defersWaits() const override { return false; }
    bool holdsMoments() const override { return true; }
    void prepareMoments(const NodeBox*, int) override {}
    void syncToDevice(mlFlow& host) override;
    void syncToHost(mlFlow& host) override;
    void populationsToHost(mlFlow&) override {}
    void requireResettable(const mlFlow&) const override {}
    void reset(mlFlow& host, const Vector3<float>& velocity) override;
    void uploadForcesAndPml(const mlFlow& host) override;
    void setFluid(const mlFlow& fluid) override;
    void materialise(mlFlow& host) const override;
    void visitState(StateVisitor& state) override;
    bool readsHostPopulations() const override { return true; }

    // A copy of the device record on the host: its pointers are device addresses.
    const mlFlow& image() const { return image_; }

private:
    template <class... Fields>
    void upload(const mlFlow& host, Fields... fields) const;
    template <class... Fields>
    void download(mlFlow& host, Fields... fields) const;

    mlFlow image_{};
    mlFlow* record_ = nullptr;
    const MLFluidParam* param_;
    StepChoices choices_;
};

}  // namespace drelt
