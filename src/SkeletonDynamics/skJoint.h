// A live joint of a skeleton.
#pragma once

#include <Eigen/Core>
#include <memory>
#include <string>

#include "SkeletonDynamics/SkeletonDescription.h"

namespace dart::dynamics {
class Joint;
class Skeleton;
}  // namespace dart::dynamics

namespace drelt {

// Wraps a DART joint and keeps its skeleton alive. Vectors have one entry per degree of freedom (DOF) of
// the joint: positions in rad or m, their rates, moments in N m or forces in N. Setters throw
// std::invalid_argument for a vector of another length and for a number that is not finite,
// std::out_of_range for a DOF index outside the joint.
class skJoint {
public:
    skJoint(std::shared_ptr<SkeletonJoint> jointDescription, dart::dynamics::Joint* dartJoint,
            std::shared_ptr<dart::dynamics::Skeleton> skeleton);

    // The word of the description: "revolute", "floating", ...
    std::string getJointType() const;
    const std::string& getName() const { return name; }
    int getNumDofs() const;

    // The actuator says what a command means: a force, a velocity, ... Each step of the world clears it.
    void setCommand(const Eigen::VectorXd& commands);
    // Forces for the next step. They act only if the actuator is "force"; otherwise a force that is not
    // zero prints a warning, once per joint.
    void setForce(const Eigen::VectorXd& forces);
    void setPositions(const Eigen::VectorXd& positions);
    void setPosition(int dof, double position);
    Eigen::VectorXd getPositions() const;
    Eigen::VectorXd getVelocities() const;
    void setVelocity(int dof, double velocity);
    Eigen::VectorXd getAccelerations() const;
    void setAcceleration(int dof, double acceleration);

    dart::dynamics::Joint* joint() const { return joint_; }
    const std::shared_ptr<SkeletonJoint>& description() const { return description_; }

private:
    void requireValues(const Eigen::VectorXd& values, const char* what) const;
    void requireValue(int dof, double value, const char* what) const;

    std::shared_ptr<SkeletonJoint> description_;
    dart::dynamics::Joint* joint_;
    std::string name;
    std::shared_ptr<dart::dynamics::Skeleton> skeleton_;
};

}  // namespace drelt
