#include "SkeletonDynamics/skJoint.h"

#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <stdexcept>
#include <utility>

#include "SkeletonDynamics/requireFinite.h"
#include "platform/messages.h"

namespace drelt {

skJoint::skJoint(std::shared_ptr<SkeletonJoint> jointDescription, dart::dynamics::Joint* dartJoint,
                 std::shared_ptr<dart::dynamics::Skeleton> skeleton)
    : description_(std::move(jointDescription)),
      joint_(dartJoint),
      name(description_->name),
      skeleton_(std::move(skeleton)) {}

void skJoint::requireValues(const Eigen::VectorXd& values, const char* what) const {
    if (values.size() != getNumDofs()) {
        throw std::invalid_argument(std::string(what) + " of joint '" + name + "': got " +
                                    std::to_string(values.size()) + " values, needed " +
                                    std::to_string(getNumDofs()) + ", one per degree of freedom");
    }
    requireFinite(values, std::string(what) + " of joint '" + name + "'");
}

void skJoint::requireValue(int dof, double value, const char* what) const {
    if (dof < 0 || dof >= getNumDofs()) {
        throw std::out_of_range("joint '" + name + "' has " + std::to_string(getNumDofs()) +
                                " degrees of freedom, counted from 0: there is none with index " +
                                std::to_string(dof));
    }
    requireFinite(Eigen::Matrix<double, 1, 1>(value),
                  std::string(what) + " of joint '" + name + "'");
}

std::string skJoint::getJointType() const { return kJointTypeWords[description_->type]; }

int skJoint::getNumDofs() const { return static_cast<int>(joint_->getNumDofs()); }

void skJoint::setCommand(const Eigen::VectorXd& commands) {
    requireValues(commands, "commands");
    joint_->setCommands(commands);
}

void skJoint::setForce(const Eigen::VectorXd& forces) {
    requireValues(forces, "forces");
    if (!forces.isZero(0) && joint_->getActuatorType() != dart::dynamics::Joint::FORCE) {
        warnOnce("setForce " + skeleton_->getName() + " " + name,
                 "setForce: the joint '" + name + "' has the actuator '" +
                     kActuatorWords[description_->actuator] +
                     "' and ignores forces; give it the actuator 'force', or use setCommand");
    }
    joint_->setForces(forces);
}

void skJoint::setPositions(const Eigen::VectorXd& positions) {
    requireValues(positions, "positions");
    joint_->setPositions(positions);
}

void skJoint::setPosition(int dof, double position) {
    requireValue(dof, position, "position");
    joint_->setPosition(static_cast<std::size_t>(dof), position);
}

Eigen::VectorXd skJoint::getPositions() const { return joint_->getPositions(); }

Eigen::VectorXd skJoint::getVelocities() const { return joint_->getVelocities(); }

void skJoint::setVelocity(int dof, double velocity) {
    requireValue(dof, velocity, "velocity");
    joint_->setVelocity(static_cast<std::size_t>(dof), velocity);
}

Eigen::VectorXd skJoint::getAccelerations() const { return joint_->getAccelerations(); }

void skJoint::setAcceleration(int dof, double acceleration) {
    requireValue(dof, acceleration, "acceleration");
    joint_->setAcceleration(static_cast<std::size_t>(dof), acceleration);
}

}  // namespace drelt
