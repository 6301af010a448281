#include "SkeletonDynamics/SemiImplicitLinks.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/DegreeOfFreedom.hpp>
#include <dart/dynamics/FreeJoint.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <dart/math/Geometry.hpp>

#include "SkeletonDynamics/JointMotion.h"
#include "SkeletonDynamics/skLinkMgr.h"

namespace drelt {

namespace {

namespace dd = dart::dynamics;
using Eigen::Matrix3d;
using Eigen::Matrix6d;
using Eigen::Vector3d;
using Eigen::Vector6d;

// sum of m (r^2 1 - r r^T) from sum of m r r^T
Matrix3d momentOf(const Matrix3d& second) { return second.trace() * Matrix3d::Identity() - second; }

bool positive(const Eigen::MatrixXd& m) {
    return m.size() == 0 || Eigen::LLT<Eigen::MatrixXd>(m).info() == Eigen::Success;
}

// DART computes a body's terms anew after each call.
void setTensor(dd::BodyNode& body, const Matrix6d& tensor) {
    if (body.getSpatialInertia() == tensor) return;
    dd::Inertia inertia;
    inertia.setSpatialTensor(tensor);
    body.setInertia(inertia);
}

bool movedByForces(const dd::Joint& joint) {
    const auto type = joint.getActuatorType();
    return joint.getNumDofs() > 0 && type != dd::Joint::ACCELERATION &&
           type != dd::Joint::VELOCITY && type != dd::Joint::LOCKED;
}

// The mean acceleration of a joint over the step, impulses of constraints included. DART adds the classical
// linear acceleration to a free joint's velocity; this is undone here.
Eigen::VectorXd jointAcceleration(const dd::Joint& joint, const Eigen::VectorXd& before,
                                  double dt) {
    const Eigen::VectorXd after = velocityInOldAxes(joint, dt);
    Eigen::VectorXd acceleration = (after - before) / dt;
    if (joint.getType() == dd::FreeJoint::getStaticType())
        acceleration.tail<3>() -= Vector3d(before.head<3>()).cross(Vector3d(before.tail<3>()));
    return acceleration;
}

}  // namespace

AddedMass::AddedMass(const LinkMassSums& sums) : mass_(sums[0]), first_(sums.segment<3>(1)) {
    second_ << sums[4], sums[9], sums[8],  //
        sums[9], sums[5], sums[7],         //
        sums[8], sums[7], sums[6];
}

Vector3d AddedMass::centroid() const {
    return mass_ > 0 ? Vector3d(first_ / mass_) : Vector3d(Vector3d::Zero());
}

AddedMass::Tensor AddedMass::tensor() const {
    const Matrix3d cross = dart::math::makeSkewSymmetric(first_);
    Tensor G;
    G << momentOf(second_), cross, -cross, mass_ * Matrix3d::Identity();
    return G;
}

Matrix3d AddedMass::momentAboutCentroid() const {
    const Vector3d c = centroid();
    return momentOf(second_ - mass_ * (c * c.transpose()));
}

SemiImplicitLinks::SemiImplicitLinks(skLinkMgr& links) : links_(links) {
    for (int i = 1; i < links.count() - 1; ++i) {
        dd::BodyNode* const body = links.links[i]->body();
        const auto parent = std::find(bodies_.begin(), bodies_.end(), body->getParentBodyNode());
        parents_.push_back(parent == bodies_.end() ? -1
                                                   : static_cast<int>(parent - bodies_.begin()));
        bodies_.push_back(body);
    }
    added_.resize(bodies_.size());
    accelerations_.resize(bodies_.size());
    gains_.assign(links.links.size(), LinkVelocityGain::Zero());
    wrenches_.assign(links.links.size(), Vector6d::Zero());
}

AddedMass::Tensor SemiImplicitLinks::ownTensor(std::size_t body) const {
    return links_.links[body + 1]->ownInertia();
}

// A body without own mass and without samples keeps DART's placeholder. False if a joint that forces move would
// carry placeholders only, or if DART could not hold what a body would get; it would warn at each call.
bool SemiImplicitLinks::setInertia(double share) {
    std::vector<bool> carries(bodies_.size(), false);
    for (std::size_t i = bodies_.size(); i-- > 0;) {
        const Matrix6d total = ownTensor(i) + share * added_[i].tensor();
        if (!total.isZero(0)) {
            if (!(total.diagonal().array() > 0).all()) return false;
            setTensor(*bodies_[i], total);
            carries[i] = true;
        }
        if (!carries[i] && movedByForces(*bodies_[i]->getParentJoint())) return false;
        if (carries[i] && parents_[i] >= 0) carries[parents_[i]] = true;
    }
    return true;
}

// Singular inertia makes DART end the process, and with negative inertia the motion diverges. A body alone
// may have none if what hangs on it has enough, so the test is that of the joints.
std::string SemiImplicitLinks::weakness(const std::vector<LinkMassSums>& sums) {
    bool each = true;
    for (std::size_t i = 0; i < bodies_.size(); ++i) {
        added_[i] = AddedMass(sums[i + 1]);
        each = each && positive(ownTensor(i) + kHeldShare * added_[i].tensor());
    }
    if (each) return {};
    const bool held = setInertia(kHeldShare) && positiveForForces();
    restore();
    if (held) return {};
    std::string lightest;
    double least = 1e300;
    for (std::size_t i = 0; i < bodies_.size(); ++i) {
        const double mass = ownTensor(i)(3, 3) + kHeldShare * added_[i].mass();
        if (mass >= least) continue;
        least = mass;
        lightest = bodies_[i]->getName();
    }
    return "the masses of its links with half of those of their samples inside the grid do not "
           "resist every motion; the lightest link is '" +
           lightest + "'. Give the links more mass";
}

bool SemiImplicitLinks::positiveForForces() const {
    if (bodies_.empty()) return true;
    const dd::ConstSkeletonPtr skeleton = bodies_.front()->getSkeleton();
    std::vector<Eigen::Index> moved;
    for (std::size_t d = 0; d < skeleton->getNumDofs(); ++d) {
        if (movedByForces(*skeleton->getDof(d)->getJoint()))
            moved.push_back(static_cast<Eigen::Index>(d));
    }
    const Eigen::MatrixXd& all = skeleton->getMassMatrix();
    const auto n = static_cast<Eigen::Index>(moved.size());
    Eigen::MatrixXd M(n, n);
    for (Eigen::Index r = 0; r < n; ++r) {
        for (Eigen::Index c = 0; c < n; ++c) M(r, c) = all(moved[r], moved[c]);
    }
    return positive(M);
}

void SemiImplicitLinks::beginStep(const std::vector<LinkMassSums>& sums) {
    for (std::size_t i = 0; i < bodies_.size(); ++i) added_[i] = AddedMass(sums[i + 1]);
    stopLockedJoints();
    recordBodies();
    setInertia(1.0);
    addWrenches();
}

// DART sets these velocities to zero in the midst of its forward dynamics, after it has used them.
void SemiImplicitLinks::stopLockedJoints() {
    for (dd::BodyNode* body : bodies_) {
        dd::Joint& joint = *body->getParentJoint();
        if (joint.getActuatorType() != dd::Joint::LOCKED) continue;
        joint.setVelocities(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(joint.getNumDofs())));
    }
}

void SemiImplicitLinks::recordBodies() {
    old_.clear();
    for (const dd::BodyNode* body : bodies_) {
        const dd::Joint& joint = *body->getParentJoint();
        old_.push_back({body->getRelativeTransform(), joint.getRelativeJacobian(),
                        joint.getVelocities(), body->getSpatialVelocity(),
                        body->getPartialAcceleration()});
    }
}

// What DART adds for the samples besides inertia times acceleration: their weight, and w x J w of their
// rotation about their centroid.
void SemiImplicitLinks::addWrenches() {
    for (std::size_t i = 0; i < bodies_.size(); ++i) {
        const AddedMass& added = added_[i];
        if (added.mass() == 0) continue;
        dd::BodyNode& body = *bodies_[i];
        const Vector3d w = old_[i].velocity.head<3>();
        Vector3d torque = w.cross(added.momentAboutCentroid() * w);
        if (body.getGravityMode()) {
            const Vector3d g =
                body.getWorldTransform().linear().transpose() * body.getSkeleton()->getGravity();
            torque -= added.first().cross(g);
            body.addExtForce(-added.mass() * g, Vector3d::Zero(), true, true);
        }
        body.addExtTorque(torque, true);
    }
}

void SemiImplicitLinks::restore() {
    for (std::size_t i = 0; i < bodies_.size(); ++i)
        setTensor(*bodies_[i], links_.links[i + 1]->restInertia());
}

// The spatial acceleration of the step at the old pose, as Newton and Euler's equations have it.
Vector6d SemiImplicitLinks::accelerationOf(std::size_t i, double dt) const {
    const OldState& old = old_[i];
    const dd::Joint& joint = *bodies_[i]->getParentJoint();
    Vector6d acceleration = old.products;
    if (parents_[i] >= 0)
        acceleration += dart::math::AdInvT(old.place, accelerations_[parents_[i]]);
    if (joint.getNumDofs() > 0)
        acceleration += old.jacobian * jointAcceleration(joint, old.jointVelocity, dt);
    return acceleration;
}

// The gain is rigid: the centroid of the samples moves as a material point, and the others turn about it with
// the link's angular acceleration. Without the centripetal part about the centroid, a body that turns steadily
// drives no fluid inwards.
const std::vector<LinkVelocityGain>& SemiImplicitLinks::endStep(double dt) {
    restore();
    for (std::size_t i = 0; i < bodies_.size(); ++i) {
        const Vector6d& A = accelerations_[i] = accelerationOf(i, dt);
        const Vector3d w = old_[i].velocity.head<3>(), v = old_[i].velocity.tail<3>();
        const Vector3d c = added_[i].centroid();
        gains_[i + 1] << dt * A.head<3>(), dt * (A.tail<3>() + w.cross(v) + w.cross(w.cross(c)));
        wrenches_[i + 1] = -(added_[i].tensor() * gains_[i + 1]) / dt;
    }
    return gains_;
}

}  // namespace drelt
