// A live articulated body: a DART skeleton built from a description, with what ties it to the fluid.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/twoSideDataWrapper.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/mlLifeCycle.h"

namespace dart::dynamics {
class SimpleFrame;
class Skeleton;
}  // namespace dart::dynamics

namespace drelt {

class IBSamplerMesh;
class LinkForceReduction;
class skJoint;
class skJointMgr;
class skLink;
class skLinkMgr;

// Vectors over degrees of freedom (DOFs) are in the order of DART's skeleton; SI units and radians.
// A vector of the wrong length and a number that is not finite raise std::invalid_argument.
class skSystem : public mlLifeCycle<skSystem>, public GpuCopyable {
public:
    // Where meshes and samples are computed in an update.
    enum class Path { Device, Host };

    // Builds the body and places it: translation [m] and rotation [degrees, x y z] are added to the
    // pose of the root joint's node. About sampleNum samples are put on its surface.
    // Raises std::runtime_error for a mesh without joints; std::invalid_argument for a base link or
    // base frame that does not exist, a mimic joint without master, a device other than the
    // description's, a negative sample count, a placement that is not finite.
    skSystem(std::shared_ptr<SkeletonSystem> skeletonDescription, int sampleNum, int device,
             const Eigen::Vector3d& translation, const Eigen::Vector3d& rotation,
             Path path = Path::Device);
    ~skSystem();

    // Turns the body so that its forward axis points along target_orientation, and moves the root
    // joint's node to `position`. That pose is the joints' new zero: positions which the joints
    // already have come on top of it.
    void setHead(const Eigen::Vector3d& position, const Eigen::Vector3d& target_orientation);
    // Samples the surface at rest anew. The host's copy of samples and skin is that of the rest pose
    // until the next update.
    void sample(int sampleNum);

    // The base link's axes, world.
    const Eigen::Vector3d& getBaseLinkFwd() const { return baseLinkFwd_; }
    const Eigen::Vector3d& getBaseLinkRight() const { return baseLinkRight_; }
    const Eigen::Vector3d& getBaseLinkUp() const { return baseLinkUp_; }
    // Null where the description names no base link.
    std::shared_ptr<skLink> getBaseLink() const;
    // Null for an unknown name.
    std::shared_ptr<skLink> getLink(const std::string& name) const;
    std::shared_ptr<skJoint> getJoint(const std::string& name) const;

    // Brings the moving frame, the mesh, markers, samples and their velocities up to the joints' state.
    void update();
    // The same without samples, and with the skin on the host: what the empirical model needs.
    void updateWithoutSamples();

    // "link '...' of '...'", for messages.
    std::string nameOf(const skLink& link) const;

    // Number of actuated DOFs: those of joints that are neither passive nor mimic.
    int getNumDofs() const { return static_cast<int>(controlledDofs_.size()); }
    Eigen::VectorXd getForces() const;
    void setForces(const Eigen::VectorXd& forces);
    // Without includeBase the first joint's DOFs are left out.
    Eigen::VectorXd getVelocities(bool includeBase = true) const;
    Eigen::VectorXd getPositions(bool includeBase = true) const;
    Eigen::VectorXd getAccelerations() const;
    Eigen::Vector3d getCOM() const;
    Eigen::VectorXd getCOMLinearVelocity() const;
    // Lower half of the centre of mass's spatial velocity, in world axes: its linear part.
    Eigen::VectorXd getCOMAngularVelocity() const;
    // Commands of the actuated DOFs.
    Eigen::VectorXd getCommands() const;
    void setCommands(const Eigen::VectorXd& commands);
    const std::shared_ptr<Markers>& getMarkers() const { return markers_; }

    // Turns the samples' forces into wrenches of their links, and applies these. `scale` is the node
    // spacing [m].
    void applyFluidForce(float scale);
    // Applies the wrenches of a flat-plate model: a face that moves against its normal feels
    // a pressure linear in its normal speed, in a medium of density 1000.
    void applyEmpiricalForce();
    // Back to positions and velocities at the end of construction.
    void reset();

    const std::shared_ptr<dart::dynamics::Skeleton>& skeleton() const { return skeleton_; }
    const std::shared_ptr<dart::dynamics::SimpleFrame>& movingFrame() const { return movingFrame_; }
    const std::shared_ptr<SkeletonSystem>& description() const { return description_; }
    IBSamplerMesh& sampler() const { return *sampler_; }
    skLinkMgr& links() const { return *links_; }
    skJointMgr& joints() const { return *joints_; }
    // Whether meshes and samples live on the device.
    bool useGpuPath() const { return useGpuPath_; }
    const std::string& baseFrameName() const { return baseFrameName_; }
    const std::string& baseLinkName() const { return baseLinkName_; }
    int frameLinkIndex() const { return frameLinkIndex_; }
    int worldLinkIndex() const { return worldLinkIndex_; }

private:
    SkeletalMesh& mesh() const { return *description_->mesh; }
    void buildBodies();
    void requireLink(const std::string& name, const char* role) const;
    void labelFaces();
    void placeRoot(const Eigen::Isometry3d& pose);
    void collectControlledDofs();
    void requireValues(const Eigen::VectorXd& values, int needed, const char* what) const;
    void updateBaseAxes();
    void updateMovingFrame();
    void updateLinkRecords();
    void updateOnDevice();
    void updateOnHost();
    void sumWrenchesOnHost(float scale);
    void updateSampleVelocitiesOnHost();

    // the description owns the mesh that the sampler and the markers read, so it goes last
    std::shared_ptr<SkeletonSystem> description_;
    std::shared_ptr<dart::dynamics::Skeleton> skeleton_;
    std::shared_ptr<IBSamplerMesh> sampler_;
    std::shared_ptr<Markers> markers_;
    std::shared_ptr<skLinkMgr> links_;
    std::unique_ptr<LinkForceReduction> reduction_;
    std::shared_ptr<skJointMgr> joints_;
    std::shared_ptr<dart::dynamics::SimpleFrame> movingFrame_;
    std::string baseFrameName_, baseLinkName_;
    int frameLinkIndex_ = 0;
    int worldLinkIndex_ = 0;
    Eigen::Vector3d baseLinkFwd_{1, 0, 0};
    Eigen::Vector3d baseLinkRight_{0, 0, 1};
    Eigen::Vector3d baseLinkUp_{0, 1, 0};
    bool useGpuPath_;
    bool readBack_ = false;
    Eigen::VectorXd initialPositions_, initialVelocities_;
    std::vector<std::size_t> controlledDofs_;
};

}  // namespace drelt
