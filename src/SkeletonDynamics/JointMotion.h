// How the velocity of a joint changed in a dynamics step.
#pragma once

#include <Eigen/Core>

namespace dart::dynamics {
class Joint;
}

namespace drelt {

// The velocity of a joint right after a dynamics step of dt [s], in the axes of the pose before the step, in
// which forces and the velocities before the step stand.
Eigen::VectorXd velocityInOldAxes(const dart::dynamics::Joint& joint, double dt);

}  // namespace drelt
