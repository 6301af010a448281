// The state of a body that scripts read and set.
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <stdexcept>

#include "SkeletonDynamics/JointPower.h"
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"
#include "platform/messages.h"

namespace drelt {

using dart::dynamics::Frame;

namespace {

// The values of all joints but the first.
Eigen::VectorXd withoutBase(const dart::dynamics::Skeleton& skeleton,
                            const Eigen::VectorXd& values) {
    if (skeleton.getNumJoints() == 0) return values;
    const auto base = static_cast<Eigen::Index>(skeleton.getJoint(0)->getNumDofs());
    return values.tail(values.size() - base);
}

}  // namespace

std::shared_ptr<skLink> skSystem::getBaseLink() const {
    return baseLinkName_.empty() ? nullptr : links_->find(baseLinkName_);
}

std::shared_ptr<skLink> skSystem::getLink(const std::string& name) const {
    return links_->find(name);
}

std::shared_ptr<skJoint> skSystem::getJoint(const std::string& name) const {
    return joints_->find(name);
}

void skSystem::requireValues(const Eigen::VectorXd& values, int needed, const char* what) const {
    if (values.size() != needed) {
        throw std::invalid_argument(std::string(what) + " of '" + skeleton_->getName() + "': got " +
                                    std::to_string(values.size()) + " values, needed " +
                                    std::to_string(needed));
    }
    requireFinite(values, std::string(what) + " of '" + skeleton_->getName() + "'");
}

Eigen::VectorXd skSystem::getForces() const { return skeleton_->getForces(); }

void skSystem::setForces(const Eigen::VectorXd& forces) {
    requireValues(forces, static_cast<int>(skeleton_->getNumDofs()), "forces of all DOFs");
    warnOfIdleForces(forces);
    skeleton_->setForces(forces);
}

// DART drops the forces of all other actuators at the beginning of a step.
void skSystem::warnOfIdleForces(const Eigen::VectorXd& forces) const {
    std::string idle;
    for (const auto& live : joints_->joints) {
        const dart::dynamics::Joint& joint = *live->joint();
        if (joint.getActuatorType() == dart::dynamics::Joint::FORCE) continue;
        bool forced = false;
        for (std::size_t i = 0; i < joint.getNumDofs(); ++i) {
            forced |= forces[static_cast<Eigen::Index>(joint.getIndexInSkeleton(i))] != 0;
        }
        if (!forced) continue;
        idle += (idle.empty() ? "'" : ", '") + live->getName() + "' (" +
                kActuatorWords[live->description()->actuator] + ")";
    }
    if (idle.empty()) return;
    warnOnce("setForces " + skeleton_->getName(),
             "setForces of '" + skeleton_->getName() +
                 "': forces act on joints with the actuator "
                 "'force' only. These joints ignore them: " +
                 idle + ". Change their actuator, or use setCommands");
}

Eigen::VectorXd skSystem::getVelocities(bool includeBase) const {
    const Eigen::VectorXd all = skeleton_->getVelocities();
    return includeBase ? all : withoutBase(*skeleton_, all);
}

Eigen::VectorXd skSystem::getPositions(bool includeBase) const {
    const Eigen::VectorXd all = skeleton_->getPositions();
    return includeBase ? all : withoutBase(*skeleton_, all);
}

Eigen::VectorXd skSystem::getAccelerations() const { return skeleton_->getAccelerations(); }

const Eigen::VectorXd& skSystem::getJointPower() const { return jointPower_->watts(); }

double skSystem::ownMass() const {
    double mass = 0;
    for (const auto& link : links_->links) mass += link->ownInertia()(3, 3);
    return mass;
}

void skSystem::requireMass(const char* what) const {
    if (ownMass() != 0) return;
    throw std::logic_error(std::string(what) + ": the body of '" + skeleton_->getName() +
                           "' has no mass, so it has no centre of mass; ask its links for their "
                           "positions and velocities, or give one of them a mass (and the root "
                           "joint a child bone if there are no links)");
}

// The mean over the links of a vector at their centres of mass, which are their origins. DART does not know own
// masses that are negative.
template <class Property>
Eigen::Vector3d skSystem::meanByOwnMass(Property&& property) const {
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    for (const auto& link : links_->links) sum += link->ownInertia()(3, 3) * property(*link);
    return sum / ownMass();
}

Eigen::Vector3d skSystem::getCOM() const {
    requireMass("getCOM");
    if (ownMassesPositive()) return skeleton_->getCOM();
    return meanByOwnMass([](const skLink& link) { return link.getPosition(); });
}

Eigen::VectorXd skSystem::getCOMLinearVelocity() const {
    requireMass("getCOMLinearVelocity");
    if (ownMassesPositive()) return skeleton_->getCOMLinearVelocity(Frame::World(), Frame::World());
    return meanByOwnMass([](const skLink& link) { return link.getLinearVelocity(); });
}

Eigen::VectorXd skSystem::getCOMAngularVelocity() const {
    requireMass("getCOMAngularVelocity");
    if (ownMassesPositive())
        return skeleton_->getCOMSpatialVelocity(Frame::World(), Frame::World()).tail<3>();
    return meanByOwnMass([](const skLink& link) { return link.getLinearVelocity(); });
}

Eigen::VectorXd skSystem::getCommands() const { return skeleton_->getCommands(controlledDofs); }

void skSystem::setCommands(const Eigen::VectorXd& commands) {
    requireValues(commands, getNumDofs(), "commands of the actuated DOFs");
    skeleton_->setCommands(controlledDofs, commands);
}

}  // namespace drelt
