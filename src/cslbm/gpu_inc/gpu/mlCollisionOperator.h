// The choice of the collision of a step.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// The collisions that a step can use; see mlCollideGpu.h and mlCollideAlternatives.h.
enum class CollisionOperator {
    HighorderFitted,       // central-moment force, fitted high-order rate: the default
    HighorderFittedPart1,  // the same, with a probe that prints
    HighorderFixed,        // central-moment force, fixed high-order rates
    Plain,                 // without force
    Forced,                // force as a source of populations
    Cascade,               // the same in two stages; uses fStore
    Polynomial,            // two stages towards the polynomial equilibrium; uses fStore
};

// Launches the chosen collision over the domain of a device record. It reads f and writes fPost; the fitted ones
// also read and write Sopt. Run it after the frame forcing. Throws std::invalid_argument for a value that is
// no member of CollisionOperator.
void collide(CollisionOperator choice, mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
