// The immersed-boundary share of the fluid solver.
#pragma once

#include <vector>

#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

class IBBoundaryMemMgr;

// The boundaries of a solver and what their coupling to the fluid takes.
class mlImmersedSolver {
public:
    // Couples every boundary to one domain, in list order: gathers the fluid's momentum at the
    // samples, forms their force densities and adds the forces to the domain's force arrays, where
    // those of all boundaries add up. Needs raw momentum in ux.., the current origin, and current
    // positions, normals and velocities of the samples. A device failure ends the process.
    void spreadBoundaries(mlFlow* flow_dev, const MLFluidParam* param);

    // Boxes that hold all nodes which the samples of all boundaries gather from and spread to, one a
    // sample inside the grid. For records in host memory. With one node to spare for rounding, which
    // suffices where single precision tells nodes apart: within 2^24 node spacings of the origin.
    void sampleReach(const mlFlow& flow, const MLFluidParam& param,
                     std::vector<NodeBox>& reach) const;

    int gpuDeviceId = 0;
    std::vector<IBBoundaryMemMgr*> boundaries;  // not owned
    mlUnitScale scale{};                        // of the first domain; dt holds the time step [s]
    int ibKernelSelector = 4;                   // points of the delta function

private:
    SpreadWorkspace workspace_;
};

}  // namespace drelt
