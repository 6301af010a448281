// The mechanical power of a body's actuators.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <vector>

namespace dart::dynamics {
class Joint;
class Skeleton;
}  // namespace dart::dynamics

namespace drelt {

class StateVisitor;

// Measures, in each dynamics step, the power of the actuators of some degrees of freedom (DOFs): force times
// velocity [W]. The force is the one that acted in the step: the command of an actuator "force", what a
// prescribed motion needed, and the impulse of a servo over the time step. The velocity is the mean of those
// before and after the step: with it, force times velocity times time is the change of kinetic energy at the
// pose at which DART solves for the motion.
class JointPower {
public:
    // `dofs` are indices of the skeleton.
    JointPower(std::shared_ptr<const dart::dynamics::Skeleton> skeleton,
               const std::vector<std::size_t>& dofs);

    // Call it right before DART's step, after all that may set velocities.
    void beginStep();
    // Call it right after DART's step of dt [s], before forces and commands are cleared.
    void endStep(double dt);
    void clear() { watts_.setZero(); }
    void visitState(StateVisitor& state);

    // One number per DOF; zero before the first step.
    const Eigen::VectorXd& watts() const { return watts_; }

private:
    // The DOFs of one joint, which follow each other.
    struct Part {
        const dart::dynamics::Joint* joint;
        Eigen::Index first;
        Eigen::VectorXd before;    // velocities
        Eigen::MatrixXd jacobian;  // of the body's velocity, before the step
        Eigen::VectorXd positions;
    };

    static double prescribedForce(const Part& part, std::size_t dof, double velocity, double dt);
    static double actuatorForce(const Part& part, std::size_t dof, double velocity, double dt);

    std::shared_ptr<const dart::dynamics::Skeleton> skeleton_;
    std::vector<Part> parts_;
    Eigen::VectorXd watts_;
};

}  // namespace drelt
