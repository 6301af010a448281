#include "SkeletonDynamics/JointMotion.h"

#include <dart/dynamics/FreeJoint.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/math/Geometry.hpp>

namespace drelt {

// DART turns the velocity of a free joint into the new axes when it integrates the position; this is undone
// here. The turn leaves its own axis, the new angular velocity, where it is. DART turns by the transpose of
// expMapRot, which is a series below 1e-3 rad and not quite orthogonal.
Eigen::VectorXd velocityInOldAxes(const dart::dynamics::Joint& joint, double dt) {
    Eigen::VectorXd velocity = joint.getVelocities();
    if (joint.getType() != dart::dynamics::FreeJoint::getStaticType()) return velocity;
    const Eigen::Vector3d turning = velocity.head<3>(), moving = velocity.tail<3>();
    const Eigen::Matrix3d toOldAxes = dart::math::expMapRot(dt * turning).transpose().inverse();
    velocity.tail<3>() = toOldAxes * moving;
    return velocity;
}

}  // namespace drelt
