// The world of bodies: what the fluid solver sees of them.
#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/skSystem.h"
#include "cslbm/mlsolver/mlBaseCouplingSolver.h"

namespace dart::simulation {
class World;
}

namespace drelt {

class skWorld : public mlBaseCouplingSolver {
public:
    // Gravity in world axes [m/s^2]; see setGravity.
    explicit skWorld(const Eigen::Vector3d& gravity = Eigen::Vector3d::Zero());
    ~skWorld() override;

    // Appends a body; null is ignored. The first one drives the fluid grid. Raises
    // std::invalid_argument for a body that is in the world already, std::logic_error after lock().
    void addSkeleton(const std::shared_ptr<skSystem>& system);
    // Raises std::out_of_range for an index without a body.
    std::shared_ptr<skSystem> getSkeleton(int index) const;
    int getNumSkeletons() const { return static_cast<int>(systems_.size()); }
    // A simulator that is committed locks its world: no body can be added, and no other simulator can
    // commit the world, until it is unlocked.
    void lock() { locked_ = true; }
    void unlock() { locked_ = false; }
    bool locked() const { return locked_; }

    double getTimestep() const;
    Eigen::Vector3d getGravity() const;
    // Simulated time [s].
    double getTime() const;

    // Raises std::runtime_error for a body that diverges: a link that moves, or turns, farther in a time
    // step dt [s] than a coupling both ways can hold at a node spacing dx [m], or in other modes than
    // numbers go. To be asked before a step. Build the scene anew then: a reset keeps the fluid's density.
    void requireBoundedMotion(int mode, double dt, double dx) const;
    // One dynamics step of all bodies under the forces that the mode names, then their update. Raises
    // std::runtime_error, before the dynamics run, for a force that is not finite.
    void step(int mode, float dt, float dx) override;
    std::vector<IBBoundaryMemMgr*> getBoundaries() override;
    // These two raise std::invalid_argument for numbers that are not finite, and for a time step [s] of
    // zero or less.
    void setGravity(const Eigen::Vector3d& gravity) override;
    void setTimestep(float dt) override;
    // All bodies to their state at the end of construction, time to zero.
    void reset() override;
    // These two raise std::logic_error in a world without bodies.
    dart::dynamics::Frame* getFrame() override;
    bool isFixed() override;

private:
    void applyForces(int mode, float dx);
    std::string unusableForce() const;
    std::string stepToCome() const;
    const skSystem& firstSystem() const;

    std::shared_ptr<dart::simulation::World> world_;
    std::vector<std::shared_ptr<skSystem>> systems_;
    bool locked_ = false;
};

}  // namespace drelt
