// The links' side of the semi-implicit coupling (after Tschisgale, Kempe and Froehlich, J. Comput. Phys.
// 339, 2017, and Comput. Fluids 170, 2018, here for articulated bodies).
//
// A sample's force is linear in the new velocity of its link. That part goes to the left side of the equation
// of motion: for a dynamics step, each link has its own inertia and that of the point masses at its samples.
// After the step the samples' velocities are known, and the forces on the fluid get their share.
//
// SI units. Vectors and tensors are about a link's origin in link axes, angular part first, as in DART.
#pragma once

#include <Eigen/Geometry>
#include <string>
#include <vector>

#include "SkeletonDynamics/SampleMasses.h"

namespace dart::dynamics {
class BodyNode;
}  // namespace dart::dynamics

namespace drelt {

class skLinkMgr;

// The point masses of a link as a rigid body.
class AddedMass {
public:
    using Tensor = Eigen::Matrix<double, 6, 6>;

    AddedMass() = default;
    explicit AddedMass(const LinkMassSums& sums);

    double mass() const { return mass_; }
    const Eigen::Vector3d& first() const { return first_; }  // sum of mass times place [kg m]
    Eigen::Vector3d centroid() const;
    Tensor tensor() const;  // spatial inertia
    Eigen::Matrix3d momentAboutCentroid() const;

private:
    double mass_ = 0;
    Eigen::Vector3d first_ = Eigen::Vector3d::Zero();
    Eigen::Matrix3d second_ = Eigen::Matrix3d::Zero();
};

// Share of the samples' masses that own masses may be short of: M_own + kHeldShare M_samples must be positive.
// Half is the limit for heavy fluid. The point masses of Poisson-disk samples are 0.9069 of the surface.
inline constexpr double kDiscShare = 0.9069;
inline constexpr double kLightest = 0.45;
inline constexpr double kHeldShare = kLightest / kDiscShare;

class SemiImplicitLinks {
public:
    explicit SemiImplicitLinks(skLinkMgr& links);

    // Empty if the own masses with kHeldShare of the samples' are positive for all motions that forces
    // cause; otherwise says what is too light. `sums` has one entry per link of the list.
    std::string weakness(const std::vector<LinkMassSums>& sums);

    // Gives the links the inertia of their samples, and the wrenches that take off what DART would add for
    // it besides inertia times acceleration. Call it after all forces and hooks. The sums must have passed
    // weakness().
    void beginStep(const std::vector<LinkMassSums>& sums);
    // Call it right after the dynamics step of dt [s]: gives the links their own inertia again, and returns
    // what the velocities of the samples gained, one entry per link of the list.
    const std::vector<LinkVelocityGain>& endStep(double dt);
    // After endStep: what the new velocities changed of the samples' forces on each link, about its origin
    // at the pose before the step.
    const std::vector<Eigen::Matrix<double, 6, 1>>& addedWrenches() const { return wrenches_; }
    // Gives the links their own inertia, in whatever state they are.
    void restore();

private:
    // A body before the step.
    struct OldState {
        Eigen::Isometry3d place;  // of the body in its parent
        Eigen::MatrixXd jacobian;
        Eigen::VectorXd jointVelocity;
        Eigen::Matrix<double, 6, 1> velocity;  // spatial
        Eigen::Matrix<double, 6, 1> products;  // DART's partial acceleration
    };

    AddedMass::Tensor ownTensor(std::size_t body) const;
    bool setInertia(double share);
    bool positiveForForces() const;
    void stopLockedJoints();
    void recordBodies();
    void addWrenches();
    Eigen::Matrix<double, 6, 1> accelerationOf(std::size_t body, double dt) const;

    skLinkMgr& links_;
    std::vector<dart::dynamics::BodyNode*> bodies_;  // of links 1, 2, ...; parents come first
    std::vector<int> parents_;                       // index in bodies_; -1 for the world
    std::vector<AddedMass> added_;
    std::vector<OldState> old_;
    std::vector<Eigen::Matrix<double, 6, 1>> accelerations_;  // spatial
    std::vector<LinkVelocityGain> gains_;
    std::vector<Eigen::Matrix<double, 6, 1>> wrenches_;  // one per link of the list
};

}  // namespace drelt
