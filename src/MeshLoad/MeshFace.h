// Records of triangles and samples, copied as blocks between host and device.
#pragma once

#include <cstdint>

namespace drelt {

// A triangle of a mesh.
struct MeshFace {
    std::int32_t linkId;        // link that owns the face; 0 until faces are labelled
    std::int32_t vertexIds[3];  // indices into the mesh's vertices
    double area;                // at rest [m^2]
};

// A surface sample, tied to one triangle.
struct MeshSample {
    std::uint32_t meshId;  // index of the mesh in its SkeletalMesh
    std::int32_t linkId;   // copied from the face
    std::uint32_t faceId;  // index of the face in its mesh
    double w0, w1, w2;     // barycentric weights of the face's vertices
};

}  // namespace drelt
