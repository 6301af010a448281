// Samples follow the skin: each takes its position and normal from its triangle.
#pragma once

#include <Eigen/Core>
#include <cmath>

#include "MeshLoad/MeshFace.h"
#include "platform/launch.h"

namespace drelt {

// The barycentric mean of the values at a face's vertices. `values` holds three doubles per vertex.
DRELT_HOST_DEVICE void interpolateOnFace(const MeshFace& face, const MeshSample& sample,
                                         const Eigen::Vector3d* values, float* to) {
    static_assert(sizeof(Eigen::Vector3d) == 3 * sizeof(double), "vectors are packed triples");
    const double* const a = reinterpret_cast<const double*>(values + face.vertexIds[0]);
    const double* const b = reinterpret_cast<const double*>(values + face.vertexIds[1]);
    const double* const c = reinterpret_cast<const double*>(values + face.vertexIds[2]);
    for (int k = 0; k < 3; ++k) {
        to[k] = static_cast<float>(sample.w2 * c[k] + sample.w0 * a[k] + sample.w1 * b[k]);
    }
}

// Moves a sample by `inset` [m] against its normal, whose length is given. A sample without a normal stays.
DRELT_HOST_DEVICE void moveInside(float inset, const float* normal, float length, float* position) {
    if (!(inset > 0 && length > 0)) return;
    for (int k = 0; k < 3; ++k) position[k] -= inset * (normal[k] / length);
}

// Updates one sample of the whole list if it belongs to mesh meshId, whose faces, vertices and normals are
// given. Writes the position [m], `insets` [m] inside the skin or on it if that is null, and the unit normal.
DRELT_KERNEL void updateSamplesPosNormalKernel(LaunchIndex at, int meshId, MeshFace* faces,
                                               MeshSample* samples, Eigen::Vector3d* vertices,
                                               Eigen::Vector3d* normals, float* coordx,
                                               float* coordy, float* coordz, float* normalx,
                                               float* normaly, float* normalz, const float* insets,
                                               int count) {
    if (at.n >= count) return;
    const MeshSample& sample = samples[at.n];
    if (sample.meshId != static_cast<std::uint32_t>(meshId)) return;
    const MeshFace& face = faces[sample.faceId];
    float p[3];
    float n[3];
    interpolateOnFace(face, sample, vertices, p);
    interpolateOnFace(face, sample, normals, n);
    const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (insets != nullptr) moveInside(insets[at.n], n, length, p);
    coordx[at.n] = p[0];
    coordy[at.n] = p[1];
    coordz[at.n] = p[2];
    normalx[at.n] = n[0] / length;
    normaly[at.n] = n[1] / length;
    normalz[at.n] = n[2] / length;
}

// Launches updateSamplesPosNormalKernel on device arrays.
void updateSamplesPosNormal(int meshId, MeshFace* faces, MeshSample* samples,
                            Eigen::Vector3d* vertices, Eigen::Vector3d* normals, float* coordx,
                            float* coordy, float* coordz, float* normalx, float* normaly,
                            float* normalz, const float* insets, int count);

}  // namespace drelt
