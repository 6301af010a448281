// A live articulated body: a DART skeleton built from a description, with what ties it to the fluid.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/twoSideDataWrapper.h"
#include "SkeletonDynamics/FluidForces.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/mlLifeCycle.h"

namespace dart::dynamics {
class SimpleFrame;
class Skeleton;
}  // namespace dart::dynamics

namespace drelt {

class IBSamplerMesh;
class JointPower;
class KeptSamples;
class LinkForceReduction;
class SampleMasses;
class SemiImplicitLinks;
struct SampleGrid;
class StateVisitor;
class skJoint;
class skJointMgr;
class skLink;
class skLinkMgr;

// Vectors have one entry per degree of freedom (DOF), in the order of DART's skeleton, in SI units and
// radians. Setters throw std::invalid_argument for a vector of the wrong length and for a number that is
// not finite.
class skSystem : public mlLifeCycle<skSystem>, public GpuCopyable {
public:
    // Where an update computes meshes and samples.
    enum class Path { Device, Host };

    // Builds the body and places it: translation [m] and rotation [degrees, x y z] are added to the
    // pose of the root joint's node. Places about sampleNum samples on its surface.
    // Throws std::runtime_error for a mesh without joints. Throws std::invalid_argument for a base link,
    // base frame or mimic master that does not exist, numbers in the description that no body can have,
    // a device other than the description's, a negative sample count and a placement that is not finite.
    // Warns of a body without links.
    skSystem(std::shared_ptr<SkeletonSystem> skeletonDescription, int sampleNum, int device,
             const Eigen::Vector3d& translation, const Eigen::Vector3d& rotation,
             Path path = Path::Device);
    ~skSystem();

    // Turns the body so that its forward axis points along target_orientation, and moves the root
    // joint's node to `position`. This pose becomes the new zero of the joints; joint positions other
    // than zero are added to it.
    void setHead(const Eigen::Vector3d& position, const Eigen::Vector3d& target_orientation);
    // Places new samples on the surface at rest. The host's samples and skin stay in the rest pose until
    // the next update.
    void sample(int sampleNum);

    // The base link's axes, world.
    const Eigen::Vector3d& getBaseLinkFwd() const { return baseLinkFwd_; }
    const Eigen::Vector3d& getBaseLinkRight() const { return baseLinkRight_; }
    const Eigen::Vector3d& getBaseLinkUp() const { return baseLinkUp_; }
    // Null if the description names no base link.
    std::shared_ptr<skLink> getBaseLink() const;
    // Null for an unknown name.
    std::shared_ptr<skLink> getLink(const std::string& name) const;
    std::shared_ptr<skJoint> getJoint(const std::string& name) const;

    // Updates the moving frame, the mesh, markers, samples and sample velocities from the joint state.
    void update();
    // The same without samples and with the skin on the host, as the empirical model needs it.
    void updateWithoutSamples();

    // Takes the body into a world: false if it is in one that still exists.
    bool joinWorld(const std::shared_ptr<const void>& joined);
    // Throws std::runtime_error if DART cannot solve for a servo or mimic joint in the present pose
    // (ServoCheck.h).
    void requireSolvable() const;

    // Number of actuated DOFs: all DOFs of joints that are neither passive nor mimic.
    int getNumDofs() const { return static_cast<int>(controlledDofs.size()); }
    Eigen::VectorXd getForces() const;
    // Forces of all DOFs for the next step. They act on joints with the actuator "force" only; a force that
    // is not zero on another joint prints a warning, once per body.
    void setForces(const Eigen::VectorXd& forces);
    // Without includeBase, the DOFs of the first joint are left out.
    Eigen::VectorXd getVelocities(bool includeBase = true) const;
    Eigen::VectorXd getPositions(bool includeBase = true) const;
    Eigen::VectorXd getAccelerations() const;
    // Of the links' own masses. These three throw std::logic_error if the masses add up to zero.
    Eigen::Vector3d getCOM() const;
    Eigen::VectorXd getCOMLinearVelocity() const;
    // Lower half of the spatial velocity of the centre of mass, in world axes: the linear part.
    Eigen::VectorXd getCOMAngularVelocity() const;
    // Commands of the actuated DOFs.
    Eigen::VectorXd getCommands() const;
    void setCommands(const Eigen::VectorXd& commands);
    // The power of the actuators in the last step [W], one number per actuated DOF (JointPower.h).
    const Eigen::VectorXd& getJointPower() const;
    const std::shared_ptr<Markers>& getMarkers() const { return markers_; }

    // Sums the sample forces to one wrench per link and applies the wrenches. `scale` is the node spacing
    // [m].
    void applyFluidForce(float scale);
    // Records the sample forces in fluidForces() without applying them; they are summed when they are asked
    // for. density [kg/m^3] and dt [s] are those of FluidForces::recordExplicit.
    void keepFluidForce(float scale, double density, double dt);
    // Applies the wrenches of a flat-plate model. A face that moves against its normal gets a pressure
    // proportional to its normal speed, in a medium of density 1000.
    void applyEmpiricalForce();

    // Semi-implicit coupling (SemiImplicitLinks.h). beginSemiImplicit gives the links the mass of the
    // samples in the grid; call it after all forces and hooks, before the dynamics step. Throws
    // std::runtime_error, with the links' own inertia, if these masses do not suffice.
    void beginSemiImplicit(const SampleGrid& grid, float dx);
    // Call it right after a dynamics step of dt [s]: the links' own inertia again, and the samples' forces
    // with what the new velocities change. Forces are densities as the interpolation gives them.
    void endSemiImplicit(const SampleGrid& grid, float dt);
    // Gives the links their own inertia, after a step that was not completed.
    void restoreOwnInertia();
    // Throws std::invalid_argument for masses that the semi-implicit coupling cannot hold at this fluid
    // density [kg/m^3] and node spacing [m], with all samples in the grid. `weights` are those of the
    // samples over their areas; null: 1 for all.
    void requireSampleMasses(double fluidDensity, double dx,
                             const std::vector<double>* weights = nullptr);
    // What the fluid did to the links in the last step.
    FluidForces& fluidForces() const { return *fluidForces_; }
    // The sum over all links about the body's centre of mass, world axes. Throws std::logic_error if the
    // masses add up to zero.
    ForceAndTorque getFluidWrench(FluidForce which) const;
    // Why links without the mass of samples cannot be stepped; empty if they can.
    const std::string& massObstacle() const { return massObstacle_; }
    bool ownMassesPositive() const;

    // Restores the positions and velocities at the end of construction.
    void reset();

    // Lists what the body keeps between steps. Call stateLoaded after the list was loaded.
    void visitState(StateVisitor& state);
    void stateLoaded();
    // What a body of another description or with other samples would have otherwise, as "name = value".
    std::vector<std::string> identity() const;

    const std::shared_ptr<dart::dynamics::Skeleton>& skeleton() const { return skeleton_; }
    const std::shared_ptr<dart::dynamics::SimpleFrame>& movingFrame() const { return movingFrame_; }
    const std::shared_ptr<SkeletonSystem>& description() const { return description_; }
    IBSamplerMesh& sampler() const { return *sampler_; }
    skLinkMgr& links() const { return *links_; }
    skJointMgr& joints() const { return *joints_; }
    JointPower& jointPower() const { return *jointPower_; }
    // Whether updates compute meshes and samples on the device.
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
    void makeFluidForces();
    void placeRoot(const Eigen::Isometry3d& pose);
    void collectControlledDofs();
    void warnIfWithoutLinks() const;
    void warnOfIdleForces(const Eigen::VectorXd& forces) const;
    void requireMass(const char* what) const;
    void requireValues(const Eigen::VectorXd& values, int needed, const char* what) const;
    void updateBaseAxes();
    void updateMovingFrame();
    void updateLinkRecords();
    void updateOnDevice();
    void updateOnHost();
    void sumWrenchesOnHost(float scale);
    void updateSampleVelocitiesOnHost();
    std::string findMassObstacle() const;
    SemiImplicitLinks& semiImplicit();
    const std::vector<Eigen::Matrix<double, 10, 1>>& sumSampleMasses(const SampleGrid& grid,
                                                                     float dx);
    template <class Property>
    Eigen::Vector3d meanByOwnMass(Property&& property) const;
    double ownMass() const;

    // the sampler and the markers read the description's mesh, so the description is destroyed last
    std::shared_ptr<SkeletonSystem> description_;
    std::shared_ptr<dart::dynamics::Skeleton> skeleton_;
    std::shared_ptr<IBSamplerMesh> sampler_;
    std::shared_ptr<Markers> markers_;
    std::shared_ptr<skLinkMgr> links_;
    std::shared_ptr<FluidForces> fluidForces_;  // shared with the links
    std::unique_ptr<LinkForceReduction> reduction_;
    std::unique_ptr<KeptSamples> keptSamples_;         // null until needed
    std::unique_ptr<SemiImplicitLinks> semiImplicit_;  // this and the next: null until needed
    std::unique_ptr<SampleMasses> sampleMasses_;
    std::vector<Eigen::Matrix<double, 10, 1>> hostMassSums_;
    std::shared_ptr<skJointMgr> joints_;
    std::unique_ptr<JointPower> jointPower_;
    std::shared_ptr<dart::dynamics::SimpleFrame> movingFrame_;
    std::string baseFrameName_, baseLinkName_;
    int frameLinkIndex_ = 0;
    int worldLinkIndex_ = 0;
    Eigen::Vector3d baseLinkFwd_{1, 0, 0};
    Eigen::Vector3d baseLinkRight_{0, 0, 1};
    Eigen::Vector3d baseLinkUp_{0, 1, 0};
    std::string massObstacle_;
    bool useGpuPath_;
    bool readBack = false;
    Eigen::VectorXd initialPositions, initialVelocities;  // at the end of construction
    std::vector<std::size_t> controlledDofs;              // skeleton indices of the actuated DOFs
    std::weak_ptr<const void> world_;                     // DART's world that the body is in
};

}  // namespace drelt
