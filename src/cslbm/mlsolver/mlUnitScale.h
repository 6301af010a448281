// Relations between lattice and physical units, derived from the parameters.
#pragma once

namespace drelt {

// Physical quantities carry the suffix p (SI), lattice quantities k.
struct mlUnitScale {
    float reserved0;
    float dt;  // the solver's copy keeps its time step here [s]
    float reserved1, reserved2;
    float l0p;               // reference length [m]
    float N;                 // nodes per l0p
    float u0px, u0py, u0pz;  // reference velocity, the same on all axes [m/s]
    float v0p, v0k;          // kinematic viscosity [m^2/s], lattice
    float u0k;               // reference velocity, lattice
    float rou0p;             // reference density [kg/m^3]
    float Re;                // Reynolds number
};

}  // namespace drelt
