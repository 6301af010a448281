// The node tree of an imported scene: bones, their helpers and the nodes that hold meshes.
#pragma once

#include <Eigen/Geometry>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace drelt {

// A node of the scene. Its pose is stored as position and Euler angles. Each update of the world
// transforms recomputes the local transform from them.
struct hierachyNode {
    std::string name;
    Eigen::Vector3d position = Eigen::Vector3d::Zero();  // in the parent's frame [m]
    Eigen::Vector3d eulerAngles =
        Eigen::Vector3d::Zero();  // about x, then about the rotated y and z [degrees]
    Eigen::Isometry3d localTransform = Eigen::Isometry3d::Identity();  // to the parent's frame
    Eigen::Isometry3d worldTransform = Eigen::Isometry3d::Identity();
};

// Owns the nodes and their relations. Node 0 is the root. The children of a node have consecutive
// indices. After intermediate nodes were inserted, a child's index can be smaller than its parent's.
// Where parents must come first, walk the tree instead of counting up indices.
class nodeMgr {
public:
    int size() const { return static_cast<int>(nodes.size()); }
    int childCount(int node) const { return childEnd[node] - childBegin[node]; }
    // Name of a node's parent, empty for the root.
    const std::string& parentName(int node) const;
    // Index of the first node of that name, -1 if there is none.
    int find(const std::string& name) const;

    // Appends a node without children and returns its index. `parent` is -1 for the root. The caller sets
    // the parent's range of children (childBegin, childEnd).
    int addNode(const std::string& name, const Eigen::Isometry3d& transform, int parent);
    // Inserts a node "<name>_intermediate_<i>" with identity transform between the node and each child i.
    void insertIntermediateNodes(int node);

    // Sets a node's pose in its parent's frame. Position and Euler angles are computed from the isometry.
    void setTransform(int node, const Eigen::Isometry3d& transform);
    // Makes all world transforms relative to the root's present transform.
    void setGlobalInverse();
    // Recomputes all transforms, from the root down, from positions and Euler angles.
    void updateWorldTransforms();

    Eigen::Isometry3d globalInverse =
        Eigen::Isometry3d::Identity();  // inverse of the root as loaded
    std::map<std::string, int> indexByName;
    std::vector<std::shared_ptr<hierachyNode>> nodes;
    std::vector<int> parents;               // -1 for the root
    std::vector<int> childBegin, childEnd;  // children of a node are [childBegin, childEnd)
    std::vector<std::vector<unsigned>> meshIndices;  // scene meshes that a node holds
};

}  // namespace drelt
