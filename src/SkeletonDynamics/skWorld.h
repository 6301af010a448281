// The world of bodies: the interface through which the fluid solver moves them.
#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/skSystem.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlBaseCouplingSolver.h"

namespace dart::simulation {
class World;
}

namespace drelt {

class StateVisitor;

class skWorld : public mlBaseCouplingSolver {
public:
    // Gravity in world axes [m/s^2]; see setGravity.
    explicit skWorld(const Eigen::Vector3d& gravity = Eigen::Vector3d::Zero());
    ~skWorld() override;

    // Appends a body; null is ignored. The fluid grid follows the first one. Throws std::invalid_argument
    // for a body that is in this world or in another one that still exists, std::logic_error after lock().
    void addSkeleton(const std::shared_ptr<skSystem>& system);
    // Throws std::out_of_range for an index without a body.
    std::shared_ptr<skSystem> getSkeleton(int index) const;
    int getNumSkeletons() const { return static_cast<int>(systems_.size()); }
    // A simulator that is committed locks its world: no body can be added, and no other simulator can
    // commit the world, until it is unlocked.
    void lock() { locked_ = true; }
    void unlock() { locked_ = false; }
    bool locked() const { return locked_; }

    // The density of the fluid [kg/m^3], for forces of the outer fluid. The next step is the first one: all
    // fluid forces become zero.
    void setFluidDensity(double density);

    double getTimestep() const;
    Eigen::Vector3d getGravity() const;
    // Simulated time [s].
    double getTime() const;

    // Call before each step. Throws std::runtime_error if a link would move or turn too far in a time step
    // dt [s] at a node spacing dx [m]: 100 spacings or radians in TWO_WAY, 1e30 otherwise. The scene must
    // then be rebuilt, because a reset keeps the fluid's density. Also throws for a servo that DART cannot
    // solve for (skSystem::requireSolvable), and in a mode other than TWO_WAY for masses that need the
    // semi-implicit coupling.
    void requireBoundedMotion(int mode, double dt, double dx) const;
    // Throws std::invalid_argument for masses that a coupling cannot hold, and with the semi-implicit one
    // for a slip ratio other than 0. fluidDensity [kg/m^3] and dx, the node spacing [m], are those of the
    // fluid, `weights` those of the samples. With the semi-implicit coupling, requireBoundedMotion refuses further bodies in the modes
    // other than TWO_WAY.
    void requireCoupling(Coupling coupling, double fluidDensity, double dx, double slip,
                         ForcingWeights weights = ForcingWeights::Area) const;
    // Steps the dynamics of all bodies under the forces of this coupling mode, then updates the bodies.
    // Throws std::runtime_error for a force that is not finite, before the dynamics step, and for joint
    // constraints that DART cannot solve. Throws the same for masses that need the semi-implicit coupling,
    // before anything changes.
    void step(int mode, float dt, float dx) override;
    // Throw like step.
    void stepSemiImplicit(const SampleGrid& grid, float dt, float dx) override;
    void updateBodies(float dt, float dx) override;
    std::vector<IBBoundaryMemMgr*> getBoundaries() override;
    // These two throw std::invalid_argument for numbers that are not finite and for a time step [s] of
    // zero or less.
    void setGravity(const Eigen::Vector3d& gravity) override;
    void setTimestep(float dt) override;
    // Sets all bodies to their state at the end of construction and the time to zero.
    void reset() override;
    // Lists what the world and its bodies keep between steps. Call stateLoaded after the list was loaded.
    void visitState(StateVisitor& state);
    void stateLoaded();
    // These two throw std::logic_error in a world without bodies.
    dart::dynamics::Frame* getFrame() override;
    bool isFixed() override;

private:
    std::vector<std::vector<double>> weightsInOpenSpace(double dx) const;
    void requireOwnMasses() const;
    void applyForces(int mode, float dx);
    void recordForces(int mode, float dt, float dx);
    void callBeforeStep(float dt, float dx);
    void callAfterStep(float dt);
    void callBeforeUpdate(float dt, float dx);
    std::string unusableForce() const;
    void stepDynamics(double dt);
    void clearForces();
    std::string nextStep() const;
    std::string nameOf(std::size_t body, int link) const;
    const skSystem& firstSystem() const;

    std::shared_ptr<dart::simulation::World> world_;
    std::vector<std::shared_ptr<skSystem>> systems_;
    bool locked_ = false;
    double fluidDensity_ = 0;
    int stepsBefore_ = 0;  // that DART has not counted, because a state was loaded
};

}  // namespace drelt
