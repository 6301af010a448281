// What the fluid did to the links of a body in the last step.
//
// The immersed boundary forces the fluid on both sides of the skin, so the force on a link's own mass contains
// what accelerates the fluid inside. Without that share it is the force of the outer fluid, which drag and
// thrust mean. The fluid inside moves as a rigid body with the link (M. Uhlmann, J. Comput. Phys. 209 (2005)
// 448; K. Suzuki, T. Inamuro, Comput. Fluids 49 (2011) 173).
//
// SI units, world axes. Torques are about the links' centres of mass, which are their origins, at the pose
// at which the forces acted: that before the step.
#pragma once

#include <Eigen/Geometry>
#include <functional>
#include <vector>

#include "MeshLoad/VolumeMoments.h"
#include "SkeletonDynamics/skLinkData.h"

namespace drelt {

class skLinkMgr;
class StateVisitor;

enum class FluidForce {
    Outer,   // of the fluid outside the skin
    OnLink,  // on the link's own mass
};

struct ForceAndTorque {
    Eigen::Vector3d force = Eigen::Vector3d::Zero();   // [N]
    Eigen::Vector3d torque = Eigen::Vector3d::Zero();  // [N m]
};

class FluidForces {
public:
    using Spatial = Eigen::Matrix<double, 6, 1>;  // angular part first, link axes

    // The volume inside each link's skin, in the link's axes; one entry per link of the list.
    explicit FluidForces(std::vector<VolumeMoments> inside);

    // All forces are zero, and the next step is the first one.
    void clear();
    // Takes wrenches and poses of the records. With the explicit coupling, the fluid follows the velocities
    // of the records in this step of dt [s], and those of the step before in that one. `density` is that of
    // the fluid [kg/m^3].
    void recordExplicit(const std::vector<skLinkData>& records, double density, double dt);
    // The records have no wrenches yet: `sum` writes them into a copy of the records, once, when a force is asked
    // for. Call it after recordExplicit.
    using Sum = std::function<void(std::vector<skLinkData>&)>;
    void postpone(const std::vector<skLinkData>& records, Sum sum);
    // Forms what was postponed, if anything was, before the sum loses what it reads.
    void finish() const;
    // Takes the wrenches of a model without fluid inside the links.
    void recordModel(const std::vector<skLinkData>& records);
    // The semi-implicit coupling, before and after the dynamics step. Then `gains` are the wrenches that the
    // links got beyond those of the records; the fluid inside has followed the links to their new velocities.
    void beginSemiImplicit(const std::vector<skLinkData>& records, double density);
    void endSemiImplicit(const std::vector<Spatial>& gains, const skLinkMgr& links, double dt);

    ForceAndTorque on(int link, FluidForce which) const;
    // Lists the last step.
    void visitState(StateVisitor& state);
    // Of the link's centre of mass.
    const Eigen::Vector3d& place(int link) const { return links_[link].now.place; }

private:
    struct Motion {
        Eigen::Matrix3d axes = Eigen::Matrix3d::Identity();
        Eigen::Vector3d place = Eigen::Vector3d::Zero();
        Eigen::Vector3d turning = Eigen::Vector3d::Zero();
        Eigen::Vector3d velocity = Eigen::Vector3d::Zero();
    };
    struct Link {
        VolumeMoments inside;
        Motion now;       // when the force acted
        Motion from, to;  // of the fluid inside
    };
    static Motion motionOf(const Eigen::Isometry3d& pose, const Spatial& velocity);
    void record(const std::vector<skLinkData>& records);
    void takeWrenches(const std::vector<skLinkData>& records) const;
    ForceAndTorque rateInside(const Link& link) const;

    std::vector<Link> links_;
    mutable std::vector<ForceAndTorque> onLinks_;  // on the links' own masses
    mutable std::vector<skLinkData> postponed_;
    mutable Sum sum_;  // empty if nothing is postponed
    double density_ = 0, dt_ = 1;
    bool follows_ = false;  // the last step has moved the fluid inside to `to`
};

}  // namespace drelt
