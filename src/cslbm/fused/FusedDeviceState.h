// What the production step of a device works on. Its kernels take it by value.
//
// Populations have the places that FusedState.h draws. A thread reads the 27 streamed populations of its node
// and writes to the 27 places that it has read, so no two threads of a launch share a place.
//
// All other fields are dense, [z][y][x]. Between two steps, density and momentum are those of the streamed
// populations with open planes applied, at all nodes, so interpolation and markers can read them. Only the
// populations of the open planes are pending: the next step copies them first. Until then the
// post-collision populations can be read.
#pragma once

#include "cslbm/fused/FusedState.h"

namespace drelt {

// Density and momentum at one time. A step begins with adding half of the spread force to the momentum.
// Half of the frame's inertial force is an acceleration, the same for all nodes.
struct DeviceMoments {
    float* rho;
    float* momentum[3];
    float halfAcceleration[3];
};

struct FusedDeviceState {
    // The kernels use neither `moments`, `before` and `depth` nor keepFrom and keepTo of it. sopt and
    // reference are dense.
    FusedState base;
    DeviceMoments now;
    DeviceMoments before;  // of the last step; used only with a layer
    bool shifted;          // the momentum already holds half of the spread force
};

}  // namespace drelt
