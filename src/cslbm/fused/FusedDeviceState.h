// What the production step of a device works on, passed to its kernels by value.
//
// Populations stand and move as in the sweeps of host threads, see FusedState.h: consecutive nodes of
// a row side by side, direction by direction. A thread reads the 27 streamed populations of its node
// and writes the 27 places that its own reads have freed, so no two threads of a launch share a place.
//
// All other fields are dense, [z][y][x]. Density and momentum are those of the streamed populations,
// open planes included, and complete between two steps: whoever gathers or samples finds them there.
// The planes' populations follow at the beginning of the next step, so that what the collision left
// behind can be read until then.
#pragma once

#include "cslbm/fused/FusedState.h"

namespace drelt {

// Density and momentum at one time. Where a force was spread, its half is added to the momentum at
// the beginning of a step; that of the frame's inertial force is an acceleration alike for all nodes.
struct DeviceMoments {
    float* rho;
    float* momentum[3];
    float halfAcceleration[3];
};

struct FusedDeviceState {
    // Of this, `moments`, `before`, `depth` and the populations kept at the ends of rows are not used;
    // sopt and reference are dense.
    FusedState base;
    DeviceMoments now;
    DeviceMoments before;  // of the last step: with a layer, else not used
    bool shifted;          // the momentum holds half of the spread force already
};

}  // namespace drelt
