#include "SkeletonDynamics/JointPower.h"

#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/DegreeOfFreedom.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <utility>

#include "SkeletonDynamics/JointMotion.h"
#include "supplement/StateVisitor.h"

namespace drelt {

namespace {

using dart::dynamics::Joint;

// A servo works by the impulse of a constraint. Friction shares this impulse; while the joint moves it has its
// full size.
double servoForce(const Joint& joint, std::size_t dof, double velocity, double dt) {
    const double all = joint.getConstraintImpulse(dof) / dt;
    const double friction = joint.getCoulombFriction(dof);
    if (velocity == 0) return all;
    return velocity > 0 ? all + friction : all - friction;
}

bool prescribed(const Joint& joint) {
    return joint.getActuatorType() == Joint::ACCELERATION ||
           joint.getActuatorType() == Joint::VELOCITY;
}

}  // namespace

JointPower::JointPower(std::shared_ptr<const dart::dynamics::Skeleton> skeleton,
                       const std::vector<std::size_t>& dofs)
    : skeleton_(std::move(skeleton)),
      watts_(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(dofs.size()))) {
    for (std::size_t i = 0; i < dofs.size(); ++i) {
        const Joint* const joint = skeleton_->getDof(dofs[i])->getJoint();
        if (parts_.empty() || parts_.back().joint != joint)
            parts_.push_back({joint, static_cast<Eigen::Index>(i), {}, {}, {}});
    }
}

void JointPower::visitState(StateVisitor& state) {
    state.array("watts", watts_.data(), static_cast<std::size_t>(watts_.size()));
}

void JointPower::beginStep() {
    for (Part& part : parts_) {
        part.before = part.joint->getVelocities();
        if (!prescribed(*part.joint)) continue;
        part.jacobian = part.joint->getRelativeJacobian();
        part.positions = part.joint->getPositions();
    }
}

// What a prescribed motion needed: the force that went through the joint, impulses of other joints included,
// and what spring and damper took of it. DART's own record of it lacks the impulses.
double JointPower::prescribedForce(const Part& part, std::size_t dof, double velocity, double dt) {
    const auto i = static_cast<Eigen::Index>(dof);
    const Joint& joint = *part.joint;
    const Eigen::Matrix<double, 6, 1>& through = joint.getChildBodyNode()->getBodyForce();
    const double stretch = part.positions[i] + dt * velocity - joint.getRestPosition(dof);
    return part.jacobian.col(i).dot(through) + joint.getDampingCoefficient(dof) * velocity +
           joint.getSpringStiffness(dof) * stretch;
}

// What the actuator gave to a DOF in the step that has just ended.
double JointPower::actuatorForce(const Part& part, std::size_t dof, double velocity, double dt) {
    switch (part.joint->getActuatorType()) {
        case Joint::FORCE: return part.joint->getCommand(dof);
        case Joint::SERVO: return servoForce(*part.joint, dof, velocity, dt);
        case Joint::ACCELERATION:
        case Joint::VELOCITY: return prescribedForce(part, dof, velocity, dt);
        default: return 0;  // a lock does no work
    }
}

void JointPower::endStep(double dt) {
    for (const Part& part : parts_) {
        const Eigen::VectorXd after = velocityInOldAxes(*part.joint, dt);
        for (Eigen::Index i = 0; i < after.size(); ++i) {
            const double force = actuatorForce(part, static_cast<std::size_t>(i), after[i], dt);
            watts_[part.first + i] = force * 0.5 * (part.before[i] + after[i]);
        }
    }
}

}  // namespace drelt
