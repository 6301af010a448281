#include "SkeletonDynamics/skSystemBuild.h"

#include <cmath>
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
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skLinkMgr.h"

namespace drelt {

namespace {

namespace dd = dart::dynamics;
using SingleDof = dd::GenericJoint<dart::math::R1Space>::UniqueProperties;
using JointAndBody = std::pair<dd::Joint*, dd::BodyNode*>;

// Of SkeletonJoint::type: revolute, continuous and prismatic joints come first.
constexpr int kLastSingleDof = 3;
constexpr int kWeld = 4;

// Of masses [kg], lengths [m] and axes: moments of inertia stay numbers.
constexpr double kLargest = 1e30;

// Where a joint with limits rests: at zero, or where they exclude it, in their middle.
double restWithin(const SkeletonJoint& joint) {
    const double lower = joint.lower, upper = joint.upper;
    if (lower <= 0 && upper >= 0) return 0.0;
    if (std::isfinite(lower) && std::isfinite(upper)) return (lower + upper) / 2;
    if (std::isfinite(lower)) return lower;
    return std::isfinite(upper) ? upper : 0.0;
}

// Properties of a revolute or prismatic joint's DOF; without limits DART's are infinite.
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

// Where a new joint goes: the body it hangs on (null for the world), its frame seen from both of its
// bodies, and the properties of its own body.
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
        case kLastSingleDof: {
            dd::PrismaticJoint::Properties properties;
            properties.mAxis = joint.axis;
            setDofProperties(joint, properties);
            return createPair<dd::PrismaticJoint>(place, properties);
        }
        case kWeld: return createPair<dd::WeldJoint>(place, {});
        case 5: return createPair<dd::FreeJoint>(place, {});
        case 6: {
            dd::PlanarJoint::Properties properties;
            properties.setArbitraryPlane(joint.planeAxis1, joint.planeAxis2);
            return createPair<dd::PlanarJoint>(place, properties);
        }
        default: return {nullptr, nullptr};
    }
}

[[noreturn]] void refuse(const char* kind, const std::string& name, const std::string& what,
                         const Eigen::VectorXd& given, const char* need) {
    throw std::invalid_argument("the description's " + what + " of the " + kind + " '" + name +
                                "': got " + listed(given) + "; " + need);
}

using Vector1 = Eigen::Matrix<double, 1, 1>;

// Of a link and all that hangs on it.
double massFrom(const SkeletonSystem& description, const SkeletonJoint& joint) {
    if (joint.children.empty()) return 0;
    const SkeletonLink& link = *description.linksByJoint.at(joint.name);
    double mass = link.mass;
    if (!(mass >= 0 && mass <= kLargest))
        refuse("link", link.name, "mass", Vector1(mass), "give zero or more, up to 1e30");
    for (const auto& child : joint.children) mass += massFrom(description, *child);
    return mass;
}

// Whether forces move the joint, and not prescribed motion alone.
bool dynamic(const SkeletonJoint& joint) {
    const auto actuator = static_cast<dd::Joint::ActuatorType>(joint.actuator);
    return joint.type != kWeld && actuator != dd::Joint::ACCELERATION &&
           actuator != dd::Joint::VELOCITY && actuator != dd::Joint::LOCKED;
}

// Numbers that mean nothing, and those on which DART would end the process when it builds the joint and
// its link or in a step.
void requireBuildable(const SkeletonSystem& description, const SkeletonJoint& joint,
                      const SkeletonLink& link) {
    const auto atLeastZero = [&](const char* kind, const std::string& name, const char* what,
                                 double value) {
        if (!(value >= 0)) refuse(kind, name, what, Vector1(value), "give zero or more");
    };
    const auto positive = [&](const char* what, const Eigen::VectorXd& values) {
        if ((values.array() >= 1 / kLargest).all() && (values.array() <= kLargest).all()) return;
        refuse("link", link.name, what, values, "give positive numbers, from 1e-30 to 1e30");
    };
    const double mass = massFrom(description, joint);
    if (dynamic(joint)) positive("mass with all that hangs on it", Vector1(mass));
    positive("radius", Vector1(link.radius));
    if (!link.isIntermediate) positive("size", link.size);
    if (joint.type < 1 || joint.type > kLastSingleDof) return;
    const double length = joint.axis.cwiseAbs().maxCoeff();
    if (!(length >= 1 / kLargest && length <= kLargest))
        refuse("joint", joint.name, "axis", joint.axis, "give a direction");
    atLeastZero("joint", joint.name, "springStiffness", joint.springStiffness);
    if (joint.useDynamcis) {
        atLeastZero("joint", joint.name, "damping", joint.damping);
        atLeastZero("joint", joint.name, "friction", joint.friction);
    }
    if (!joint.useLimits) return;
    atLeastZero("joint", joint.name, "velocity limit", joint.velocity);
    atLeastZero("joint", joint.name, "effort limit", joint.effort);
    if (!(joint.lower <= joint.upper) || std::abs(restWithin(joint)) > kLargest) {
        refuse("joint", joint.name, "limits", Eigen::Vector2d(joint.lower, joint.upper),
               "give lower <= upper, with a rest position between them");
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

// Shapes are for display only: DART finds no contacts. The first one gives the moment of inertia.
void addShapesAndInertia(const SkeletonLink& link, const dd::Joint& joint, dd::BodyNode& body) {
    const Eigen::Vector3d diameters =
        link.isIntermediate ? Eigen::Vector3d::Constant(link.radius) : link.size;
    const auto ellipsoid = std::make_shared<dd::EllipsoidShape>(diameters);
    body.createShapeNodeWith<dd::VisualAspect>(ellipsoid)->getVisualAspect()->setColor(
        Eigen::Vector3d(0.1, 0.1, 0.9));
    auto* ball =
        body.createShapeNodeWith<dd::VisualAspect>(std::make_shared<dd::SphereShape>(link.radius));
    ball->getVisualAspect()->setColor(Eigen::Vector3d(0.9, 0.1, 0.1));
    ball->setRelativeTransform(joint.getTransformFromChildBodyNode());

    dd::Inertia inertia;
    inertia.setMass(link.mass);
    inertia.setMoment(ellipsoid->computeInertia(link.mass));
    inertia.setLocalCOM(Eigen::Vector3d::Zero());
    body.setInertia(inertia);
}

class TreeBuilder {
public:
    TreeBuilder(const SkeletonSystem& description, dd::SkeletonPtr skeleton, skLinkMgr& links,
                skJointMgr& joints)
        : description_(description),
          skeleton_(std::move(skeleton)),
          links_(links),
          joints_(joints) {}

    // Creates the joint's body and those below it; parentLink is null at the root.
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
        if (joint->type >= 1 && joint->type < kJointTypeCount)
            requireBuildable(description_, *joint, *link);
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
        addShapesAndInertia(*link, *dartJoint, *body);
        links_.add(std::make_shared<skLink>(body, link, skeleton_));
        joints_.add(std::make_shared<skJoint>(joint, dartJoint, skeleton_));
    }

    // DART would rename a second body of one name, and look-ups by name find the first.
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
