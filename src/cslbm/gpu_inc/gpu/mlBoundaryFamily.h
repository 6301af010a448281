// Which boundary operators a step runs. The default is the open boundary.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

enum class BoundaryFamily {
    NonEquilibriumExtrapolation,  // the six open planes inside the layer
    None,
    // By node class, on the populations after collision: a fluid node's neighbours, all faces and
    // solids one operator after the other or in one, or the nodes of one class only.
    FlagNeighbours,
    FlagFaces,
    FlagFacesAtOnce,
    FlagLeft,
    FlagRight,
    FlagDown,
    FlagUp,
    FlagForward,
    FlagBack,
    FlagSolid,
    // Imposed velocities, on the streamed populations: all six faces, or one.
    ZouHe,
    ZouHeLeft,
    ZouHeRight,
    ZouHeUp,
    ZouHeDown,
    ZouHeForward,
    ZouHeBack,
    InletAtRest,  // the plane at height 0 brought to rest
};

// The two places in a step where boundaries work: behind the absorbing layer, on fPost and with
// velocities in ux uy uz; and behind the moments, on f and with momentum there.
enum class BoundaryStage { AfterLayer, AfterMoments };

// Launches what a family runs at a stage over the domain of a device record; most families have one
// stage only and do nothing at the other. Raises std::invalid_argument for a family that is no member.
void applyBoundary(BoundaryFamily family, BoundaryStage stage, mlFlow* flow,
                   const MLFluidParam* param);

}  // namespace drelt
