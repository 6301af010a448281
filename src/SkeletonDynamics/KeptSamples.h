// The places of a body's samples at the time of their forces, for sums that may be asked for later.
#pragma once

#include <vector>

#include "SkeletonDynamics/skLinkData.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"

namespace drelt {

class IBBoundaryMemMgr;

// A step in ONE_WAY needs no sums of forces. They are formed only if a script asks, from the forces, which the
// samples keep until the next step, and from the places of that step, which are kept here: samples move at
// the end of a step.
class KeptSamples {
public:
    KeptSamples() = default;
    ~KeptSamples();
    KeptSamples(const KeptSamples&) = delete;
    KeptSamples& operator=(const KeptSamples&) = delete;

    // Copies the places of all samples within the selected device, without waiting.
    void keep(const IBBoundaryMemMgr& samples);
    // Writes the wrench of the samples' forces into each record, as applyFluidForce would. labels: the
    // samples' links; scale: node spacing [m].
    void sum(const IBBoundaryMemMgr& samples, const std::vector<int>& labels, float scale,
             std::vector<skLinkData>& records) const;

private:
    float* places_dev_ = nullptr;  // x of all samples, then y, then z
    int count_ = 0, room_ = 0;
};

}  // namespace drelt
