// The choice of a collision.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// Operators that a step can use as its collision; see mlCollideGpu.h and mlCollideAlternatives.h.
enum class CollisionOperator {
    HighorderFitted,       // central-moment force, fitted high-order rate: the default
    HighorderFittedPart1,  // the same, with a probe that prints
    HighorderFixed,        // central-moment force, fixed high-order rates
    Plain,                 // without force
    Forced,                // force as a source of populations
    Cascade,               // the same in two stages; uses fStore
    Polynomial,            // two stages towards the polynomial equilibrium; uses fStore
};

// Launches the chosen collision over the domain of a device record: reads f, writes fPost. The fitted
// ones use and refresh Sopt. Run after the frame forcing. Raises std::invalid_argument for a choice
// that is no member.
void collide(CollisionOperator choice, mlFlow* flow, const MLFluidParam* param);

}  // namespace drelt
