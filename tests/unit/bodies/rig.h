// Small skinned meshes made in memory, and descriptions on them.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <vector>

#include "support/device.h"
#include "support/message_of.h"
#include "support/skinned_mesh.h"

namespace drelt::test {

inline void addBox(host_MeshData& data, const Eigen::Vector3d& centre, double edge, int bone,
                   int boneCount) {
    const int first = static_cast<int>(data.init_positions.size());
    for (int corner = 0; corner < 8; ++corner) {
        const Eigen::Vector3d out(corner & 1 ? 1 : -1, corner & 2 ? 1 : -1, corner & 4 ? 1 : -1);
        data.init_positions.emplace_back(centre + 0.5 * edge * out);
        data.init_normals.push_back(out.normalized());
        data.weights.emplace_back(Eigen::VectorXd::Unit(boneCount, bone));
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
    const auto fill = [&](host_MeshData& data, const nodeMgr& nodes) {
        for (int b = 0; b < boneCount; ++b) {
            const Eigen::Vector3d bone = nodes.nodes[firstBone + b]->worldTransform.translation();
            addBox(data, bone + Eigen::Vector3d(0.1, 0, 0), edge, b, boneCount);
        }
    };
    return makeSkinned(rig, firstBone, boneCount, test::device(), fill);
}

// A chain of links with passive joints without limits: a floating root and revolute joints about y.
inline std::shared_ptr<SkeletonSystem> makeChain(int links) {
    return withoutLimits(makeRig(chainNodes(links), 1, links), test::device());
}

}  // namespace drelt::test
