// A live link: a rigid body of a skeleton, the world, or the frame that the fluid grid follows.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <string>

#include "SkeletonDynamics/FluidForces.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/mlObject.h"

namespace dart::dynamics {
class BodyNode;
class Frame;
}  // namespace dart::dynamics

namespace drelt {

// Wraps a DART frame and keeps it alive: a script may keep a link longer than its body.
// All quantities are relative to the world, in world axes, SI units.
class skLink : public mlObject {
public:
    using InertiaTensor = Eigen::Matrix<double, 6, 6>;

    // A body with its own inertia; frameOwner keeps it alive. DART's body holds the inertia that it has
    // between steps.
    skLink(dart::dynamics::BodyNode* bodyNode, std::shared_ptr<SkeletonLink> linkDescription,
           const InertiaTensor& ownInertia, std::shared_ptr<const void> frameOwner);
    // A frame without a body.
    skLink(dart::dynamics::Frame* plainFrame, std::shared_ptr<const void> frameOwner);

    const std::string& getName() const { return name; }
    Eigen::Vector3d getLinearAcceleration() const;
    Eigen::Vector3d getAngularAcceleration() const;

    // Operations that need a body throw std::logic_error for the world and the moving frame.
    double getMass() const override;
    Eigen::Vector3d getLinearVelocity() const override;
    Eigen::Vector3d getAngularVelocity() const override;
    Eigen::Vector3d getVelocityAt(const Eigen::Vector3d& point) const override;
    Eigen::Vector3d getRotation() const override;
    Eigen::Vector3d getPosition() const override;
    Eigen::Vector3d getScale() const override { return Eigen::Vector3d::Ones(); }
    void addForceAt(const Eigen::Vector3d& force, const Eigen::Vector3d& point) override;
    void addForce(const Eigen::Vector3d& force) override;
    void addTorque(const Eigen::Vector3d& torque) override;
    void update() override {}
    // What the fluid did in the last step: world axes, about the centre of mass (FluidForces.h).
    ForceAndTorque fluidForce(FluidForce which) const;
    // Shares the forces of the body; this link is the given one of its list.
    void readForces(std::shared_ptr<const FluidForces> forces, int index);

    // Orthonormal part of the world transform, by singular value decomposition.
    Eigen::Matrix3d rotationMatrix() const;

    // Null for the world and the moving frame.
    dart::dynamics::BodyNode* body() const { return body_; }
    dart::dynamics::Frame* frame() const { return frame_; }
    const std::shared_ptr<SkeletonLink>& description() const { return description_; }
    // Spatial inertia of the link's own mass, which may be zero or negative, about its origin, which is
    // its centre of mass. Zero for the world and the moving frame.
    const InertiaTensor& ownInertia() const { return ownInertia_; }
    // The inertia that DART's body has between steps: the own one, or if that has no positive mass, one so
    // small that it moves nothing.
    const InertiaTensor& restInertia() const { return restInertia_; }

private:
    dart::dynamics::BodyNode& requireBody(const char* what) const;

    dart::dynamics::BodyNode* body_;
    dart::dynamics::Frame* frame_;
    std::shared_ptr<SkeletonLink> description_;
    InertiaTensor ownInertia_ = InertiaTensor::Zero();
    InertiaTensor restInertia_ = InertiaTensor::Zero();
    std::string name;
    std::shared_ptr<const void> owner_;
    std::shared_ptr<const FluidForces> forces_;
    int index_ = 0;
};

// Orthonormal factor of the polar decomposition of a transform's 3 x 3 block.
Eigen::Matrix3d polarRotation(const Eigen::Isometry3d& transform);

}  // namespace drelt
