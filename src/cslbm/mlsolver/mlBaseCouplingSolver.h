// The bodies as the fluid solver sees them.
#pragma once

#include <Eigen/Core>
#include <vector>

namespace dart::dynamics {
class Frame;
}

namespace drelt {

class IBBoundaryMemMgr;

class mlBaseCouplingSolver {
public:
    virtual ~mlBaseCouplingSolver() = default;

    // Advances the bodies by dt [s]; mode is a couplingMode, dx the node spacing [m].
    virtual void step(int mode, float dt, float dx) = 0;
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
