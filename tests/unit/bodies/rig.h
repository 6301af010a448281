// Small skinned meshes made in memory, and descriptions on them.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "support/device.h"

namespace drelt::test {

// Nodes in breadth-first order; positions are relative to the parent, by index.
struct RigNode {
    std::string name;
    int parent;
    Eigen::Vector3d position;
};

inline void addBox(host_MeshData& data, const Eigen::Vector3d& centre, double edge, int bone,
                   int boneCount) {
    const int first = static_cast<int>(data.init_positions.size());
    for (int corner = 0; corner < 8; ++corner) {
        const Eigen::Vector3d out(corner & 1 ? 1 : -1, corner & 2 ? 1 : -1, corner & 4 ? 1 : -1);
        data.init_positions.push_back(centre + 0.5 * edge * out);
        data.init_normals.push_back(out.normalized());
        data.weights.push_back(Eigen::VectorXd::Unit(boneCount, bone));
    }
    const int quads[6][4] = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4},
                             {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
    for (const auto& q : quads) {
        data.faces.push_back({0, {first + q[0], first + q[1], first + q[2]}, 0});
        data.faces.push_back({0, {first + q[0], first + q[2], first + q[3]}, 0});
    }
}

// A mesh with one box a bone (nodes [firstBone, firstBone + boneCount)), which stands one tenth of
// a metre along x from the bone and moves with it.
inline std::shared_ptr<SkeletalMesh> makeRig(const std::vector<RigNode>& rig, int firstBone,
                                             int boneCount, double edge = 0.05) {
    auto mesh = std::make_shared<SkeletalMesh>();
    mesh->gpuId = test::device();
    mesh->filePath = "rig";
    nodeMgr& nodes = *mesh->nodes;
    for (const RigNode& node : rig) {
        Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();
        pose.translation() = node.position;
        nodes.addNode(node.name, pose, node.parent);
    }
    for (int i = 0; i < nodes.size(); ++i) {
        nodes.childBegin[i] = nodes.childEnd[i] = 0;
        for (int n = nodes.size() - 1; n > 0; --n) {
            if (nodes.parents[n] != i) continue;
            if (nodes.childEnd[i] == 0) nodes.childEnd[i] = n + 1;
            nodes.childBegin[i] = n;
        }
    }
    nodes.setGlobalInverse();
    nodes.updateWorldTransforms();
    if (boneCount == 0) return mesh;

    auto skin = std::make_shared<MeshData>(test::device());
    host_MeshData& data = skin->data_cpu;
    data.nodeIdx = 0;
    for (int b = 0; b < boneCount; ++b) {
        const Eigen::Isometry3d& bone = nodes.nodes[firstBone + b]->worldTransform;
        data.bone_nodeIdx.push_back(firstBone + b);
        data.bone_offset.push_back(bone.inverse());
        data.bone_transforms.push_back(Eigen::Isometry3d::Identity());
        addBox(data, bone.translation() + Eigen::Vector3d(0.1, 0, 0), edge, b, boneCount);
    }
    data.curr_positions = data.init_positions;
    data.curr_normals = data.init_normals;
    skin->normaliseWeights();
    skin->computeAreas();
    skin->allocateDevice();
    mesh->meshes.push_back(skin);
    mesh->update(false, true);
    return mesh;
}

// Nodes scene, bone_0 .. bone_(links-1), end, each 0.2 m further along x.
inline std::vector<RigNode> chainNodes(int links) {
    std::vector<RigNode> nodes{{"scene", -1, Eigen::Vector3d::Zero()}};
    for (int i = 0; i < links; ++i) {
        nodes.push_back({"bone_" + std::to_string(i), i, Eigen::Vector3d(i == 0 ? 0 : 0.2, 0, 0)});
    }
    nodes.push_back({"end", links, Eigen::Vector3d(0.2, 0, 0)});
    return nodes;
}

// A chain of links with passive joints without limits: a floating root and revolute joints about y.
inline std::shared_ptr<SkeletonSystem> makeChain(int links) {
    auto system =
        std::make_shared<SkeletonSystem>(makeRig(chainNodes(links), 1, links), test::device());
    for (const auto& joint : system->joints) joint->useLimits = false;
    system->rootJoint->type = 5;
    system->baseLinkName = system->links.front()->name;
    return system;
}

// The message of what `action` throws as an Error; empty if it does not.
template <class Error, class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return {};
}

}  // namespace drelt::test
