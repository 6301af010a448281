#include "SkeletonDynamics/skSystemBuild.h"

#include <dart/common/Console.hpp>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/EllipsoidShape.hpp>
#include <dart/dynamics/FreeJoint.hpp>
#include <dart/dynamics/PlanarJoint.hpp>
#include <dart/dynamics/PrismaticJoint.hpp>
#include <dart/dynamics/RevoluteJoint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <dart/dynamics/SphereShape.hpp>
#include <dart/dynamics/WeldJoint.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "MeshLoad/hierachyNode.h"
#include "SkeletonDynamics/DescriptionCheck.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"

namespace drelt {

namespace {

namespace dd = dart::dynamics;
using SingleDof = dd::GenericJoint<dart::math::R1Space>::UniqueProperties;
using JointAndBody = std::pair<dd::Joint*, dd::BodyNode*>;

// Sets the properties of the DOF of a revolute or prismatic joint. DART's own limits are infinite.
void setDofProperties(const SkeletonJoint& joint, SingleDof& dof) {
    if (joint.useLimits) {
        dof.mPositionLowerLimits[0] = joint.lower;
        dof.mPositionUpperLimits[0] = joint.upper;
        dof.mVelocityLowerLimits[0] = -joint.velocity;
        dof.mVelocityUpperLimits[0] = joint.velocity;
        dof.mForceLowerLimits[0] = -joint.effort;
        dof.mForceUpperLimits[0] = joint.effort;
        dof.mInitialPositions[0] = dof.mRestPositions[0] = restWithin(joint);
    }
    dof.mSpringStiffnesses[0] = joint.springStiffness;
    if (joint.useDynamcis) {
        dof.mDampingCoefficients[0] = joint.damping;
        dof.mFrictions[0] = joint.friction;
    }
}

// Where a new joint goes: its parent body (null for the world), its frame relative to both bodies, and the
// properties of its own body.
struct JointPlace {
    dd::SkeletonPtr skeleton;
    dd::BodyNode* parentBody;
    dd::Joint::Properties joint;
    dd::BodyNode::Properties body;
};

template <class Joint>
JointAndBody createPair(const JointPlace& place, typename Joint::Properties properties) {
    static_cast<dd::Joint::Properties&>(properties) = place.joint;
    return place.skeleton->createJointAndBodyNodePair<Joint>(place.parentBody, properties,
                                                             place.body);
}

JointAndBody createJointOfType(const SkeletonJoint& joint, const JointPlace& place) {
    switch (joint.type) {
        case 1:
        case 2: {
            dd::RevoluteJoint::Properties properties;
            properties.mAxis = joint.axis;
            setDofProperties(joint, properties);
            return createPair<dd::RevoluteJoint>(place, properties);
        }
        case 3: {
            dd::PrismaticJoint::Properties properties;
            properties.mAxis = joint.axis;
            setDofProperties(joint, properties);
            return createPair<dd::PrismaticJoint>(place, properties);
        }
        case 4: return createPair<dd::WeldJoint>(place, {});
        case 5: return createPair<dd::FreeJoint>(place, {});
        case 6: {
            dd::PlanarJoint::Properties properties;
            properties.setArbitraryPlane(joint.planeAxis1, joint.planeAxis2);
            return createPair<dd::PlanarJoint>(place, properties);
        }
        default: return {nullptr, nullptr};
    }
}

void reportUnsupported(const SkeletonJoint& joint) {
    const bool known = joint.type >= 0 && joint.type < kJointTypeCount;
    constexpr int kRed = 31;
    const char* const source = "SkeletonDynamics/skSystem";
    dart::common::colorErr("Error", source, 161, kRed)
        << "[DartLoader::createDartJoint] Unsupported joint type ("
        << (known ? kJointTypeWords[joint.type] : "") << ")\n";
    dart::common::colorErr("Error", source, 163, kRed)
        << "Conver to default joint Type" << joint.name << "\n";
}

// Of a body without own mass for DART, which warns of none at every change and ends the process in a step. It
// is lost in rounding beside any mass that a description gives.
constexpr double kPlaceholderMass = 1e-30;

dd::Inertia inertiaOf(const dd::EllipsoidShape& ellipsoid, double mass) {
    dd::Inertia inertia;
    inertia.setMass(mass);
    inertia.setMoment(ellipsoid.computeInertia(mass));
    inertia.setLocalCOM(Eigen::Vector3d::Zero());
    return inertia;
}

// The first shape gives the moment of inertia. Otherwise shapes are for display: DART looks for no contacts.
// Returns the spatial inertia of the link's own mass.
Eigen::Matrix6d addShapesAndInertia(const SkeletonLink& link, const dd::Joint& joint,
                                    dd::BodyNode& body) {
    const Eigen::Vector3d diameters =
        link.isIntermediate ? Eigen::Vector3d::Constant(link.radius) : link.size;
    const auto ellipsoid = std::make_shared<dd::EllipsoidShape>(diameters);
    body.createShapeNodeWith<dd::VisualAspect>(ellipsoid)->getVisualAspect()->setColor(
        Eigen::Vector3d(0.1, 0.1, 0.9));
    auto* ball =
        body.createShapeNodeWith<dd::VisualAspect>(std::make_shared<dd::SphereShape>(link.radius));
    ball->getVisualAspect()->setColor(Eigen::Vector3d(0.9, 0.1, 0.1));
    ball->setRelativeTransform(joint.getTransformFromChildBodyNode());

    body.setInertia(inertiaOf(*ellipsoid, link.mass > 0 ? link.mass : kPlaceholderMass));
    if (link.mass > 0) return body.getSpatialInertia();
    Eigen::Matrix6d own = Eigen::Matrix6d::Zero();
    own.topLeftCorner<3, 3>() = ellipsoid->computeInertia(link.mass);
    own.bottomRightCorner<3, 3>().diagonal().setConstant(link.mass);
    return own;
}

class TreeBuilder {
public:
    TreeBuilder(const SkeletonSystem& description, dd::SkeletonPtr skeleton, skLinkMgr& links,
                skJointMgr& joints)
        : description_(description),
          skeleton_(std::move(skeleton)),
          links_(links),
          joints_(joints) {}

    // Creates the joint's body and the bodies below it. parentLink is null at the root.
    void build(const std::shared_ptr<SkeletonJoint>& joint, const SkeletonLink* parentLink) {
        if (joint->children.empty()) return;
        const auto& link = description_.linksByJoint.at(joint->name);
        create(joint, parentLink, link);
        for (const auto& child : joint->children) build(child, link.get());
    }

private:
    void create(const std::shared_ptr<SkeletonJoint>& joint, const SkeletonLink* parentLink,
                const std::shared_ptr<SkeletonLink>& link) {
        requireOwnName(link->name);
        if (joint->type >= 1 && joint->type < kJointTypeCount) requireBuildable(*joint, *link);
        const Eigen::Isometry3d& world = joint->node->worldTransform;
        JointPlace place;
        place.skeleton = skeleton_;
        place.parentBody = parentLink ? skeleton_->getBodyNode(parentLink->name) : nullptr;
        place.joint.mName = joint->name;
        place.joint.mT_ParentBodyToJoint =
            parentLink ? parentLink->transform.inverse() * world : world;
        place.joint.mT_ChildBodyToJoint = link->transform.inverse() * world;
        place.body.mName = link->name;

        const auto [dartJoint, body] = createJointOfType(*joint, place);
        if (!body) {
            reportUnsupported(*joint);
            return;
        }
        dartJoint->setActuatorType(static_cast<dd::Joint::ActuatorType>(joint->actuator));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        dartJoint->setPositionLimitEnforced(joint->useLimits);
#pragma GCC diagnostic pop
        const Eigen::Matrix6d own = addShapesAndInertia(*link, *dartJoint, *body);
        links_.add(std::make_shared<skLink>(body, link, own, skeleton_));
        joints_.add(std::make_shared<skJoint>(joint, dartJoint, skeleton_));
    }

    // DART would rename a second body of the same name, and a search by name would find the first.
    void requireOwnName(const std::string& name) const {
        if (!name.empty() && name != kMovingFrameName && !links_.find(name)) return;
        throw std::invalid_argument(
            "the link name '" + name + "' of '" + skeleton_->getName() +
            "' is empty, taken or reserved; give each link a name of its own");
    }

    const SkeletonSystem& description_;
    dd::SkeletonPtr skeleton_;
    skLinkMgr& links_;
    skJointMgr& joints_;
};

}  // namespace

void buildSkeletonTree(const SkeletonSystem& description, const dd::SkeletonPtr& skeleton,
                       skLinkMgr& links, skJointMgr& joints) {
    links.add(std::make_shared<skLink>(dd::Frame::World(), nullptr));
    TreeBuilder(description, skeleton, links, joints).build(description.rootJoint, nullptr);
}

}  // namespace drelt
