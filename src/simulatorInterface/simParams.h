// The parameters of a simulation: where the fluid box lies, how it is resolved, which physical velocity
// and viscosity it stands for, and how thick its absorbing layer is.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "cslbm/mlsolver/OpenPlanes.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace drelt {

// Lengths in metres, velocities in m/s, unless a line says otherwise. A float whose default is -1 is not
// set while it is exactly -1; normalise() fills it in.
class simParams {
public:
    enum SETUP_MODE : std::int32_t {
        MANUAL = 0,   // the script gives N, l0p and u0p
        GRAVITY = 1,  // the scales follow from a fall through the box; needs a node spacing
    };

    float x0 = 0, y0 = 0, z0 = 0;             // centre of the fluid box at the start
    float width = 10, height = 4, depth = 4;  // box size along x, y, z
    float slip_ratio = 0;                     // 0 no-slip .. 1 free slip at immersed surfaces
    float N = -1;                             // nodes per reference length
    float l0p = -1;                           // reference length
    float u0p = -1;                           // reference velocity
    float u0k = 0.1f;                         // the same velocity in lattice units
    float rou0p = 1.25f;                      // reference density [kg/m^3]
    float dx = -1;                            // node spacing
    float dtp = -1;                           // time step [s], used if u0p is derived
    float dtk = 1;                            // lattice time step, used if u0p is derived
    std::int32_t pml_width = 0;               // thickness of the absorbing layer [nodes]
    float sigma_max = 0.01f;                  // damping at the layer's outer face, per step
    double gravity[3] = {0, -9.8, 0};         // [m/s^2], read by GRAVITY
    float visp = 0.001f;                      // kinematic viscosity [m^2/s]
    std::int32_t use_gpu = 1;                 // 1: host and device copies are synchronised
    SETUP_MODE setup_mode = GRAVITY;

    // Options, as of the next commitInit. With the defaults a step is the plain one.
    Coupling coupling = Coupling::Explicit;
    ForcingWeights weights = ForcingWeights::Area;
    float retraction = 0;  // depth of the samples inside the skin [node spacings]
    OpenPlaneKind open_planes = OpenPlaneKind::Copy;
    float far_density = 1;            // of the far state, over the reference density
    std::array<double, 3> current{};  // velocity of the far fluid and, at the start, of all fluid

    // Assignments for scripts, which may come after normalise(). They unset what normalise() derived from
    // the old value, so that it is derived anew: dx and u0p from N and l0p, u0p from u0k. A change of
    // the mode unsets all derived values. Assigned values stay.
    void setN(float value);
    void setL0p(float value);
    void setU0p(float value);
    void setU0k(float value);
    void setSetupMode(SETUP_MODE value);

    // Fills in what is not set and says so on standard output. Runs before every use of the derived
    // quantities; changes nothing once all is set.
    void normalise();
    // Normalises, then gives the time step in seconds: l0p u0k / (N u0p). Infinite for a zero N or u0p.
    float get_tp();
    // Normalises, then derives the unit record.
    mlUnitScale computeUnitScale();
    // Steps between two frames at `frame_rate` frames a second, 1 / (frame_rate tp), truncated.
    // Throws std::invalid_argument for a frame rate of zero or less, std::overflow_error where the
    // number does not fit.
    int getIterPerSave(int frame_rate);

private:
    void normaliseGravity();
    void normaliseManual();
    void derive(float simParams::*field, float value);
    void assign(float simParams::*field, float value);
    void forget(float simParams::*field);

    // The values that normalise() derived. A field that has another value by now was assigned.
    struct Derived {
        float simParams::*field;
        float value;
    };
    std::vector<Derived> derived_;
};

}  // namespace drelt
