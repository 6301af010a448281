// Where samples lie in a grid, and which of them take part in the coupling.
#pragma once

#include <cstdint>

#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

// A sample's position relative to the grid's current origin [lattice units].
using GridPosition = Vector3<float>;

// Single precision, with N / l0p rounded first. The spreading rounds the positions of nodes in the same way.
DRELT_HOST_DEVICE GridPosition gridPosition(const mlLagrangeBoundary* boundary, const mlFlow* flow,
                                            std::int64_t i, float N, float l0p) {
    const float perMetre = N / l0p;
    return {perMetre * (boundary->coordx[i] - flow->startx),
            perMetre * (boundary->coordy[i] - flow->starty),
            perMetre * (boundary->coordz[i] - flow->startz)};
}

// Whether a sample takes part: 0 <= X < nx on each axis. A position that is not a number fails this.
DRELT_HOST_DEVICE bool insideGrid(GridPosition p, long nx, long ny, long nz) {
    return p.x >= 0.0f && p.x < static_cast<float>(nx) && p.y >= 0.0f &&
           p.y < static_cast<float>(ny) && p.z >= 0.0f && p.z < static_cast<float>(nz);
}

// The grid that samples are coupled to, as the bodies see it.
struct SampleGrid {
    const mlFlow* flow;  // device record with the origin; null: all samples take part
    long nx, ny, nz;     // nodes
    float N, l0p;        // nodes per reference length, and that length [m]
    float rou0p;         // reference density [kg/m^3]

    DRELT_HOST_DEVICE bool takes(const mlLagrangeBoundary* boundary, std::int64_t i) const {
        return flow == nullptr || insideGrid(gridPosition(boundary, flow, i, N, l0p), nx, ny, nz);
    }
};

}  // namespace drelt
