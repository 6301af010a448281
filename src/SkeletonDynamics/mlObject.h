// A rigid object in the world: its state, and the forces that can be put on it.
#pragma once

#include <Eigen/Core>

namespace drelt {

// Vectors are in world axes, SI units.
class mlObject {
public:
    virtual ~mlObject() = default;

    virtual double getMass() const = 0;
    virtual Eigen::Vector3d getLinearVelocity() const = 0;
    virtual Eigen::Vector3d getAngularVelocity() const = 0;
    // Velocity of the object's material point at the world position `point`.
    virtual Eigen::Vector3d getVelocityAt(const Eigen::Vector3d& point) const = 0;
    // Angles (x, y, z) [rad] with rotation = Rx * Ry * Rz.
    virtual Eigen::Vector3d getRotation() const = 0;
    virtual Eigen::Vector3d getPosition() const = 0;
    virtual Eigen::Vector3d getScale() const = 0;
    // Adds a force at a world point. It acts in the next dynamics step only.
    virtual void addForceAt(const Eigen::Vector3d& force, const Eigen::Vector3d& point) = 0;
    // Adds a force at the object's origin.
    virtual void addForce(const Eigen::Vector3d& force) = 0;
    virtual void addTorque(const Eigen::Vector3d& torque) = 0;
    virtual void update() = 0;
};

}  // namespace drelt
