#include "SkeletonDynamics/skLink.h"

#include <dart/dynamics/BodyNode.hpp>
#include <stdexcept>
#include <utility>

namespace drelt {

using dart::dynamics::Frame;

Eigen::Matrix3d polarRotation(const Eigen::Isometry3d& transform) {
    // as an affine transform: for an isometry, Eigen would return the block unchanged
    return Eigen::AffineCompact3d(transform.matrix().topRows<3>()).rotation();
}

skLink::skLink(dart::dynamics::BodyNode* bodyNode, std::shared_ptr<SkeletonLink> linkDescription,
               const InertiaTensor& ownInertia, std::shared_ptr<const void> frameOwner)
    : body_(bodyNode),
      frame_(bodyNode),
      description_(std::move(linkDescription)),
      ownInertia_(ownInertia),
      restInertia_(bodyNode->getSpatialInertia()),
      name(bodyNode->getName()),
      owner_(std::move(frameOwner)) {}

skLink::skLink(Frame* plainFrame, std::shared_ptr<const void> frameOwner)
    : body_(nullptr),
      frame_(plainFrame),
      name(plainFrame->getName()),
      owner_(std::move(frameOwner)) {}

dart::dynamics::BodyNode& skLink::requireBody(const char* what) const {
    if (!body_) {
        throw std::logic_error("link '" + name + "' is a frame without a body: it has no " + what +
                               "; ask for a link of the skeleton by its name");
    }
    return *body_;
}

double skLink::getMass() const {
    requireBody("mass");
    return ownInertia_(3, 3);
}

Eigen::Vector3d skLink::getLinearVelocity() const {
    return frame_->getLinearVelocity(Frame::World(), Frame::World());
}

Eigen::Vector3d skLink::getAngularVelocity() const {
    return frame_->getAngularVelocity(Frame::World(), Frame::World());
}

Eigen::Vector3d skLink::getLinearAcceleration() const {
    return frame_->getLinearAcceleration(Frame::World(), Frame::World());
}

Eigen::Vector3d skLink::getAngularAcceleration() const {
    return frame_->getAngularAcceleration(Frame::World(), Frame::World());
}

Eigen::Vector3d skLink::getVelocityAt(const Eigen::Vector3d& point) const {
    const Eigen::Vector3d offset = frame_->getWorldTransform().inverse() * point;
    return frame_->getLinearVelocity(offset, Frame::World(), Frame::World());
}

Eigen::Matrix3d skLink::rotationMatrix() const {
    return polarRotation(frame_->getWorldTransform());
}

Eigen::Vector3d skLink::getRotation() const { return rotationMatrix().eulerAngles(0, 1, 2); }

Eigen::Vector3d skLink::getPosition() const { return frame_->getWorldTransform().translation(); }

void skLink::addForceAt(const Eigen::Vector3d& force, const Eigen::Vector3d& point) {
    requireBody("place for a force").addExtForce(force, point, false, false);
}

void skLink::addForce(const Eigen::Vector3d& force) {
    requireBody("place for a force").addExtForce(force, Eigen::Vector3d::Zero(), false, true);
}

void skLink::addTorque(const Eigen::Vector3d& torque) {
    requireBody("place for a torque").addExtTorque(torque, false);
}

ForceAndTorque skLink::fluidForce(FluidForce which) const {
    requireBody("skin");
    return forces_ ? forces_->on(index_, which) : ForceAndTorque{};
}

void skLink::readForces(std::shared_ptr<const FluidForces> forces, int index) {
    forces_ = std::move(forces);
    index_ = index;
}

}  // namespace drelt
