#include "MeshLoad/hierachyNode.h"

namespace drelt {

namespace {

// The node tree converts between degrees and radians with this value.
constexpr double kPi = 3.1415926;  // sic: prescribed value

// The pose with this position and these Euler angles, in degrees.
Eigen::Isometry3d composePose(const Eigen::Vector3d& position, const Eigen::Vector3d& degrees) {
    const Eigen::Vector3d radians = degrees / 180.0 * kPi;
    const Eigen::Quaterniond rotation =
        Eigen::Quaterniond(Eigen::AngleAxisd(radians.x(), Eigen::Vector3d::UnitX())) *
        Eigen::Quaterniond(Eigen::AngleAxisd(radians.y(), Eigen::Vector3d::UnitY())) *
        Eigen::Quaterniond(Eigen::AngleAxisd(radians.z(), Eigen::Vector3d::UnitZ()));
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
    pose.linear() = rotation.toRotationMatrix();
    pose.translation() = position;
    return pose;
}

}  // namespace

const std::string& nodeMgr::parentName(int node) const {
    static const std::string none;
    return parents[node] < 0 ? none : nodes[parents[node]]->name;
}

int nodeMgr::find(const std::string& name) const {
    const auto found = indexByName.find(name);
    return found == indexByName.end() ? -1 : found->second;
}

int nodeMgr::addNode(const std::string& name, const Eigen::Isometry3d& transform, int parent) {
    const int index = size();
    auto node = std::make_shared<hierachyNode>();
    node->name = name;
    nodes.push_back(std::move(node));
    indexByName.emplace(name, index);
    parents.push_back(parent);
    childBegin.push_back(0);
    childEnd.push_back(0);
    meshIndices.emplace_back();
    setTransform(index, transform);
    return index;
}

void nodeMgr::insertIntermediateNodes(int node) {
    const int first = childBegin[node];
    const int count = childCount(node);
    const std::string prefix = nodes[node]->name + "_intermediate_";
    // several meshes can name the same bone; its branches are split only once
    if (count < 2 || nodes[first]->name == prefix + "0") return;
    const int begin = size();
    for (int i = 0; i < count; ++i) {
        const int added = addNode(prefix + std::to_string(i), Eigen::Isometry3d::Identity(), node);
        childBegin[added] = first + i;
        childEnd[added] = first + i + 1;
        parents[first + i] = added;
    }
    childBegin[node] = begin;
    childEnd[node] = begin + count;
}

void nodeMgr::setTransform(int node, const Eigen::Isometry3d& transform) {
    hierachyNode& target = *nodes[node];
    target.localTransform = transform;
    target.position = transform.translation();
    // takes the polar factor, because imported rotations are orthogonal in single precision only
    const Eigen::Matrix3d rotation = Eigen::Affine3d(transform.matrix()).rotation();
    target.eulerAngles = rotation.eulerAngles(0, 1, 2) * 180.0 / kPi;
}

void nodeMgr::setGlobalInverse() { globalInverse = nodes[0]->localTransform.inverse(); }

void nodeMgr::updateWorldTransforms() {
    if (nodes.empty()) return;
    std::vector<int> pending{0};
    while (!pending.empty()) {
        const int index = pending.back();
        pending.pop_back();
        hierachyNode& node = *nodes[index];
        node.localTransform = composePose(node.position, node.eulerAngles);
        const Eigen::Isometry3d& above =
            parents[index] < 0 ? globalInverse : nodes[parents[index]]->worldTransform;
        node.worldTransform = above * node.localTransform;
        for (int child = childBegin[index]; child < childEnd[index]; ++child) {
            pending.push_back(child);
        }
    }
}

}  // namespace drelt
