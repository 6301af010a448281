#include "SkeletonDynamics/skJointMgr.h"

#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/Joint.hpp>
#include <stdexcept>

#include "MeshLoad/hierachyNode.h"

namespace drelt {

namespace {

// Frame of the joint that a body hangs on, relative to the body.
const Eigen::Isometry3d& jointInBody(const dart::dynamics::BodyNode& body) {
    return body.getParentJoint()->getTransformFromChildBodyNode();
}

}  // namespace

void skJointMgr::add(const std::shared_ptr<skJoint>& joint) {
    joints.push_back(joint);
    byName[joint->getName()] = joint;
}

std::shared_ptr<skJoint> skJointMgr::find(const std::string& name) const {
    const auto found = byName.find(name);
    return found == byName.end() ? nullptr : found->second;
}

void skJointMgr::connectMimics() {
    for (const auto& follower : joints) {
        const SkeletonJoint& description = *follower->description();
        if (description.mimicJoint.empty()) continue;
        const auto master = find(description.mimicJoint);
        if (!master) {
            throw std::invalid_argument(
                "joint '" + follower->getName() + "' mimics the joint '" + description.mimicJoint +
                "', which does not exist or has no link; name a joint that has "
                "child joints");
        }
        const bool driven = follower->joint()->getActuatorType() == dart::dynamics::Joint::MIMIC;
        if (driven && master == follower) {
            throw std::invalid_argument("joint '" + follower->getName() +
                                        "' mimics itself; name another joint");
        }
        const int spare = master->getNumDofs() - follower->getNumDofs();
        if (spare < 0 || (driven && spare > 0)) {
            throw std::invalid_argument("joint '" + follower->getName() + "' with " +
                                        std::to_string(follower->getNumDofs()) +
                                        " degrees of freedom cannot mimic '" + master->getName() +
                                        "', which has " + std::to_string(master->getNumDofs()));
        }
        follower->joint()->setMimicJoint(master->joint(), description.multiplier,
                                         description.offset);
    }
}

void skJointMgr::anchor() {
    for (const auto& live : joints) {
        dart::dynamics::Joint& joint = *live->joint();
        const hierachyNode& node = *live->description()->node;
        const dart::dynamics::BodyNode* parent = joint.getParentBodyNode();
        if (parent) {
            joint.setTransformFromParentBodyNode(jointInBody(*parent) * node.localTransform);
        } else {
            joint.setTransformFromParentBodyNode(node.worldTransform);
        }
    }
}

void skJointMgr::updateNodes(nodeMgr& nodes) const {
    for (const auto& live : joints) {
        const dart::dynamics::Joint& joint = *live->joint();
        const Eigen::Isometry3d world =
            joint.getChildBodyNode()->getWorldTransform() * joint.getTransformFromChildBodyNode();
        const dart::dynamics::BodyNode* parent = joint.getParentBodyNode();
        const int node = live->description()->nodeIndex;
        if (parent) {
            const Eigen::Isometry3d parentWorld =
                parent->getWorldTransform() * jointInBody(*parent);
            nodes.setTransform(node, parentWorld.inverse() * world);
        } else {
            nodes.setTransform(node, world);
        }
    }
}

}  // namespace drelt
