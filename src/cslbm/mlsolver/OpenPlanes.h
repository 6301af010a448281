// What the six open planes of a box do.
#pragma once

#include "platform/vector3.h"

namespace drelt {

enum class OpenPlaneKind : int {
    Copy,            // density, velocity and populations of the inner neighbour
    Characteristic,  // sound leaves and a far state enters; the outgoing wave is extrapolated linearly
    CharacteristicConstant,  // the same with the outgoing wave of the inner neighbour
};

// The fluid far away. Lattice units, velocity as seen from the grid.
struct FarState {
    float rho = 1.0f;
    Vector3<float> u{0.0f, 0.0f, 0.0f};
};

struct OpenPlanes {
    OpenPlaneKind kind = OpenPlaneKind::Copy;
    FarState far;
};

}  // namespace drelt
