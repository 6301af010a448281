// The immersed-boundary share of the fluid solver.
#pragma once

#include <vector>

#include "cslbm/gpu_inc/gpuImmersed/SampleWeights.h"
#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

class IBBoundaryMemMgr;

// The immersed boundaries of a solver, and their coupling to the fluid.
class mlImmersedSolver {
public:
    // Couples every boundary to one domain, in list order: interpolates the fluid's momentum to the
    // samples, forms their force densities, and spreads the forces to the domain's force arrays, where
    // they add up. Needs raw momentum in ux, uy, uz, the current origin, and current positions, normals
    // and velocities of the samples. A device failure ends the process.
    void spreadBoundaries(mlFlow* flow_dev, const MLFluidParam* param);
    // The two halves of it, each for all boundaries, for a caller that changes the forces in between.
    void interpolateForces(mlFlow* flow_dev, const MLFluidParam* param);
    void spreadForces(mlFlow* flow_dev, const MLFluidParam* param);
    // Between the two: gives the samples of all boundaries their normalised weights, and the forces these
    // weights.
    void normaliseForces(mlFlow* flow_dev, const MLFluidParam* param);
    // Drops such weights of an earlier step.
    void dropWeights();

    int gpuDeviceId = 0;
    std::vector<IBBoundaryMemMgr*> boundaries;  // not owned
    mlUnitScale scale{};                        // of the first domain; dt holds the time step [s]
    int ibKernelSelector = kDeltaPoints;        // points of the delta function

private:
    SpreadWorkspace workspace_;
    NodeSums areas_;  // empty until normaliseForces needs it
};

}  // namespace drelt
