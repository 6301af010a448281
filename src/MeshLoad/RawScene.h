// A model file as it stands: what the importer reads, before the rules of loading are applied.
#pragma once

#include <Eigen/Core>
#include <map>
#include <string>
#include <vector>

namespace drelt {

struct RawNode {
    std::string name;
    int parent = -1;            // index of the parent, which comes first; -1 for the root
    Eigen::Matrix4d transform;  // to the parent's frame, with scale and shear
    std::vector<int> meshes;    // indices of the meshes that it holds
};

struct RawBone {
    std::string name;        // of its node
    Eigen::Matrix4d offset;  // from the mesh's frame to the bone's, in the bind pose
    std::vector<int> vertices;
    std::vector<double> weights;  // one per entry of vertices
};

struct RawMesh {
    std::string name;
    int material = 0;
    Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor> vertices, normals;
    Eigen::Matrix<int, Eigen::Dynamic, 3, Eigen::RowMajor> faces;  // triangles only
    std::vector<RawBone> bones;
};

struct RawMaterial {
    std::string name;
    Eigen::Vector4d colour{0.8, 0.8, 0.8, 1};  // red, green, blue, opacity
};

// Lengths are those of the file.
struct RawScene {
    std::vector<RawNode> nodes;
    std::vector<RawMesh> meshes;
    std::vector<RawMaterial> materials;
    std::map<std::string, std::string> metadata;  // as text
};

// Reads a file of any format that Assimp reads; polygons become triangles. Throws std::runtime_error for a
// file that cannot be read, with the importer's reason, and for a damaged model (GltfCheck.h, SceneCheck.h).
RawScene readRawScene(const std::string& path);

}  // namespace drelt
