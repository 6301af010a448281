#include "SkeletonDynamics/skWorld.h"

#include <dart/external/odelcpsolver/error.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <dart/dynamics/SimpleFrame.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <dart/simulation/World.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/JointPower.h"
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "cslbm/gpu_inc/gpuImmersed/SampleWeights.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"
#include "platform/check.h"
#include "supplement/StateVisitor.h"

namespace drelt {

namespace {

struct SolverFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// DART's solver calls this for a matrix that it cannot factorise, and would end the process if it returned.
void throwSolverFailure(int, const char* text, std::va_list arguments) {
    char message[500];
    std::vsnprintf(message, sizeof(message), text, arguments);
    throw SolverFailure(message);
}

// Positions of a body's samples [m].
std::vector<Eigen::Vector3d> samplePositions(IBSamplerMesh& sampler) {
    const IBBoundaryMemMgr& boundary = sampler.boundaryMgr();
    const auto count = static_cast<std::size_t>(sampler.sampleCount());
    std::vector<Eigen::Vector3d> positions(count);
    std::vector<float> axis(count);
    int a = 0;
    checkCudaErrors(cudaSetDevice(boundary.gpuDeviceId));
    for (const float* there : {boundary.coordx_dev, boundary.coordy_dev, boundary.coordz_dev}) {
        checkCudaErrors(
            cudaMemcpy(axis.data(), there, count * sizeof(float), cudaMemcpyDeviceToHost));
        for (std::size_t i = 0; i < count; ++i) positions[i][a] = static_cast<double>(axis[i]);
        ++a;
    }
    return positions;
}

}  // namespace

skWorld::skWorld(const Eigen::Vector3d& gravity)
    : world_(dart::simulation::World::create("world")) {
    dart::external::ode::dSetDebugHandler(&throwSolverFailure);
    skWorld::setGravity(gravity);
}

skWorld::~skWorld() = default;

void skWorld::addSkeleton(const std::shared_ptr<skSystem>& system) {
    if (!system) return;
    if (locked_) {
        throw std::logic_error(
            "the world belongs to a simulator that has been committed; add all bodies before");
    }
    if (std::find(systems_.begin(), systems_.end(), system) != systems_.end()) {
        throw std::invalid_argument("the body is in this world already; add each body once");
    }
    if (!system->joinWorld(world_)) {
        throw std::invalid_argument(
            "the body of '" + system->skeleton()->getName() +
            "' is in another world, whose gravity and time step it follows; "
            "make a second body, or delete the other world first");
    }
    systems_.push_back(system);
    // DART would choose the same name and print a line about it
    const std::string name = system->skeleton()->getName();
    for (int i = 1; world_->getSkeleton(system->skeleton()->getName()); ++i) {
        system->skeleton()->setName(name + "(" + std::to_string(i) + ")");
    }
    world_->addSkeleton(system->skeleton());
}

std::shared_ptr<skSystem> skWorld::getSkeleton(int index) const {
    if (index < 0 || index >= getNumSkeletons()) {
        throw std::out_of_range("the world holds " + std::to_string(getNumSkeletons()) +
                                " bodies, counted from 0: there is none with index " +
                                std::to_string(index));
    }
    return systems_[index];
}

double skWorld::getTimestep() const { return world_->getTimeStep(); }

Eigen::Vector3d skWorld::getGravity() const { return world_->getGravity(); }

double skWorld::getTime() const { return world_->getTime(); }

void skWorld::setGravity(const Eigen::Vector3d& gravity) {
    requireFinite(gravity, "the world's gravity");
    world_->setGravity(gravity);
}

void skWorld::setTimestep(float dt) {
    if (!std::isfinite(dt) || dt <= 0) {
        throw std::invalid_argument("the world's time step is " + std::to_string(dt) +
                                    " s; give a finite positive number");
    }
    world_->setTimeStep(dt);
}

std::vector<IBBoundaryMemMgr*> skWorld::getBoundaries() {
    std::vector<IBBoundaryMemMgr*> boundaries;
    for (const auto& system : systems_) boundaries.push_back(&system->sampler().boundaryMgr());
    return boundaries;
}

const skSystem& skWorld::firstSystem() const {
    if (systems_.empty()) {
        throw std::logic_error(
            "the world has no bodies; add a skeleton: the grid follows the first one");
    }
    return *systems_.front();
}

dart::dynamics::Frame* skWorld::getFrame() { return firstSystem().movingFrame().get(); }

bool skWorld::isFixed() { return firstSystem().baseFrameName().empty(); }

void skWorld::setFluidDensity(double density) {
    fluidDensity_ = density;
    for (const auto& system : systems_) system->fluidForces().clear();
}

void skWorld::applyForces(int mode, float dx) {
    if (mode != TWO_WAY && mode != EMPIRICAL) return;
    for (const auto& system : systems_) {
        if (mode == TWO_WAY) {
            system->applyFluidForce(dx);
        } else {
            system->applyEmpiricalForce();
        }
    }
    const std::string unusable = unusableForce();
    if (unusable.empty()) return;
    clearForces();
    for (const auto& system : systems_) system->fluidForces().clear();
    throw std::runtime_error(nextStep() + unusable);
}

// What scripts read as the fluid's forces of this step.
void skWorld::recordForces(int mode, float dt, float dx) {
    for (const auto& system : systems_) {
        FluidForces& forces = system->fluidForces();
        const std::vector<skLinkData>& records = system->links().link_data_host;
        switch (mode) {
            case TWO_WAY: forces.recordExplicit(records, fluidDensity_, dt); break;
            case ONE_WAY: system->keepFluidForce(dx, fluidDensity_, dt); break;
            case EMPIRICAL: forces.recordModel(records); break;
            default: forces.clear();
        }
    }
}

void skWorld::clearForces() {
    for (const auto& system : systems_) system->skeleton()->clearExternalForces();
}

// For the beginning of a message.
std::string skWorld::nextStep() const {
    return "step " + std::to_string(stepsBefore_ + world_->getSimFrames() + 1) + " (" +
           std::to_string(world_->getTime()) + " s): ";
}

std::string skWorld::nameOf(std::size_t body, int link) const {
    return "link '" + systems_[body]->links().links[link]->getName() + "' of skeleton " +
           std::to_string(body) + " of the world, '" + systems_[body]->skeleton()->getName() + "',";
}

// Names the first force that is too large for the dynamics step; empty if there is none.
std::string skWorld::unusableForce() const {
    for (std::size_t body = 0; body < systems_.size(); ++body) {
        const skLinkMgr& links = systems_[body]->links();
        for (int i = 1; i < links.count() - 1; ++i) {
            const skLinkData& record = links.link_data_host[i];
            if (usable(record.force) && usable(record.torque)) continue;
            return "the force on " + nameOf(body, i) + " is " + listed(record.force) +
                   ", the torque " + listed(record.torque) +
                   ": the fluid has diverged. Lower the highest speeds (u0k, commands), raise the "
                   "viscosity (visp) or use more nodes per length (N), and rebuild the scene.";
        }
    }
    return {};
}

// Speeds grow without bound when the coupling is unstable, and DART ends the process when its terms
// overflow. The bounds are far above any motion that the fluid can follow.
void skWorld::requireBoundedMotion(int mode, double dt, double dx) const {
    const double bound = mode == TWO_WAY ? 100 : 1e30;  // node spacings, radians
    double largest = 0;
    std::ostringstream fastest;
    for (std::size_t body = 0; body < systems_.size(); ++body) {
        const skLinkMgr& links = systems_[body]->links();
        for (int i = 1; i < links.count() - 1; ++i) {
            const Eigen::Vector6d& velocity = links.links[i]->frame()->getSpatialVelocity();
            const double turn = velocity.head<3>().norm() * dt;
            const double way = velocity.tail<3>().norm() * dt / dx;
            const double most = turn > way ? turn : way;  // `way` also if that is not a number
            if (most <= std::max(largest, bound)) continue;
            largest = most;
            fastest.str({});
            fastest << nameOf(body, i) << " moves " << way << " node spacings and turns " << turn
                    << " rad";
        }
    }
    if (largest != 0) {
        throw std::runtime_error(nextStep() + fastest.str() +
                                 " in one step: the motion has diverged. Use more nodes per length "
                                 "(N), heavier links or slower commands, and rebuild the scene.");
    }
    if (mode != TWO_WAY) requireOwnMasses();
    for (const auto& system : systems_) {
        if (system->massObstacle().empty()) system->requireSolvable();
    }
}

void skWorld::requireCoupling(Coupling coupling, double fluidDensity, double dx, double slip,
                              ForcingWeights weights) const {
    const bool implicit = coupling == Coupling::SemiImplicit;
    if (implicit && slip != 0) {
        throw std::invalid_argument(
            "the semi-implicit coupling needs a slip ratio of 0, because a blend with slip gives "
            "samples no mass along the surface; got " +
            std::to_string(slip));
    }
    const bool normalised = implicit && weights == ForcingWeights::Normalised;
    const auto given =
        normalised ? weightsInOpenSpace(dx) : std::vector<std::vector<double>>(systems_.size());
    for (std::size_t s = 0; s < systems_.size(); ++s) {
        if (implicit) {
            systems_[s]->requireSampleMasses(fluidDensity, dx, normalised ? &given[s] : nullptr);
        } else if (!systems_[s]->massObstacle().empty()) {
            throw std::invalid_argument(systems_[s]->massObstacle());
        }
    }
}

// The normalised weights of all samples, one list per body, before there is a grid.
std::vector<std::vector<double>> skWorld::weightsInOpenSpace(double dx) const {
    std::vector<Vector3<float>> places;
    std::vector<double> areas;
    Eigen::Vector3d origin = Eigen::Vector3d::Zero();
    for (const auto& system : systems_) {
        const std::vector<Eigen::Vector3d> samples = samplePositions(system->sampler());
        if (samples.empty()) continue;
        if (places.empty()) origin = samples.front();
        for (const Eigen::Vector3d& sample : samples) {
            const Eigen::Vector3f p = ((sample - origin) / dx).cast<float>();
            places.push_back({p.x(), p.y(), p.z()});
            areas.push_back(static_cast<double>(system->sampler().boundary()->sampleArea) /
                            (dx * dx));
        }
    }
    const std::vector<double> all = drelt::weightsInOpenSpace(places, areas, kDeltaPoints);
    std::vector<std::vector<double>> weights;
    auto next = all.begin();
    for (const auto& system : systems_) {
        const auto end = next + system->sampler().sampleCount();
        weights.emplace_back(next, end);
        next = end;
    }
    return weights;
}

void skWorld::requireOwnMasses() const {
    for (const auto& system : systems_) {
        if (system->massObstacle().empty()) continue;
        throw std::runtime_error(nextStep() + system->massObstacle());
    }
}

// DART's step with the option to clear forces and commands would clear them before the power is measured.
void skWorld::stepDynamics(double dt) {
    for (const auto& system : systems_) system->jointPower().beginStep();
    try {
        world_->step(false);
    } catch (const SolverFailure& failure) {
        clearForces();
        throw std::runtime_error(nextStep() + "DART cannot solve the constraints of the joints (" +
                                 failure.what() +
                                 "). Give links more mass, or change limits and "
                                 "actuators of the joints, and rebuild the scene.");
    }
    for (const auto& system : systems_) {
        system->jointPower().endStep(dt);
        system->skeleton()->clearInternalForces();
        system->skeleton()->clearExternalForces();
        system->skeleton()->resetCommands();
    }
}

void skWorld::callBeforeStep(float dt, float dx) {
    for (const auto& system : systems_) {
        for (const auto& hook : system->beforeStep) hook(*system, dx, dt);
    }
}

void skWorld::callAfterStep(float dt) {
    for (const auto& system : systems_) {
        for (const auto& hook : system->afterStep) hook(*system, dt);
    }
}

void skWorld::callBeforeUpdate(float dt, float dx) {
    for (const auto& system : systems_) {
        for (const auto& hook : system->beforeUpdate) hook(*system, dx, dt);
    }
}

void skWorld::step(int mode, float dt, float dx) {
    requireOwnMasses();
    world_->setTimeStep(dt);
    applyForces(mode, dx);
    recordForces(mode, dt, dx);
    callBeforeStep(dt, dx);
    stepDynamics(dt);
    callAfterStep(dt);
    if (mode != EMPIRICAL) {
        updateBodies(dt, dx);
        return;
    }
    callBeforeUpdate(dt, dx);
    for (const auto& system : systems_) system->updateWithoutSamples();
}

void skWorld::stepSemiImplicit(const SampleGrid& grid, float dt, float dx) {
    world_->setTimeStep(dt);
    applyForces(TWO_WAY, dx);
    callBeforeStep(dt, dx);
    try {
        for (const auto& system : systems_) system->beginSemiImplicit(grid, dx);
        stepDynamics(dt);
    } catch (const std::runtime_error&) {
        for (const auto& system : systems_) system->restoreOwnInertia();
        clearForces();
        throw;
    }
    for (const auto& system : systems_) system->endSemiImplicit(grid, dt);
    callAfterStep(dt);
}

void skWorld::updateBodies(float dt, float dx) {
    callBeforeUpdate(dt, dx);
    for (const auto& system : systems_) system->update();
}

// Gravity is part of it, because a script may change it on the way.
void skWorld::visitState(StateVisitor& state) {
    const double time = world_->getTime();
    state.numbers<double>("time", &time, 1, [this](const double* at) { world_->setTime(*at); });
    const int steps = stepsBefore_ + world_->getSimFrames();
    state.numbers<int>("steps", &steps, 1,
                       [this](const int* done) { stepsBefore_ = *done - world_->getSimFrames(); });
    const Eigen::Vector3d gravity = world_->getGravity();
    state.numbers<double>("gravity", gravity.data(), 3, [this](const double* g) {
        world_->setGravity(Eigen::Vector3d(g[0], g[1], g[2]));
    });
    for (std::size_t i = 0; i < systems_.size(); ++i) {
        state.group("body" + std::to_string(i), [&] { systems_[i]->visitState(state); });
    }
}

void skWorld::stateLoaded() {
    for (const auto& system : systems_) system->stateLoaded();
}

void skWorld::reset() {
    stepsBefore_ = 0;
    world_->reset();
    for (const auto& system : systems_) system->reset();
}

}  // namespace drelt
