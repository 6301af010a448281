// A skinned model: the scene's node tree and one MeshData a mesh.
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

    // Imports a model file of any format that Assimp reads, places nodes and meshes at rest and
    // brings the meshes to device gpuId. An unreadable file is reported on standard output, returns
    // false and leaves the object empty. Raises std::runtime_error for a bone that names no node, and
    // for vertices that are not finite or, named by a face or a bone, not there.
    bool load(const std::string& path, int gpuId);
    // The same from a scene that outlives this object.
    void loadScene(const aiScene& importedScene, int gpuId);

    // Brings world transforms, bone transforms and skinned vertices up to the nodes' poses: skins
    // on the device or on the host; readBack brings device results to the host.
    void update(bool onDevice, bool readBack);

    // Prints a warning for each node above the given root joint's node whose transform is not
    // identity: bodies are posed in world axes, so skin and bodies may stand apart there.
    void warnOfTransformsAbove(int rootJointNode) const;

    int gpuId = 0;
    std::vector<std::shared_ptr<MeshData>> meshes;
    std::shared_ptr<nodeMgr> nodes;  // never null
    const aiScene* scene = nullptr;  // owned by the importer after load
    Assimp::Importer importer;
    std::string filePath;
    double UnitScaleFactor = 1;  // file units in a metre

private:
    void buildNodes();
    void buildMeshes(const aiNode& node);
    void checkBones() const;
};

}  // namespace drelt
