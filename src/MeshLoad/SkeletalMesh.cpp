#include "MeshLoad/SkeletalMesh.h"

#include <assimp/config.h>
#include <assimp/postprocess.h>

#include <cstdio>
#include <stdexcept>

#include "MeshLoad/GltfCheck.h"
#include "MeshLoad/SceneCheck.h"
#include "MeshLoad/importedTransform.h"
#include "platform/messages.h"

namespace drelt {

SkeletalMesh::SkeletalMesh() : nodes(std::make_shared<nodeMgr>()) {}

bool SkeletalMesh::load(const std::string& path, int device) {
    gpuId = device;
    filePath = path;
    scene = nullptr;
    meshes.clear();
    nodes = std::make_shared<nodeMgr>();
    importer.SetPropertyInteger(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, 0);
    checkGltf(path);
    const aiScene* imported = importer.ReadFile(path, 0);
    if (imported != nullptr) {
        checkScene(*imported, path);  // the steps below rely on it
        imported = importer.ApplyPostProcessing(aiProcess_FlipUVs | aiProcess_GenSmoothNormals |
                                                aiProcess_Triangulate);
    }
    if (imported == nullptr) {
        std::printf("Error parsing '%s': '%s'\n", path.c_str(), importer.GetErrorString());
        return false;
    }
    loadScene(*imported, device);
    return true;
}

void SkeletalMesh::loadScene(const aiScene& importedScene, int device) {
    gpuId = device;
    scene = &importedScene;
    meshes.clear();
    nodes = std::make_shared<nodeMgr>();
    UnitScaleFactor = unitScaleOf(importedScene, filePath);
    inform("factor %g\n", UnitScaleFactor);
    buildNodes();
    buildMeshes(*importedScene.mRootNode);
    checkBones();
    update(false, true);
}

void SkeletalMesh::buildNodes() {
    std::vector<const aiNode*> listed{scene->mRootNode};
    const auto add = [this](const aiNode& node, int parent, double unitScaleFactor) {
        const int index = nodes->addNode(
            node.mName.C_Str(), importedTransform(node.mTransformation, unitScaleFactor), parent);
        nodes->meshIndices[index].assign(node.mMeshes, node.mMeshes + node.mNumMeshes);
    };
    add(*scene->mRootNode, -1, 1.0);
    nodes->setGlobalInverse();
    for (std::size_t i = 0; i < listed.size(); ++i) {
        const aiNode& node = *listed[i];
        const int index = static_cast<int>(i);
        nodes->childBegin[index] = nodes->size();
        for (unsigned child = 0; child < node.mNumChildren; ++child) {
            add(*node.mChildren[child], index, UnitScaleFactor);
            listed.push_back(node.mChildren[child]);
        }
        nodes->childEnd[index] = nodes->size();
    }
}

void SkeletalMesh::buildMeshes(const aiNode& node) {
    for (unsigned i = 0; i < node.mNumMeshes; ++i) {
        auto mesh = std::make_shared<MeshData>(*scene->mMeshes[node.mMeshes[i]],
                                               nodes->find(node.mName.C_Str()), *nodes, gpuId,
                                               UnitScaleFactor);
        mesh->allocateDevice();
        meshes.push_back(std::move(mesh));
    }
    for (unsigned child = 0; child < node.mNumChildren; ++child) {
        buildMeshes(*node.mChildren[child]);
    }
}

void SkeletalMesh::checkBones() const {
    for (unsigned m = 0; m < scene->mNumMeshes; ++m) {
        const aiMesh& mesh = *scene->mMeshes[m];
        for (unsigned b = 0; b < mesh.mNumBones; ++b) {
            const std::string bone = mesh.mBones[b]->mName.C_Str();
            if (nodes->find(bone) >= 0) continue;
            throw std::runtime_error("the model '" + filePath + "' has a bone '" + bone +
                                     "' without a node of the same name; export the model with its "
                                     "armature");
        }
    }
}

void SkeletalMesh::update(bool onDevice, bool readBack) {
    nodes->updateWorldTransforms();
    for (const auto& mesh : meshes) {
        host_MeshData& data = mesh->data_cpu;
        data.node_transform = nodes->nodes[data.nodeIdx]->worldTransform;
        for (std::size_t b = 0; b < data.bone_transforms.size(); ++b) {
            const hierachyNode& node = *nodes->nodes[data.bone_nodeIdx[b]];
            data.bone_transforms[b] = node.worldTransform * data.bone_offset[b];
        }
        mesh->hostDirty = true;
        mesh->deviceDirty = false;
        mesh->skin(onDevice, readBack);
    }
}

void SkeletalMesh::warnOfTransformsAbove(int rootJointNode) const {
    constexpr double tolerance = 1e-6;
    const std::string& rootJoint = nodes->nodes[rootJointNode]->name;
    for (int above = nodes->parents[rootJointNode]; above >= 0; above = nodes->parents[above]) {
        const hierachyNode& node = *nodes->nodes[above];
        if ((node.localTransform.matrix() - Eigen::Matrix4d::Identity()).cwiseAbs().maxCoeff() <=
            tolerance) {
            continue;
        }
        std::printf(
            "[warning] node '%s' above the root joint '%s' has a transform that is not the "
            "identity: "
            "the skin may be displaced from the bodies; apply the transform to the model\n",
            node.name.c_str(), rootJoint.c_str());
    }
}

}  // namespace drelt
