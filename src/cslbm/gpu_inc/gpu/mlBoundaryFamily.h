// The choice of the boundary operators of a step. The default is the open boundary.
#pragma once

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

enum class BoundaryFamily {
    NonEquilibriumExtrapolation,  // the six open planes
    None,
    // By node class, on the post-collision populations.
    FlagNeighbours,   // fluid nodes copy populations to neighbours on faces and in solids
    FlagFaces,        // all six faces and the solids, one launch per class
    FlagFacesAtOnce,  // the same in one launch
    FlagLeft,         // from here on: the nodes of one class
    FlagRight,
    FlagDown,
    FlagUp,
    FlagForward,
    FlagBack,
    FlagSolid,
    // Imposed velocities, on the streamed populations: all six faces or one.
    ZouHe,
    ZouHeLeft,
    ZouHeRight,
    ZouHeUp,
    ZouHeDown,
    ZouHeForward,
    ZouHeBack,
    InletAtRest,  // brings the plane at height 0 to rest
};

// The two points of a step where boundaries work: after the absorbing layer, on fPost, while ux uy uz hold
// velocities; and after the moments, on f, while they hold momentum.
enum class BoundaryStage { AfterLayer, AfterMoments };

// Launches the operators of a family at one stage over the domain of a device record. Most families have
// operators at one stage only. Throws std::invalid_argument for a value outside BoundaryFamily.
void applyBoundary(BoundaryFamily family, BoundaryStage stage, mlFlow* flow,
                   const MLFluidParam* param);

}  // namespace drelt
