// The samples of a body's surface: a plain record of parallel arrays, with the same layout on host and
// device.
#pragma once

#include <vector>

#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

struct mlLagrangeBoundary {
    float *coordx, *coordy, *coordz;              // positions, world axes [m] (count each)
    float *normalx, *normaly, *normalz;           // surface normals (count each)
    float *coordInitx, *coordInity, *coordInitz;  // positions at the last host update [m] (count)
    double *forcex, *forcey, *forcez;             // force densities, physical units (count each)
    float *ux, *uy, *uz;            // velocities in the grid's frame, world axes [m/s] (count)
    mlDensity<float>* rou;          // densities, lattice units; 1 (count)
    float reservedFloats0[6];       // 0
    double reservedDoubles[3];      // 0
    float reservedFloats1[3];       // 0
    float sampleArea;               // area of one sample [m^2]
    int count;                      // number of samples
    float l0p;                      // reference length [m]; read by no operator
    float N;                        // nodes per l0p; read by no operator
    float reservedOne;              // 1
    std::vector<int> reservedList;  // empty
};

}  // namespace drelt
