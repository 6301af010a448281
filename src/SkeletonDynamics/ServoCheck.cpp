#include "SkeletonDynamics/ServoCheck.h"

#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>

namespace drelt {

namespace {

using dart::dynamics::Joint;
using dart::dynamics::Skeleton;

constexpr double kTolerance = 1e-6;  // DART's own

// Velocity changes of a joint's DOFs (rows) under unit impulses on each of them (columns), by the same
// calls as in DART's solver and so with the same rounding.
Eigen::MatrixXd impulseResponse(Skeleton& skeleton, Joint& joint) {
    const auto dofs = static_cast<Eigen::Index>(joint.getNumDofs());
    Eigen::MatrixXd response(dofs, dofs);
    for (Eigen::Index j = 0; j < dofs; ++j) {
        skeleton.clearConstraintImpulses();
        joint.setConstraintImpulse(static_cast<std::size_t>(j), 1.0);
        skeleton.updateBiasImpulse(joint.getChildBodyNode());
        skeleton.updateVelocityChange();
        joint.setConstraintImpulse(static_cast<std::size_t>(j), 0.0);
        for (Eigen::Index i = 0; i < dofs; ++i) {
            response(i, j) = joint.getVelocityChange(static_cast<std::size_t>(i));
        }
    }
    skeleton.clearConstraintImpulses();
    return response;
}

}  // namespace

const Joint* findUnsolvableServo(Skeleton& skeleton) {
    for (std::size_t k = 0; k < skeleton.getNumJoints(); ++k) {
        Joint& joint = *skeleton.getJoint(k);
        const auto actuator = joint.getActuatorType();
        if (actuator != Joint::SERVO && actuator != Joint::MIMIC) continue;
        if (joint.getNumDofs() < 2) continue;
        const Eigen::MatrixXd response = impulseResponse(skeleton, joint);
        const double skew = (response - response.transpose()).cwiseAbs().maxCoeff();
        if (!(skew <= kTolerance)) return &joint;
    }
    return nullptr;
}

}  // namespace drelt
