// The bodies as the fluid solver sees them.
#pragma once

#include <Eigen/Core>
#include <stdexcept>
#include <vector>

namespace dart::dynamics {
class Frame;
}

namespace drelt {

class IBBoundaryMemMgr;
struct SampleGrid;

class mlBaseCouplingSolver {
public:
    virtual ~mlBaseCouplingSolver() = default;

    // Advances the bodies by dt [s]; mode is a couplingMode, dx the node spacing [m].
    virtual void step(int mode, float dt, float dx) = 0;
    // step(TWO_WAY, dt, dx) with the semi-implicit coupling, in two parts. The first one needs the sample
    // forces of the interpolation. It steps the dynamics with the mass of the samples that lie in the
    // grid, and adds to the forces what the new velocities change; samples stay where they are, so that
    // the forces can be spread. The second one brings everything up to the bodies' new state.
    virtual void stepSemiImplicit(const SampleGrid&, float /*dt*/, float /*dx*/) {
        throw std::logic_error("these bodies have no semi-implicit coupling; use the explicit one");
    }
    virtual void updateBodies(float /*dt*/, float /*dx*/) {}
    // The immersed boundaries, one per body system.
    virtual std::vector<IBBoundaryMemMgr*> getBoundaries() = 0;
    // Gravity [m/s^2], world axes.
    virtual void setGravity(const Eigen::Vector3d& gravity) = 0;
    virtual void setTimestep(float dt) = 0;
    virtual void reset() = 0;
    // The moving frame that the grid follows, or null.
    virtual dart::dynamics::Frame* getFrame() = 0;
    // True if the grid does not move.
    virtual bool isFixed() = 0;
};

}  // namespace drelt
