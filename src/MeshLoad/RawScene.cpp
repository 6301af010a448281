#include "MeshLoad/RawScene.h"

#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "MeshLoad/GltfCheck.h"
#include "MeshLoad/SceneCheck.h"

namespace drelt {

namespace {

Eigen::Matrix4d widened(const aiMatrix4x4& matrix) {
    Eigen::Matrix4d result;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            result(row, column) = matrix[static_cast<unsigned>(row)][static_cast<unsigned>(column)];
        }
    }
    return result;
}

Eigen::RowVector3d widened(const aiVector3D& v) { return {v.x, v.y, v.z}; }

// Parents before children.
std::vector<RawNode> nodesOf(const aiNode& root) {
    std::vector<RawNode> nodes;
    std::vector<std::pair<const aiNode*, int>> pending{{&root, -1}};
    while (!pending.empty()) {
        const auto [node, parent] = pending.back();
        pending.pop_back();
        RawNode taken;
        taken.name = node->mName.C_Str();
        taken.parent = parent;
        taken.transform = widened(node->mTransformation);
        for (unsigned i = 0; i < node->mNumMeshes; ++i) {
            taken.meshes.push_back(static_cast<int>(node->mMeshes[i]));
        }
        const int index = static_cast<int>(nodes.size());
        nodes.push_back(std::move(taken));
        for (unsigned child = node->mNumChildren; child > 0; --child) {
            pending.emplace_back(node->mChildren[child - 1], index);
        }
    }
    return nodes;
}

RawBone boneOf(const aiBone& bone) {
    RawBone taken;
    taken.name = bone.mName.C_Str();
    taken.offset = widened(bone.mOffsetMatrix);
    for (unsigned i = 0; i < bone.mNumWeights; ++i) {
        taken.vertices.push_back(static_cast<int>(bone.mWeights[i].mVertexId));
        taken.weights.push_back(bone.mWeights[i].mWeight);
    }
    return taken;
}

RawMesh meshOf(const aiMesh& mesh) {
    RawMesh taken;
    taken.name = mesh.mName.C_Str();
    taken.material = static_cast<int>(mesh.mMaterialIndex);
    taken.vertices.resize(mesh.mNumVertices, 3);
    taken.normals.setZero(mesh.mNumVertices, 3);
    for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        taken.vertices.row(v) = widened(mesh.mVertices[v]);
        if (mesh.mNormals != nullptr) taken.normals.row(v) = widened(mesh.mNormals[v]);
    }
    Eigen::Index triangles = 0;
    taken.faces.resize(mesh.mNumFaces, 3);
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        if (face.mNumIndices != 3) continue;  // points and lines have no surface
        for (unsigned corner = 0; corner < 3; ++corner) {
            taken.faces(triangles, corner) = static_cast<int>(face.mIndices[corner]);
        }
        ++triangles;
    }
    taken.faces.conservativeResize(triangles, 3);
    for (unsigned b = 0; b < mesh.mNumBones; ++b) taken.bones.push_back(boneOf(*mesh.mBones[b]));
    return taken;
}

RawMaterial materialOf(const aiMaterial& material) {
    RawMaterial taken;
    aiString name;
    if (material.Get(AI_MATKEY_NAME, name) == AI_SUCCESS) taken.name = name.C_Str();
    aiColor4D colour;
    if (material.Get(AI_MATKEY_COLOR_DIFFUSE, colour) == AI_SUCCESS)
        taken.colour = {colour.r, colour.g, colour.b, colour.a};
    return taken;
}

// Entries of other types, such as vectors, say nothing about units and axes.
std::map<std::string, std::string> metadataOf(const aiScene& scene) {
    std::map<std::string, std::string> entries;
    const aiMetadata* const metadata = scene.mMetaData;
    for (unsigned i = 0; metadata != nullptr && i < metadata->mNumProperties; ++i) {
        const aiMetadataEntry& entry = metadata->mValues[i];
        std::ostringstream text;
        text.precision(17);
        switch (entry.mType) {
            case AI_BOOL: text << *static_cast<const bool*>(entry.mData); break;
            case AI_INT32: text << *static_cast<const std::int32_t*>(entry.mData); break;
            case AI_UINT64: text << *static_cast<const std::uint64_t*>(entry.mData); break;
            case AI_FLOAT: text << *static_cast<const float*>(entry.mData); break;
            case AI_DOUBLE: text << *static_cast<const double*>(entry.mData); break;
            case AI_AISTRING: text << static_cast<const aiString*>(entry.mData)->C_Str(); break;
            default: continue;
        }
        entries[metadata->mKeys[i].C_Str()] = text.str();
    }
    return entries;
}

}  // namespace

RawScene readRawScene(const std::string& path) {
    checkGltf(path);
    Assimp::Importer importer;
    importer.SetPropertyInteger(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, 0);
    const aiScene* imported = importer.ReadFile(path, 0);
    if (imported != nullptr) {
        checkScene(*imported, path);  // triangulation relies on it
        imported = importer.ApplyPostProcessing(aiProcess_Triangulate);
    }
    if (imported == nullptr) {
        throw std::runtime_error("the model '" + path +
                                 "' cannot be read: " + importer.GetErrorString());
    }
    RawScene scene;
    scene.nodes = nodesOf(*imported->mRootNode);
    for (unsigned m = 0; m < imported->mNumMeshes; ++m)
        scene.meshes.push_back(meshOf(*imported->mMeshes[m]));
    for (unsigned m = 0; m < imported->mNumMaterials; ++m)
        scene.materials.push_back(materialOf(*imported->mMaterials[m]));
    scene.metadata = metadataOf(*imported);
    return scene;
}

}  // namespace drelt
