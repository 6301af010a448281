// One fluid step by the operators, in their order. This is what a step means.
#pragma once

#include "cslbm/domain/FrameMotion.h"
#include "cslbm/gpu_inc/gpu/mlBoundaryFamily.h"
#include "cslbm/gpu_inc/gpu/mlCollisionOperator.h"
#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// The collision and the boundaries of a step. `planes` says what the family of open planes does.
struct StepChoices {
    CollisionOperator collision = CollisionOperator::HighorderFitted;
    BoundaryFamily boundaries = BoundaryFamily::NonEquilibriumExtrapolation;
    OpenPlaneKind planes = OpenPlaneKind::Copy;

    // Whether the production schedule has them.
    bool areDefault() const {
        return collision == CollisionOperator::HighorderFitted &&
               boundaries == BoundaryFamily::NonEquilibriumExtrapolation;
    }
};

// Frame forcing, collision, absorbing layer, streaming, moments and boundaries on a device record with
// all arrays. Call it after the forces were spread. Afterwards ux, uy, uz hold raw momentum and the
// forces are zero. `param` is the host's parameter record of the domain.
void operatorStep(mlFlow* flow, const MLFluidParam* param, const FrameMotion& motion = {},
                  const StepChoices& choices = {});

}  // namespace drelt
