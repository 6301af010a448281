// The node tree of an imported scene: bones, their helpers and the nodes that hold meshes.
#pragma once

#include <Eigen/Geometry>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace drelt {

// A node of the scene. Position and Euler angles are what a node's pose is made of; the local
// transform follows from them at each update of the world transforms.
struct hierachyNode {
    std::string name;
    Eigen::Vector3d position = Eigen::Vector3d::Zero();  // in the parent's frame [m]
    Eigen::Vector3d eulerAngles =
        Eigen::Vector3d::Zero();  // about x, then the turned y, z [degrees]
    Eigen::Isometry3d localTransform = Eigen::Isometry3d::Identity();  // to the parent's frame
    Eigen::Isometry3d worldTransform = Eigen::Isometry3d::Identity();
};

// Owns the nodes and their relations. Node 0 is the root. The children of a node have consecutive
// indices; a child's index may be smaller than its parent's once intermediate nodes were inserted,
// so whatever needs parents first walks the tree.
class nodeMgr {
public:
    int size() const { return static_cast<int>(nodes.size()); }
    int childCount(int node) const { return childEnd[node] - childBegin[node]; }
    // Name of a node's parent, empty for the root.
    const std::string& parentName(int node) const;
    // Index of the first node of that name, -1 if there is none.
    int find(const std::string& name) const;

    // Appends a node without children and returns its index; `parent` is -1 for the root. Ranges of
    // children are the caller's (childBegin, childEnd).
    int addNode(const std::string& name, const Eigen::Isometry3d& transform, int parent);
    // Puts a node "<name>_intermediate_<i>" with identity transform between the node and its i-th
    // child, for every child.
    void insertIntermediateNodes(int node);

    // Sets a node's pose in its parent's frame: position and Euler angles are taken from the
    // isometry.
    void setTransform(int node, const Eigen::Isometry3d& transform);
    // Takes the root's present transform as the one that every world transform is relative to.
    void setGlobalInverse();
    // Recomposes all transforms down the tree from positions and Euler angles.
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
