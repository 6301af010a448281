#include "MeshLoad/MeshData.h"

#include <assimp/mesh.h>

#include <cstdio>
#include <string>

#include "MeshLoad/MeshDatatGPUKernel.h"
#include "MeshLoad/hierachyNode.h"
#include "MeshLoad/importedTransform.h"
#include "platform/messages.h"

namespace drelt {

namespace {

Eigen::Vector3d widened(const aiVector3D& v) { return {v.x, v.y, v.z}; }

void takeVertices(const aiMesh& mesh, double unitScaleFactor, host_MeshData& data) {
    data.init_positions.resize(mesh.mNumVertices);
    data.init_normals.assign(mesh.mNumVertices, Eigen::Vector3d::Zero());
    data.texCoords.assign(mesh.mNumVertices, Eigen::Vector2d::Zero());
    for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
        data.init_positions[i] = widened(mesh.mVertices[i]) / unitScaleFactor;
        if (mesh.mNormals != nullptr) data.init_normals[i] = widened(mesh.mNormals[i]).normalized();
        if (mesh.mTextureCoords[0] != nullptr) {
            data.texCoords[i] = {mesh.mTextureCoords[0][i].x, mesh.mTextureCoords[0][i].y};
        }
    }
    data.curr_positions = data.init_positions;
    data.curr_normals = data.init_normals;
}

// Skips points and lines, which triangulation leaves unchanged: they have no surface.
void takeFaces(const aiMesh& mesh, host_MeshData& data) {
    for (unsigned i = 0; i < mesh.mNumFaces; ++i) {
        const aiFace& face = mesh.mFaces[i];
        if (face.mNumIndices != 3) continue;
        MeshFace taken{};
        for (int corner = 0; corner < 3; ++corner) {
            taken.vertexIds[corner] = static_cast<std::int32_t>(face.mIndices[corner]);
            data.triangleIndices.push_back(face.mIndices[corner]);
        }
        data.faces.push_back(taken);
    }
}

void takeBones(const aiMesh& mesh, const nodeMgr& nodes, double unitScaleFactor,
               host_MeshData& data) {
    data.weights.assign(mesh.mNumVertices, Eigen::VectorXd::Zero(mesh.mNumBones));
    for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const int node = nodes.find(bone.mName.C_Str());
        if (node < 0) {
            // sic: prescribed text
            std::printf("add bone [%s] but not find in node hierachy\n", bone.mName.C_Str());
        }
        data.bone_nodeIdx.push_back(node);
        data.bone_offset.push_back(
            importedTransformWithoutScale(bone.mOffsetMatrix, unitScaleFactor));
        for (unsigned i = 0; i < bone.mNumWeights; ++i) {
            data.weights[bone.mWeights[i].mVertexId][b] = bone.mWeights[i].mWeight;
        }
    }
    data.bone_transforms.assign(mesh.mNumBones, Eigen::Isometry3d::Identity());
}

double sumOf(const Eigen::VectorXd& weights) {
    double sum = 0;
    for (Eigen::Index b = 0; b < weights.size(); ++b) sum += weights[b];
    return sum;
}

}  // namespace

MeshData::MeshData(int device) : twoSideDataWrapper(device) {}

MeshData::MeshData(const aiMesh& mesh, int nodeIdx, const nodeMgr& nodes, int device,
                   double unitScaleFactor)
    : twoSideDataWrapper(device) {
    data_cpu.nodeIdx = nodeIdx;
    takeVertices(mesh, unitScaleFactor, data_cpu);
    takeFaces(mesh, data_cpu);
    computeAreas();
    takeBones(mesh, nodes, unitScaleFactor, data_cpu);
    normaliseWeights();
}

MeshData::~MeshData() { MeshData::freeDevice(); }

void MeshData::computeAreas() {
    data_cpu.totalArea = 0;
    for (MeshFace& face : data_cpu.faces) {
        const Eigen::Vector3d& a = data_cpu.init_positions[face.vertexIds[0]];
        const Eigen::Vector3d& b = data_cpu.init_positions[face.vertexIds[1]];
        const Eigen::Vector3d& c = data_cpu.init_positions[face.vertexIds[2]];
        face.area = 0.5 * (b - a).cross(c - a).norm();
        data_cpu.totalArea += face.area;
    }
}

void MeshData::normaliseWeights() {
    data_cpu.bone_affected.clear();
    data_cpu.bone_weights_arr.clear();
    std::string unaffected;
    for (Eigen::VectorXd& weights : data_cpu.weights) {
        const double sum = sumOf(weights);
        if (sum != 0) weights /= sum;
        const bool affected = sumOf(weights) != 0;
        data_cpu.bone_affected.push_back(affected ? 1 : 0);
        if (!affected) unaffected += "Exists!";  // sic: prescribed text
        data_cpu.bone_weights_arr.insert(data_cpu.bone_weights_arr.end(), weights.data(),
                                         weights.data() + weights.size());
    }
    inform("%s", unaffected.c_str());
}

void MeshData::skin(bool onDevice, bool readBack) {
    if (!onDevice) {
        skinOnHost();
        hostDirty = true;
        deviceDirty = false;
        return;
    }
    skinOnDevice();
    if (readBack) {
        copyToHost();
    } else {
        deviceDirty = true;
    }
}

void MeshData::skinOnHost() {
    host_MeshData& d = data_cpu;
    const int bones = static_cast<int>(d.bone_transforms.size());
    const int vertices = static_cast<int>(d.init_positions.size());
#pragma omp parallel for schedule(static)
    for (int i = 0; i < vertices; ++i) {
        const std::int32_t affected = sumOf(d.weights[i]) != 0 ? 1 : 0;
        const double* const weights =
            d.bone_weights_arr.data() + static_cast<std::int64_t>(i) * bones;
        const SkinMatrix blended =
            blendSkinMatrix(&d.node_transform, d.bone_transforms.data(), affected, weights, bones);
        transformPoint(blended, d.init_positions[i].data(), d.curr_positions[i].data());
        transformVector(blended, d.init_normals[i].data(), d.curr_normals[i].data());
    }
}

}  // namespace drelt
