// Numbers of the absorbing layer that both schedules use. The operators of the layer are in
// PMLOperation.h. The forms of the production schedule are in FusedLayer.h and FusedDeviceLayer.h; they
// recompute from density and velocity what the operators keep in arrays.
#pragma once

#include "platform/launch.h"

namespace drelt {

// Length of a direction vector from its square, in single precision.
constexpr float directionLength(int squared) {
    return squared == 3 ? 1.7320508f : (squared == 2 ? 1.4142135f : 1.0f);
}
// Its inverse; 0 for the rest direction, which has no derivative.
constexpr float inverseDirectionLength(int squared) {
    return squared == 0 ? 0.0f : 1.0f / directionLength(squared);
}

// Damping strength per time step at a depth in the layer [nodes]: 0 outside, then it grows with the square
// of the depth, up to sigmaMax on the outer faces at depth `width`.
constexpr float dampingScale(float sigmaMax, int width) {
    return sigmaMax / static_cast<float>(width * width);
}
template <class V>
DRELT_HOST_DEVICE V layerDamping(const V& depth, float scale) {
    const V inside = depth > 0.0f ? depth : V{};
    return inside * (scale * inside);
}

}  // namespace drelt
