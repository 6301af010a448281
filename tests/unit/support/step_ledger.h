// The momentum balance of one step between the links' own masses and the samples' forces.
#pragma once

#include <Eigen/Geometry>
#include <dart/dynamics/BodyNode.hpp>
#include <dart/dynamics/FreeJoint.hpp>
#include <dart/dynamics/Joint.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <dart/math/Geometry.hpp>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "SkeletonDynamics/skLinkMgr.h"
#include "SkeletonDynamics/skSystem.h"

namespace drelt::test {

// Make it before the step and ask it after. The balance is that of the dynamics step: moments of the forces at
// the places before it, accelerations from the joint velocities before and after. A body with a free root has
// no other forces than weight and samples.
class StepLedger {
public:
    explicit StepLedger(const skSystem& body) : body_(body) {
        before_ = body.skeleton()->cloneSkeleton();
        IBSamplerMesh& sampler = body.sampler();
        sampler.copyToHost();
        const mlLagrangeBoundary& b = *sampler.boundary();
        for (int i = 0; i < b.count; ++i)
            places_.emplace_back(b.coordx[i], b.coordy[i], b.coordz[i]);
    }

    // How far force and moment about the origin are from balance, over the sums of the samples' magnitudes.
    struct Residual {
        double force, moment;
    };
    Residual after(double dt, double dx, const Eigen::Vector3d& gravity) const {
        Eigen::Vector3d force = Eigen::Vector3d::Zero(), moment = force;
        double forces = 0, moments = 0;
        body_.sampler().copyToHost();
        const mlLagrangeBoundary& b = *body_.sampler().boundary();
        const double scale = dx * static_cast<double>(b.sampleArea);
        for (std::size_t i = 0; i < places_.size(); ++i) {
            const Eigen::Vector3d F =
                scale * Eigen::Vector3d(b.forcex[i], b.forcey[i], b.forcez[i]);
            force += F;
            moment += places_[i].cross(F);
            forces += F.norm();
            moments += places_[i].cross(F).norm();
        }
        addLinks(dt, gravity, force, moment);
        return {force.norm() / forces, moment.norm() / moments};
    }

    // What the links' own masses needed in the step beyond their weight; the moment is about the origin.
    struct Wrench {
        Eigen::Vector3d force = Eigen::Vector3d::Zero(), moment = force;
    };
    Wrench needed(double dt, const Eigen::Vector3d& gravity) const {
        Wrench sum;
        addLinks(dt, gravity, sum.force, sum.moment);
        return sum;
    }

private:
    // Adds what the links' own masses need beyond their weight.
    void addLinks(double dt, const Eigen::Vector3d& gravity, Eigen::Vector3d& force,
                  Eigen::Vector3d& moment) const {
        accelerate(dt);
        for (int k = 1; k < body_.links().count() - 1; ++k) {
            const skLink& link = *body_.links().links[k];
            const dart::dynamics::BodyNode& old = *before_->getBodyNode(link.getName());
            const Eigen::Matrix6d G = link.ownInertia();
            const Eigen::Vector6d V = old.getSpatialVelocity();
            const Eigen::Vector6d W = G * old.getSpatialAcceleration() - dart::math::dad(V, G * V);
            const Eigen::Isometry3d& pose = old.getWorldTransform();
            const Eigen::Vector3d F = pose.linear() * W.tail<3>() - link.getMass() * gravity;
            force += F;
            moment += pose.linear() * W.head<3>() + pose.translation().cross(F);
        }
    }

    // Gives the state before the step the accelerations of the step; DART's kinematics does the rest.
    void accelerate(double dt) const {
        const auto& now = *body_.skeleton();
        for (std::size_t j = 0; j < now.getNumJoints(); ++j) {
            dart::dynamics::Joint& old = *before_->getJoint(j);
            if (old.getNumDofs() == 0) continue;
            const Eigen::VectorXd v0 = old.getVelocities();
            Eigen::VectorXd a = (now.getJoint(j)->getVelocities() - v0) / dt;
            if (old.getType() == dart::dynamics::FreeJoint::getStaticType()) {
                // velocities of the joint's frame in its own axes, which have turned
                const Eigen::Matrix3d turn = old.getRelativeTransform().linear().transpose() *
                                             now.getJoint(j)->getRelativeTransform().linear();
                const Eigen::Matrix3d axes = old.getTransformFromChildBodyNode().linear();
                const Eigen::Vector3d v1 =
                    axes.transpose() * turn * axes * now.getJoint(j)->getVelocities().tail<3>();
                a.tail<3>() = (v1 - v0.tail<3>()) / dt - v0.head<3>().cross(v0.tail<3>());
            }
            old.setAccelerations(a);
        }
    }

    const skSystem& body_;
    dart::dynamics::SkeletonPtr before_;
    std::vector<Eigen::Vector3d> places_;
};

}  // namespace drelt::test
