// Skinned meshes made in memory, without a file. For tests and the benchmark.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/SkeletalMesh.h"
#include "SkeletonDynamics/SkeletonDescription.h"

namespace drelt::test {

// Nodes in breadth-first order; positions are relative to the parent, by index.
struct RigNode {
    std::string name;
    int parent;
    Eigen::Vector3d position;
};

// The nodes scene, bone_0 .. bone_(links-1) and end. scene and bone_0 lie at the origin, each later node
// 0.2 m further along x.
inline std::vector<RigNode> chainNodes(int links) {
    std::vector<RigNode> nodes{{"scene", -1, Eigen::Vector3d::Zero()}};
    for (int i = 0; i < links; ++i) {
        nodes.push_back({"bone_" + std::to_string(i), i, Eigen::Vector3d(i == 0 ? 0 : 0.2, 0, 0)});
    }
    nodes.push_back({"end", links, Eigen::Vector3d(0.2, 0, 0)});
    return nodes;
}

// A model with these nodes and one skin on the bones [firstBone, firstBone + boneCount); no skin if boneCount
// is 0. fill(data, nodes) gives the skin its vertices, normals, weights and faces.
template <class Fill>
std::shared_ptr<SkeletalMesh> makeSkinned(const std::vector<RigNode>& rig, int firstBone,
                                          int boneCount, int device, Fill&& fill) {
    auto mesh = std::make_shared<SkeletalMesh>();
    mesh->gpuId = device;
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

    auto skin = std::make_shared<MeshData>(device);
    host_MeshData& data = skin->data_cpu;
    data.nodeIdx = 0;
    for (int bone = firstBone; bone < firstBone + boneCount; ++bone) {
        data.bone_nodeIdx.push_back(bone);
        data.bone_offset.push_back(nodes.nodes[bone]->worldTransform.inverse());
        data.bone_transforms.push_back(Eigen::Isometry3d::Identity());
    }
    fill(data, nodes);
    data.curr_positions = data.init_positions;
    data.curr_normals = data.init_normals;
    skin->normaliseWeights();
    skin->computeAreas();
    skin->allocateDevice();
    mesh->meshes.push_back(skin);
    mesh->update(false, true);
    return mesh;
}

// The root joint floats, all others are passive and revolute about y, and none has limits.
inline std::shared_ptr<SkeletonSystem> withoutLimits(std::shared_ptr<SkeletalMesh> mesh,
                                                     int device) {
    auto system = std::make_shared<SkeletonSystem>(std::move(mesh), device);
    for (const auto& joint : system->joints) joint->useLimits = false;
    system->rootJoint->type = 5;
    system->baseLinkName = system->links.front()->name;
    return system;
}

}  // namespace drelt::test
