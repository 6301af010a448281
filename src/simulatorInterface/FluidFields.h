// The fluid of a simulator as dense arrays, one entry or three per node, x fastest. Reading changes nothing: a
// run with read-outs has the bits of the run without.
#pragma once

#include <Eigen/Core>
#include <cstdint>

namespace drelt {

class coupledLBM_sim3D;
struct mlUnitScale;

// The units of a field.
enum class FieldUnits : std::int32_t {
    Lattice = 0,  // node spacing, time step and reference density are 1
    SI = 1,
};

// The node spacing is that of a grid; all other factors follow from the scale. SI per lattice unit.
struct FieldFactors {
    FieldFactors(FieldUnits units, const mlUnitScale& scale);
    double velocity;  // [m/s]
    double density;   // [kg/m^3]
    double pressure;  // [Pa]
    double force;     // per volume [N/m^3]
};

// All functions need commitInit and throw std::runtime_error, which names `operation`, before it. They work on
// domain 0, the only one.
namespace FluidFields {

// The grid as the last step placed it.
struct Grid {
    int nx, ny, nz;            // nodes
    Eigen::Vector3d origin;    // of node (0, 0, 0), world [m]
    double spacing;            // [m]
    Eigen::Vector3d velocity;  // of the frame that the grid follows, world axes [m/s]

    std::int64_t count() const { return static_cast<std::int64_t>(nx) * ny * nz; }
};
Grid grid(const coupledLBM_sim3D& simulator, const char* operation);

// Momentum over density (3 per node), as seen from the grid, which does not turn: add the grid's velocity for
// that in the world.
void readVelocity(const coupledLBM_sim3D& simulator, FieldUnits units, float* to);
void readDensity(const coupledLBM_sim3D& simulator, FieldUnits units, float* to);
// The pressure above that at the reference density, c_s^2 (rho - 1) in lattice units.
void readPressure(const coupledLBM_sim3D& simulator, FieldUnits units, float* to);
// The forces of the samples on the fluid in the last step with fluid, per volume (3 per node). A step consumes
// the forces that it spreads, so they are spread anew, with the samples where they are now.
void readSpreadForce(const coupledLBM_sim3D& simulator, FieldUnits units, double* to);
// PML_TYPE of each node.
void readLayerTypes(const coupledLBM_sim3D& simulator, std::int32_t* to);

// A fluid to start from.
struct Start {
    const double* velocity;  // 3 per node, as seen from the grid
    const double* density;   // null: the reference density
    bool nonEquilibrium;     // with the part of the populations that the velocity gradients make
    FieldUnits units;
};
// Sets the fluid between two steps. Populations become the equilibrium at density and velocity; bodies and
// counters stay. An edit of the host record that waits for the next step goes to the device first. Throws,
// before anything changes, std::invalid_argument for numbers that are not finite, a density that is not
// positive and a speed above Mach 0.3 of the lattice, and std::runtime_error if memory does not suffice.
void setFluid(coupledLBM_sim3D& simulator, const Start& start);

}  // namespace FluidFields
}  // namespace drelt
