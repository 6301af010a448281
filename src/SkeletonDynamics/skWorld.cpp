#include "SkeletonDynamics/skWorld.h"

#include <algorithm>
#include <cmath>
#include <dart/dynamics/SimpleFrame.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <dart/simulation/World.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "cslbm/mlsolver/couplingMode.h"

namespace drelt {

skWorld::skWorld(const Eigen::Vector3d& gravity)
    : world_(dart::simulation::World::create("world")) {
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
    systems_.push_back(system);
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
            "the world has no bodies; add a skeleton, the grid follows the first");
    }
    return *systems_.front();
}

dart::dynamics::Frame* skWorld::getFrame() { return firstSystem().movingFrame().get(); }

bool skWorld::isFixed() { return firstSystem().baseFrameName().empty(); }

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
    for (const auto& system : systems_) system->skeleton()->clearExternalForces();
    throw std::runtime_error(stepToCome() + unusable);
}

std::string skWorld::stepToCome() const {
    return "step " + std::to_string(world_->getSimFrames() + 1) + " (" +
           std::to_string(world_->getTime()) + " s): ";
}

// What to say of a force that the dynamics must not meet; empty where there is none.
std::string skWorld::unusableForce() const {
    for (const auto& system : systems_) {
        const skLinkMgr& links = system->links();
        for (int i = 1; i < links.count() - 1; ++i) {
            const skLinkData& record = links.link_data_host[i];
            if (usable(record.force) && usable(record.torque)) continue;
            return "the force on " + system->nameOf(*links.links[i]) + " is " +
                   listed(record.force) + ", the torque " + listed(record.torque) +
                   ", for the fluid diverged; lower the highest speeds (u0k, commands), raise the "
                   "viscosity (visp), or take more nodes a length (N), and build the scene anew";
        }
    }
    return {};
}

// Where the coupling is unstable speeds grow without bound, and DART ends the process once its terms
// overflow. No fluid carries a link that moves so far, or turns by so much, within one step.
void skWorld::requireBoundedMotion(int mode, double dt, double dx) const {
    const double bound = mode == TWO_WAY ? 100 : 1e30;  // node spacings, radians
    double largest = 0;
    std::ostringstream fastest;
    for (const auto& system : systems_) {
        const skLinkMgr& links = system->links();
        for (int i = 1; i < links.count() - 1; ++i) {
            const Eigen::Vector6d& velocity = links.links[i]->frame()->getSpatialVelocity();
            const double turn = velocity.head<3>().norm() * dt;
            const double way = velocity.tail<3>().norm() * dt / dx;
            const double most = turn > way ? turn : way;  // and the way, where that is no number
            if (most <= std::max(largest, bound)) continue;
            largest = most;
            fastest.str({});
            fastest << system->nameOf(*links.links[i]) << " moves " << way
                    << " node spacings and turns " << turn << " rad";
        }
    }
    if (largest == 0) return;
    throw std::runtime_error(
        stepToCome() + fastest.str() +
        " in one step, for the motion diverged; take more nodes a length (N), heavier links, or "
        "slower commands, and build the scene anew");
}

void skWorld::step(int mode, float dt, float dx) {
    world_->setTimeStep(dt);
    applyForces(mode, dx);
    for (const auto& system : systems_) {
        for (const auto& hook : system->beforeStep) hook(*system, dx, dt);
    }
    world_->step(true);
    for (const auto& system : systems_) {
        for (const auto& hook : system->afterStep) hook(*system, dt);
    }
    for (const auto& system : systems_) {
        for (const auto& hook : system->beforeUpdate) hook(*system, dx, dt);
    }
    for (const auto& system : systems_) {
        if (mode == EMPIRICAL) {
            system->updateWithoutSamples();
        } else {
            system->update();
        }
    }
}

void skWorld::reset() {
    world_->reset();
    for (const auto& system : systems_) system->reset();
}

}  // namespace drelt
