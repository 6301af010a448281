#include "SkeletonDynamics/SkeletonDescription.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "Markers/Markers.h"
#include "MeshLoad/SkeletalMesh.h"
#include "platform/check.h"
#include "platform/messages.h"

namespace drelt {

const char* const kJointTypeWords[kJointTypeCount] = {
    "invalid", "revolute", "continuous", "prismatic", "fixed", "floating", "planar"};
const char* const kActuatorWords[kActuatorCount] = {"force",        "passive",  "servo", "mimic",
                                                    "acceleration", "velocity", "locked"};

namespace {

const char* const kIntermediate = "intermediate";
constexpr double kIntermediateMass = 1e-6;    // [kg]
constexpr float kIntermediateRadius = 0.02f;  // [m]
constexpr double kDefaultThickness = 0.02;    // of a link across its bone [m]

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string deriveLinkName(const SkeletonJoint& parent, const SkeletonJoint& firstChild) {
    if (!firstChild.isIntermediate) return "[link]" + parent.name;
    const std::string stem = parent.name.substr(0, parent.name.find("_intermediate"));
    return "[link]" + stem + "::" + firstChild.name;
}

// The rotation that turns the x axis into the direction of a bone: half a turn about y for a bone along
// -x, a quarter turn about y for a bone without length.
Eigen::Matrix3d rotationAlong(const Eigen::Vector3d& bone, double length) {
    const Eigen::Vector3d direction = length > 0 ? Eigen::Vector3d(bone / length) : bone;
    const Eigen::Vector3d x = Eigen::Vector3d::UnitX();
    Eigen::Vector3d axis = x.cross(direction);
    const double sine = axis.norm();
    axis = sine > 0 ? Eigen::Vector3d(axis / sine) : Eigen::Vector3d::UnitY();
    const double angle = std::acos(std::clamp(x.dot(direction), -1.0, 1.0));
    return Eigen::AngleAxisd(angle, axis).toRotationMatrix();
}

}  // namespace

SkeletonLink::SkeletonLink(std::shared_ptr<SkeletonJoint> parent,
                           std::vector<std::shared_ptr<SkeletonJoint>> children,
                           const std::string& linkName)
    : parentJoint(std::move(parent)), childJoints(std::move(children)) {
    const SkeletonJoint& firstChild = *childJoints.front();
    isIntermediate = firstChild.isIntermediate;
    name = linkName.empty() ? deriveLinkName(*parentJoint, firstChild) : linkName;

    const Eigen::Vector3d start = parentJoint->node->worldTransform.translation();
    Eigen::Vector3d end = Eigen::Vector3d::Zero();
    for (const auto& child : childJoints) end += child->node->worldTransform.translation();
    end /= static_cast<double>(childJoints.size());
    centre = (start + end) / 2;
    const double length = (end - start).norm();

    transform = Eigen::Isometry3d::Identity();
    transform.linear() = rotationAlong(end - start, length);
    transform.translation() = centre;
    eulerAngles = transform.linear().eulerAngles(0, 1, 2);
    size = Eigen::Vector3d(length, kDefaultThickness, kDefaultThickness);
}

SkeletonSystem::SkeletonSystem(const std::string& modelFile, int device)
    : GpuCopyable(device), mesh(std::make_shared<SkeletalMesh>()) {
    platform::requireDevice(device, "SkeletonSystem");
    if (mesh->load(modelFile, device)) derive();
}

SkeletonSystem::SkeletonSystem(std::shared_ptr<SkeletalMesh> loadedMesh, int device)
    : GpuCopyable(device), mesh(std::move(loadedMesh)) {
    derive();
}

void SkeletonSystem::derive() {
    splitForks();
    deriveJoints();
    connectJoints();
    warnOfOtherRoots();
    if (rootJoint) mesh->warnOfTransformsAbove(rootJoint->nodeIndex);
    deriveLinks();
}

// Gives every branch of a fork a chain of its own. A fork that several meshes name is split once.
void SkeletonSystem::splitForks() {
    std::set<int> split;
    for (const auto& part : mesh->meshes) {
        for (const int node : part->data_cpu.bone_nodeIdx) {
            if (mesh->nodes->childCount(node) > 1 && split.insert(node).second) {
                mesh->nodes->insertIntermediateNodes(node);
            }
        }
    }
}

// A node is a joint if its name or its parent's name contains a bone's name. Children of bones are
// therefore joints too.
void SkeletonSystem::deriveJoints() {
    const nodeMgr& nodes = *mesh->nodes;
    for (const auto& part : mesh->meshes) {
        for (const int bone : part->data_cpu.bone_nodeIdx) {
            const std::string& boneName = nodes.nodes[bone]->name;
            for (int n = 0; n < nodes.size(); ++n) {
                const auto& node = nodes.nodes[n];
                const std::string& parentName = nodes.parentName(n);
                if (!contains(node->name, boneName) && !contains(parentName, boneName)) continue;
                if (jointsByName.count(node->name) != 0) continue;
                auto joint = std::make_shared<SkeletonJoint>();
                joint->index = static_cast<std::int32_t>(joints.size());
                joint->node = node;
                joint->nodeIndex = n;
                joint->name = node->name;
                joint->parentName = parentName;
                joint->isIntermediate = contains(node->name, kIntermediate);
                joints.push_back(joint);
                jointsByName[joint->name] = joint;
            }
        }
    }
}

void SkeletonSystem::connectJoints() {
    for (const auto& joint : joints) {
        const auto parent = jointsByName.find(joint->parentName);
        if (parent == jointsByName.end()) {
            if (!rootJoint) rootJoint = joint;
        } else if (!joint->parentName.empty()) {
            joint->parent = parent->second;
            parent->second->children.push_back(joint);
        }
    }
}

// Bodies are built from the root joint alone.
void SkeletonSystem::warnOfOtherRoots() const {
    constexpr int kMostNames = 20;
    std::string names;
    int others = 0;
    for (const auto& joint : joints) {
        if (joint == rootJoint || !joint->parent.expired()) continue;
        if (++others <= kMostNames) names += (others == 1 ? "'" : ", '") + joint->name + "'";
    }
    if (others == 0) return;
    if (others > kMostNames) names += " and " + std::to_string(others - kMostNames) + " more";
    warn("the model '" + mesh->filePath + "' has " + std::to_string(others + 1) +
         " root joints. The body is built from '" + rootJoint->name + "' alone; left out are " +
         names +
         " and the bones below them. Give all bones one common root bone, and names that "
         "are not part of other nodes' names");
}

void SkeletonSystem::deriveLinks() {
    mesh->nodes->updateWorldTransforms();
    for (const auto& joint : joints) {
        if (joint->children.empty()) continue;
        auto link = std::make_shared<SkeletonLink>(joint, joint->children);
        if (joint->children.front()->isIntermediate) {
            link->mass = kIntermediateMass;
            link->radius = kIntermediateRadius;
        }
        links.push_back(link);
        linksByName[link->name] = link;
        linksByJoint[joint->name] = link;
    }
}

}  // namespace drelt
