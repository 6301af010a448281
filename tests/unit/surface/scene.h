// Small scenes made in memory, as an importer would deliver them.
#pragma once

#include <assimp/scene.h>

#include <Eigen/Core>
#include <array>
#include <memory>
#include <string>
#include <vector>

namespace drelt::test {

struct SceneMesh {
    std::vector<Eigen::Vector3f> positions;
    std::vector<std::array<unsigned, 3>> triangles;
    Eigen::Vector3f normal{0, 0, 1};  // of every vertex
};

// Two triangles that span the rectangle from the origin to (width, height, 0), shifted along z.
inline SceneMesh rectangle(float width, float height, float z = 0) {
    return {{{0, 0, z}, {width, 0, z}, {width, height, z}, {0, height, z}}, {{0, 1, 2}, {0, 2, 3}}};
}

inline aiMatrix4x4 translation(float x, float y, float z) {
    aiMatrix4x4 matrix;
    return aiMatrix4x4::Translation(aiVector3D(x, y, z), matrix);
}

inline aiNode* addChild(aiNode& parent, const std::string& name,
                        const aiMatrix4x4& transform = {}) {
    auto* const child = new aiNode(name);
    child->mTransformation = transform;
    aiNode* list[] = {child};
    parent.addChildren(1, list);
    return child;
}

inline std::unique_ptr<aiScene> emptyScene() {
    auto scene = std::make_unique<aiScene>();
    scene->mRootNode = new aiNode("scene");
    return scene;
}

// Appends a mesh to the scene and gives it to the node, which must hold none so far.
inline aiMesh* addMesh(aiScene& scene, aiNode& node, const SceneMesh& from) {
    auto* const mesh = new aiMesh;
    mesh->mNumVertices = static_cast<unsigned>(from.positions.size());
    mesh->mVertices = new aiVector3D[mesh->mNumVertices];
    mesh->mNormals = new aiVector3D[mesh->mNumVertices];
    for (unsigned i = 0; i < mesh->mNumVertices; ++i) {
        const Eigen::Vector3f& p = from.positions[i];
        mesh->mVertices[i] = aiVector3D(p.x(), p.y(), p.z());
        mesh->mNormals[i] = aiVector3D(from.normal.x(), from.normal.y(), from.normal.z());
    }
    mesh->mNumFaces = static_cast<unsigned>(from.triangles.size());
    mesh->mFaces = new aiFace[mesh->mNumFaces];
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        mesh->mFaces[f].mNumIndices = 3;
        mesh->mFaces[f].mIndices = new unsigned[3];
        for (int k = 0; k < 3; ++k) mesh->mFaces[f].mIndices[k] = from.triangles[f][k];
    }
    auto** const meshes = new aiMesh*[scene.mNumMeshes + 1];
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) meshes[m] = scene.mMeshes[m];
    meshes[scene.mNumMeshes] = mesh;
    delete[] scene.mMeshes;
    scene.mMeshes = meshes;
    node.mNumMeshes = 1;
    node.mMeshes = new unsigned[1]{scene.mNumMeshes};
    ++scene.mNumMeshes;
    return mesh;
}

struct VertexWeight {
    unsigned vertex;
    float weight;
};

inline void addBone(aiMesh& mesh, const std::string& name, const std::vector<VertexWeight>& weights,
                    const aiMatrix4x4& offset = {}) {
    auto* const bone = new aiBone;
    bone->mName = name;
    bone->mOffsetMatrix = offset;
    bone->mNumWeights = static_cast<unsigned>(weights.size());
    bone->mWeights = new aiVertexWeight[weights.size()];
    for (std::size_t i = 0; i < weights.size(); ++i) {
        bone->mWeights[i] = aiVertexWeight(weights[i].vertex, weights[i].weight);
    }
    auto** const bones = new aiBone*[mesh.mNumBones + 1];
    for (unsigned b = 0; b < mesh.mNumBones; ++b) bones[b] = mesh.mBones[b];
    bones[mesh.mNumBones++] = bone;
    delete[] mesh.mBones;
    mesh.mBones = bones;
}

// A scene of rectangles of the given areas [m^2], one node each, without bones.
inline std::unique_ptr<aiScene> rectanglesOf(const std::vector<float>& areas) {
    auto scene = emptyScene();
    for (std::size_t i = 0; i < areas.size(); ++i) {
        aiNode* const node = addChild(*scene->mRootNode, "plate" + std::to_string(i));
        addMesh(*scene, *node, rectangle(areas[i], 1.0f, static_cast<float>(i)));
    }
    return scene;
}

}  // namespace drelt::test
