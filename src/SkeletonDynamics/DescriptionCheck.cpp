#include "SkeletonDynamics/DescriptionCheck.h"

#include <cmath>
#include <stdexcept>
#include <string>

#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/requireFinite.h"

namespace drelt {

namespace {

using Vector1 = Eigen::Matrix<double, 1, 1>;

constexpr int kPrismatic = 3;  // the last of the types with one degree of freedom

// Bound of masses, lengths, axes, springs, dampers and mimic factors, in SI units: moments of inertia
// and the products of a step stay finite.
constexpr double kLargest = 1e30;

[[noreturn]] void refuse(const char* kind, const std::string& name, const std::string& what,
                         const Eigen::VectorXd& given, const char* need) {
    throw std::invalid_argument("the description's " + what + " of the " + kind + " '" + name +
                                "': got " + listed(given) + "; " + need);
}

void requireLink(const SkeletonLink& link) {
    const auto positive = [&](const char* what, const Eigen::VectorXd& values) {
        if ((values.array() >= 1 / kLargest).all() && (values.array() <= kLargest).all()) return;
        refuse("link", link.name, what, values, "give positive numbers, from 1e-30 to 1e30");
    };
    if (!(std::abs(link.mass) <= kLargest))
        refuse("link", link.name, "mass", Vector1(link.mass), "give a number, none beyond 1e30");
    positive("radius", Vector1(link.radius));
    if (!link.isIntermediate) positive("size", link.size);
}

void requireMimic(const SkeletonJoint& joint) {
    if (joint.mimicJoint.empty()) return;
    const Eigen::Vector2d numbers(joint.multiplier, joint.offset);
    if ((numbers.array().abs() <= kLargest).all()) return;
    refuse("joint", joint.name, "mimic multiplier and offset", numbers,
           "give finite numbers, none above 1e30");
}

void requireSingleDof(const SkeletonJoint& joint) {
    const auto inRange = [&](const char* what, double value) {
        if (value >= 0 && value <= kLargest) return;
        refuse("joint", joint.name, what, Vector1(value), "give zero or more, up to 1e30");
    };
    const auto atLeastZero = [&](const char* what, double value) {
        if (!(value >= 0)) refuse("joint", joint.name, what, Vector1(value), "give zero or more");
    };
    const double length = joint.axis.cwiseAbs().maxCoeff();
    if (!(length >= 1 / kLargest && length <= kLargest))
        refuse("joint", joint.name, "axis", joint.axis, "give a direction");
    inRange("springStiffness", joint.springStiffness);
    if (joint.useDynamcis) {
        inRange("damping", joint.damping);
        inRange("friction", joint.friction);
    }
    if (!joint.useLimits) return;
    atLeastZero("velocity limit", joint.velocity);
    atLeastZero("effort limit", joint.effort);
    if (!(joint.lower <= joint.upper) || std::abs(restWithin(joint)) > kLargest) {
        refuse("joint", joint.name, "limits", Eigen::Vector2d(joint.lower, joint.upper),
               "give lower <= upper, with a rest position between them");
    }
}

}  // namespace

double restWithin(const SkeletonJoint& joint) {
    const double lower = joint.lower, upper = joint.upper;
    if (lower <= 0 && upper >= 0) return 0.0;
    if (std::isfinite(lower) && std::isfinite(upper)) return (lower + upper) / 2;
    if (std::isfinite(lower)) return lower;
    return std::isfinite(upper) ? upper : 0.0;
}

void requireBuildable(const SkeletonJoint& joint, const SkeletonLink& link) {
    requireLink(link);
    requireMimic(joint);
    if (joint.type >= 1 && joint.type <= kPrismatic) requireSingleDof(joint);
}

}  // namespace drelt
