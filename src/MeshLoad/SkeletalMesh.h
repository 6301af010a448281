// A skinned model: the scene's node tree and one MeshData per mesh.
#pragma once

#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/MeshData.h"
#include "MeshLoad/hierachyNode.h"

namespace drelt {

class SkeletalMesh {
public:
    SkeletalMesh();

    // Imports a model file of any format that Assimp reads, puts nodes and meshes in the rest pose and
    // uploads the meshes to device gpuId. For an unreadable file, prints an error, returns false and
    // leaves the object empty. Throws std::runtime_error for a damaged model (GltfCheck.h, SceneCheck.h)
    // and for a bone without a node of its name.
    bool load(const std::string& path, int gpuId);
    // The same from a scene, which must outlive this object. Checks only the scene's unit scale and the names
    // of its bones.
    void loadScene(const aiScene& importedScene, int gpuId);

    // Updates world transforms, bone transforms and skinned vertices from the poses of the nodes. Skins on
    // the device or on the host; readBack copies device results to the host.
    void update(bool onDevice, bool readBack);

    // Prints a warning for each node above the root joint's node whose transform is not the identity. The
    // joint update writes world transforms into the root joint's node, so such a transform moves the skin
    // away from the bodies.
    void warnOfTransformsAbove(int rootJointNode) const;

    int gpuId = 0;
    std::vector<std::shared_ptr<MeshData>> meshes;
    std::shared_ptr<nodeMgr> nodes;  // never null
    const aiScene* scene = nullptr;  // owned by the importer after load
    Assimp::Importer importer;
    std::string filePath;
    double UnitScaleFactor = 1;  // file units per metre

private:
    void buildNodes();
    void buildMeshes(const aiNode& node);
    void checkBones() const;
};

}  // namespace drelt
