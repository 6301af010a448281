// Skinning: vertices and normals follow the bones by linear blending of the bones' matrices.
#pragma once

#include <Eigen/Geometry>

#include "platform/launch.h"

namespace drelt {

// A blended 4 x 4 transform, column by column as Eigen stores it.
struct SkinMatrix {
    double entry[16];
};

// The sum of weight times bone transform over all bones, in the bones' order. A vertex without weights takes
// the node's transform. The sum is not made orthogonal again. Skips bones of weight 0 after the first, because
// few of many bones act on one vertex.
DRELT_HOST_DEVICE SkinMatrix blendSkinMatrix(const Eigen::Isometry3d* node_transform,
                                             const Eigen::Isometry3d* bone_transforms,
                                             int bone_affected, const double* weights,
                                             int boneCount) {
    static_assert(sizeof(Eigen::Isometry3d) == sizeof(SkinMatrix), "transforms are 4 x 4 blocks");
    const bool affected = bone_affected != 0;
    const double first = affected ? weights[0] : 1.0;
    const double* transform =
        reinterpret_cast<const double*>(affected ? bone_transforms : node_transform);
    SkinMatrix m;
    for (int e = 0; e < 16; ++e) m.entry[e] = first * transform[e];
    const int terms = affected ? boneCount : 1;
    for (int b = 1; b < terms; ++b) {
        const double weight = weights[b];
        if (weight == 0.0) continue;
        const double* const term = transform + std::int64_t{16} * b;
        for (int e = 0; e < 16; ++e) m.entry[e] += weight * term[e];
    }
    return m;
}

DRELT_HOST_DEVICE void transformVector(const SkinMatrix& m, const double* from, double* to) {
    for (int r = 0; r < 3; ++r) {
        to[r] = m.entry[r] * from[0] + m.entry[4 + r] * from[1] + m.entry[8 + r] * from[2];
    }
}

DRELT_HOST_DEVICE void transformPoint(const SkinMatrix& m, const double* from, double* to) {
    for (int r = 0; r < 3; ++r) {
        to[r] = m.entry[r] * from[0] + m.entry[4 + r] * from[1] + m.entry[8 + r] * from[2] +
                m.entry[12 + r];
    }
}

// Computes the current position and normal of one vertex from those at rest. bone_weights_arr holds boneCount
// weights per vertex. Normals are not normalised.
DRELT_KERNEL void updateVerticesPosKernel(LaunchIndex at, Eigen::Isometry3d* node_transform,
                                          Eigen::Isometry3d* bone_transforms, int* bone_affected,
                                          double* bone_weights_arr, Eigen::Vector3d* init_positions,
                                          Eigen::Vector3d* curr_positions,
                                          Eigen::Vector3d* init_normals,
                                          Eigen::Vector3d* curr_normals, int vertexCount,
                                          int boneCount) {
    if (at.n >= vertexCount) return;
    const SkinMatrix m = blendSkinMatrix(node_transform, bone_transforms, bone_affected[at.n],
                                         bone_weights_arr + at.n * boneCount, boneCount);
    transformPoint(m, reinterpret_cast<const double*>(init_positions + at.n),
                   reinterpret_cast<double*>(curr_positions + at.n));
    transformVector(m, reinterpret_cast<const double*>(init_normals + at.n),
                    reinterpret_cast<double*>(curr_normals + at.n));
}

// Launches updateVerticesPosKernel on device arrays.
void updateVerticesPos(Eigen::Isometry3d* node_transform, Eigen::Isometry3d* bone_transforms,
                       int* bone_affected, double* bone_weights_arr,
                       Eigen::Vector3d* init_positions, Eigen::Vector3d* curr_positions,
                       Eigen::Vector3d* init_normals, Eigen::Vector3d* curr_normals,
                       int vertexCount, int boneCount);

}  // namespace drelt
