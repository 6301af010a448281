#include "SkeletonDynamics/FluidForces.h"

#include <dart/dynamics/Frame.hpp>
#include <utility>

#include "SkeletonDynamics/skLinkMgr.h"
#include "supplement/StateVisitor.h"

namespace drelt {

using Eigen::Matrix3d;
using Eigen::Vector3d;

FluidForces::FluidForces(std::vector<VolumeMoments> inside)
    : links_(inside.size()), onLinks_(inside.size()) {
    for (std::size_t i = 0; i < links_.size(); ++i) links_[i].inside = inside[i];
}

void FluidForces::clear() {
    for (Link& link : links_) link = Link{link.inside, {}, {}, {}};
    onLinks_.assign(links_.size(), {});
    sum_ = nullptr;
    follows_ = false;
}

FluidForces::Motion FluidForces::motionOf(const Eigen::Isometry3d& pose, const Spatial& velocity) {
    const Matrix3d& R = pose.linear();
    return {R, pose.translation(), R * velocity.head<3>(), R * velocity.tail<3>()};
}

void FluidForces::record(const std::vector<skLinkData>& records) {
    for (std::size_t i = 0; i < links_.size(); ++i)
        links_[i].now = motionOf(records[i].transform, records[i].velocity);
    takeWrenches(records);
    sum_ = nullptr;
}

void FluidForces::takeWrenches(const std::vector<skLinkData>& records) const {
    for (std::size_t i = 0; i < links_.size(); ++i) {
        const Matrix3d& R = links_[i].now.axes;
        onLinks_[i] = {R * records[i].force, R * records[i].torque};
    }
}

void FluidForces::postpone(const std::vector<skLinkData>& records, Sum sum) {
    postponed_ = records;
    sum_ = std::move(sum);
}

void FluidForces::finish() const {
    if (!sum_) return;
    sum_(postponed_);
    sum_ = nullptr;
    takeWrenches(postponed_);
}

void FluidForces::recordExplicit(const std::vector<skLinkData>& records, double density,
                                 double dt) {
    record(records);
    for (Link& link : links_) {
        link.from = follows_ ? link.to : link.now;
        link.to = link.now;
    }
    follows_ = true;
    density_ = density;
    dt_ = dt;
}

void FluidForces::recordModel(const std::vector<skLinkData>& records) {
    record(records);
    for (Link& link : links_) link.from = link.to = link.now;
    follows_ = false;
}

void FluidForces::beginSemiImplicit(const std::vector<skLinkData>& records, double density) {
    record(records);
    density_ = density;
}

void FluidForces::endSemiImplicit(const std::vector<Spatial>& gains, const skLinkMgr& links,
                                  double dt) {
    for (std::size_t i = 0; i < links_.size(); ++i) {
        Link& link = links_[i];
        onLinks_[i].force += link.now.axes * gains[i].tail<3>();
        onLinks_[i].torque += link.now.axes * gains[i].head<3>();
        const dart::dynamics::Frame& frame = *links.links[i]->frame();
        link.from = link.now;
        link.to = motionOf(frame.getWorldTransform(), frame.getSpatialVelocity());
    }
    follows_ = true;
    dt_ = dt;
}

void FluidForces::visitState(StateVisitor& state) {
    finish();
    state.array("links", links_.data(), links_.size());
    state.array("onLinks", onLinks_.data(), onLinks_.size());
    state.value("density", density_);
    state.value("dt", dt_);
    state.value("follows", follows_);
}

// What changes linear and angular momentum of the fluid inside, as a force and a torque about the link's
// centre of mass.
ForceAndTorque FluidForces::rateInside(const Link& link) const {
    const VolumeMoments& in = link.inside;
    const Matrix3d inertia = in.inertia();
    const auto linear = [&](const Motion& m) -> Vector3d {
        return in.volume * (m.velocity + m.turning.cross(m.axes * in.centroid));
    };
    const auto angular = [&](const Motion& m) -> Vector3d {
        return m.axes * (inertia * (m.axes.transpose() * m.turning));
    };
    ForceAndTorque rate;
    rate.force = density_ / dt_ * (linear(link.to) - linear(link.from));
    rate.torque = density_ / dt_ * (angular(link.to) - angular(link.from)) +
                  (link.now.axes * in.centroid).cross(rate.force);
    return rate;
}

ForceAndTorque FluidForces::on(int i, FluidForce which) const {
    finish();
    const ForceAndTorque& on = onLinks_[i];
    if (which == FluidForce::OnLink) return on;
    const ForceAndTorque inside = rateInside(links_[i]);
    return {on.force + inside.force, on.torque + inside.torque};
}

}  // namespace drelt
