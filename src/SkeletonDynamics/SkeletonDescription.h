// The description of a skeleton: the joints and links that follow from a mesh's bones, and how each of
// them behaves. Live bodies are built from it (skSystem.h).
#pragma once

#include <Eigen/Geometry>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/twoSideDataWrapper.h"

namespace drelt {

class Markers;
class SkeletalMesh;
struct hierachyNode;

inline constexpr int kJointTypeCount = 7;
// Words of SkeletonJoint::type, by value.
extern const char* const kJointTypeWords[kJointTypeCount];
inline constexpr int kActuatorCount = 7;
// Words of SkeletonJoint::actuator, by value; the values are DART's Joint::ActuatorType.
extern const char* const kActuatorWords[kActuatorCount];

// A joint, at the origin of one node of the mesh's hierarchy.
struct SkeletonJoint {
    std::int32_t index = -1;    // position in the list of joints
    std::int32_t actuator = 1;  // index into kActuatorWords: passive
    std::shared_ptr<hierachyNode> node;
    int nodeIndex = -1;      // index of the node in its nodeMgr
    std::string name;        // the node's name
    std::string parentName;  // the parent node's name
    std::int32_t type = 1;   // index into kJointTypeWords: revolute
    std::weak_ptr<SkeletonJoint>
        parent;                   // empty at a root; weak because parents own their children
    bool isIntermediate = false;  // stands between a fork and one of its branches
    std::vector<std::shared_ptr<SkeletonJoint>> children;
    Eigen::Vector3d axis{0, 1, 0};
    Eigen::Vector3d planeAxis1{0, 0, 1};  // the plane of a planar joint
    Eigen::Vector3d planeAxis2{1, 0, 0};
    double springStiffness = 0;
    bool useDynamcis = false;  // whether damping and friction take effect
    bool useLimits = true;     // whether lower .. velocity take effect
    double lower = 0, upper = 0;
    double effort = 0, velocity = 0;
    double damping = 0, friction = 0;
    std::string mimicJoint;  // name of the joint to follow; empty for none
    double multiplier = 1, offset = 0;
    double radius = 0.015f;  // [m]
};

// The rigid body between a joint and its child joints, laid along the bone: its x axis points from
// the joint to the mean of the children.
struct SkeletonLink {
    // Takes the link's place from the world transforms of the nodes. Without linkName the name is "[link]"
    // and the joint's name, or "[link]FORK::CHILD" at a fork.
    SkeletonLink(std::shared_ptr<SkeletonJoint> parent,
                 std::vector<std::shared_ptr<SkeletonJoint>> children,
                 const std::string& linkName = "");

    std::string name;
    std::shared_ptr<SkeletonJoint> parentJoint;
    std::vector<std::shared_ptr<SkeletonJoint>> childJoints;
    double mass = 1;  // [kg]
    bool isIntermediate = false;
    Eigen::Vector3d centre;       // world [m]
    Eigen::Vector3d eulerAngles;  // (x, y, z) [rad]
    Eigen::Isometry3d transform;  // link to world
    Eigen::Vector3d size;         // diameters of the ellipsoid of inertia [m]
    double radius = 0.015f;       // of the sphere that represents an intermediate link [m]
};

// A skeleton's mesh with the joints and links derived from it.
class SkeletonSystem : public GpuCopyable {
public:
    // Loads the mesh and derives joints and links. The description stays empty if the file cannot be read.
    // Throws std::invalid_argument for a device id that names no device.
    SkeletonSystem(const std::string& modelFile, int device);
    // The same for a mesh that is loaded already.
    SkeletonSystem(std::shared_ptr<SkeletalMesh> loadedMesh, int device);

    std::shared_ptr<SkeletalMesh> mesh;
    std::vector<std::shared_ptr<SkeletonJoint>> joints;
    std::map<std::string, std::shared_ptr<SkeletonJoint>> jointsByName;
    std::map<std::string, std::shared_ptr<SkeletonLink>>
        linksByJoint;  // by the parent joint's name
    std::vector<std::shared_ptr<SkeletonLink>> links;
    std::vector<Eigen::Vector3d> markers_placements;  // world [m]
    std::shared_ptr<Markers> markers;                 // markers of the body built last
    std::string baseLinkName;                         // link that defines the body's heading
    std::string baseFrameName;  // link that the grid follows; empty for a grid at rest
    Eigen::Vector3d baseLinkFwd{1, 0, 0};
    Eigen::Vector3d baseLinkRight{0, 0, 1};
    Eigen::Vector3d baseLinkUp{0, 1, 0};
    std::map<std::string, std::shared_ptr<SkeletonLink>> linksByName;  // by derived name
    std::shared_ptr<SkeletonJoint> rootJoint;  // first joint whose parent is not a joint

private:
    void derive();
    void splitForks();
    void deriveJoints();
    void connectJoints();
    void warnOfOtherRoots() const;
    void deriveLinks();
};

// Reads a description file (JSON), loads the mesh that it names and derives joints and links.
// Throws the JSON library's errors, with file and path of the key added to their texts: parse_error for a
// file that cannot be opened or parsed; type_error and out_of_range for values that are missing or of the
// wrong type, and for joints and links of the mesh that the file does not name. Throws
// std::invalid_argument for a device id that names no device. Warns of an unknown type or actuator.
std::shared_ptr<SkeletonSystem> skeletonFromJson(const std::string& jsonFile, int device);

}  // namespace drelt
