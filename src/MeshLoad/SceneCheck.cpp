#include "MeshLoad/SceneCheck.h"

#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/runtime.h"

namespace drelt {

namespace {

constexpr const char* kUnitScaleKey = "UnitScaleFactor";
constexpr std::size_t kLongestKey = 1023;
constexpr double kLargestScale = 1e9;
// The largest length [file units] and weight. Areas of such lengths stay finite in single precision.
constexpr float kLargest = 1e12f;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw std::runtime_error("the model '" + path + "' is damaged: " + why +
                             "; export the model again");
}

std::string inMesh(const aiMesh& mesh) {
    return "in its mesh '" + std::string(mesh.mName.C_Str()) + "' ";
}

bool isUsable(float value) { return std::abs(value) <= kLargest; }

bool isUsable(const aiMatrix4x4& matrix) {
    for (unsigned row = 0; row < 3; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            if (!isUsable(matrix[row][column])) return false;
        }
    }
    return true;
}

void checkFaces(const aiMesh& mesh, const std::string& path) {
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        for (unsigned i = 0; i < face.mNumIndices; ++i) {
            if (face.mIndices[i] < mesh.mNumVertices) continue;
            refuse(path, inMesh(mesh) + "a face names vertex " + std::to_string(face.mIndices[i]) +
                             " of " + std::to_string(mesh.mNumVertices));
        }
    }
}

void checkVertices(const aiMesh& mesh, const std::string& path) {
    for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        const aiVector3D& at = mesh.mVertices[v];
        if (isUsable(at.x) && isUsable(at.y) && isUsable(at.z)) continue;
        refuse(path, inMesh(mesh) + "the position of vertex " + std::to_string(v) +
                         " is not finite or above 1e12");
    }
}

void checkBones(const aiMesh& mesh, const std::string& path) {
    for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const std::string name = "bone '" + std::string(bone.mName.C_Str()) + "' ";
        if (!isUsable(bone.mOffsetMatrix)) {
            refuse(path, inMesh(mesh) + "the inverse bind matrix of " + name +
                             "has a number that is not finite or above 1e12");
        }
        for (unsigned i = 0; i < bone.mNumWeights; ++i) {
            const aiVertexWeight& weight = bone.mWeights[i];
            if (weight.mVertexId >= mesh.mNumVertices) {
                refuse(path, inMesh(mesh) + name + "names vertex " +
                                 std::to_string(weight.mVertexId) + " of " +
                                 std::to_string(mesh.mNumVertices));
            }
            if (!isUsable(weight.mWeight)) {
                refuse(path, inMesh(mesh) + name + "has a weight that is not finite or above 1e12");
            }
        }
    }
}

// Weights are stored for every pair of vertex and bone, in two copies.
void checkSize(const aiMesh& mesh, const std::string& path) {
    const double bytes = 2.0 * sizeof(double) * mesh.mNumVertices * mesh.mNumBones;
    if (bytes <= static_cast<double>(platform::availableHostBytes())) return;
    std::ostringstream need;
    need << "the model '" << path << "' has " << mesh.mNumVertices << " vertices and "
         << mesh.mNumBones << " bones in the mesh '" << mesh.mName.C_Str()
         << "': their weights need " << bytes / 1e9
         << " GB, more than is available; use fewer vertices or bones";
    throw std::runtime_error(need.str());
}

void checkNodes(const aiNode& root, const std::string& path) {
    std::vector<std::pair<const aiNode*, int>> pending{{&root, 0}};
    while (!pending.empty()) {
        const auto [node, depth] = pending.back();
        pending.pop_back();
        const std::string name = "node '" + std::string(node->mName.C_Str()) + "' ";
        if (depth > kDeepestTree) refuseDepth(path);
        if (!isUsable(node->mTransformation)) {
            refuse(path,
                   "the transform of " + name + "has a number that is not finite or above 1e12");
        }
        for (unsigned child = 0; child < node->mNumChildren; ++child) {
            pending.emplace_back(node->mChildren[child], depth + 1);
        }
    }
}

// Importers deliver the entry as a float or as a double.
double statedScale(const aiScene& scene) {
    const aiMetadata* const metadata = scene.mMetaData;
    if (metadata == nullptr) return 1.0;
    for (unsigned i = 0; i < metadata->mNumProperties; ++i) {
        if (std::strncmp(metadata->mKeys[i].C_Str(), kUnitScaleKey, kLongestKey) != 0) continue;
        const aiMetadataEntry& entry = metadata->mValues[i];
        if (entry.mType == AI_DOUBLE) return *static_cast<const double*>(entry.mData);
        if (entry.mType == AI_FLOAT) return *static_cast<const float*>(entry.mData);
    }
    return 1.0;
}

}  // namespace

void refuseDepth(const std::string& path) {
    throw std::runtime_error("the model '" + path + "' nests nodes more than " +
                             std::to_string(kDeepestTree) + " deep; use a shallower hierarchy");
}

double unitScaleOf(const aiScene& scene, const std::string& path) {
    const double scale = statedScale(scene);
    if (scale >= 1 / kLargestScale && scale <= kLargestScale) return scale;
    std::ostringstream given;
    given << "the model '" << path << "' has the " << kUnitScaleKey << " " << scale
          << "; it must be a positive number of file units per metre, from 1e-9 to 1e9: set the "
             "unit when exporting";
    throw std::runtime_error(given.str());
}

void checkScene(const aiScene& scene, const std::string& path) {
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        const aiMesh& mesh = *scene.mMeshes[m];
        checkFaces(mesh, path);
        checkVertices(mesh, path);
        checkBones(mesh, path);
        checkSize(mesh, path);
    }
    if (scene.mRootNode == nullptr) refuse(path, "it has no nodes");
    checkNodes(*scene.mRootNode, path);
}

}  // namespace drelt
