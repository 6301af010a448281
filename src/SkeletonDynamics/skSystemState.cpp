// What a script reads from a body and sets on it.
#include <dart/dynamics/Skeleton.hpp>
#include <stdexcept>

#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"

namespace drelt {

using dart::dynamics::Frame;

namespace {

// The values without those of the skeleton's first joint.
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
    skeleton_->setForces(forces);
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

Eigen::Vector3d skSystem::getCOM() const { return skeleton_->getCOM(); }

Eigen::VectorXd skSystem::getCOMLinearVelocity() const {
    return skeleton_->getCOMLinearVelocity(Frame::World(), Frame::World());
}

Eigen::VectorXd skSystem::getCOMAngularVelocity() const {
    return skeleton_->getCOMSpatialVelocity(Frame::World(), Frame::World()).tail<3>();
}

Eigen::VectorXd skSystem::getCommands() const { return skeleton_->getCommands(controlledDofs_); }

void skSystem::setCommands(const Eigen::VectorXd& commands) {
    requireValues(commands, getNumDofs(), "commands of the actuated DOFs");
    skeleton_->setCommands(controlledDofs_, commands);
}

}  // namespace drelt
