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

// Wraps a DART joint and keeps its skeleton alive. Vectors have one entry a degree of freedom
// (DOF) of the joint: radians or metres and their rates, N m or N. A vector of another length and
// a number that is not finite raise std::invalid_argument, a DOF index outside the joint
// std::out_of_range.
class skJoint {
public:
    skJoint(std::shared_ptr<SkeletonJoint> jointDescription, dart::dynamics::Joint* dartJoint,
            std::shared_ptr<dart::dynamics::Skeleton> skeleton);

    // The word of the description: "revolute", "floating", ...
    std::string getJointType() const;
    const std::string& getName() const { return name_; }
    int getNumDofs() const;

    // What a command means follows from the actuator: a force, a velocity, ... It is cleared by each
    // step of the world, as the forces are.
    void setCommand(const Eigen::VectorXd& commands);
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
    std::string name_;
    std::shared_ptr<dart::dynamics::Skeleton> skeleton_;
};

}  // namespace drelt
