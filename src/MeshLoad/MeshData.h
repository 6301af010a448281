// One skinned triangle mesh: geometry, bones and weights, on the host and on a device.
#pragma once

#include <Eigen/Geometry>
#include <cstdint>
#include <vector>

#include "MeshLoad/MeshFace.h"
#include "MeshLoad/twoSideDataWrapper.h"

struct aiMesh;

namespace drelt {

class nodeMgr;

struct host_MeshData {
    std::int32_t nodeIdx = -1;                                         // node that holds the mesh
    Eigen::Isometry3d node_transform = Eigen::Isometry3d::Identity();  // its world transform
    // one entry per vertex
    std::vector<Eigen::Vector3d> init_positions;  // at rest [m]
    std::vector<Eigen::Vector3d> curr_positions;  // skinned [m]
    std::vector<Eigen::Vector3d> init_normals;    // at rest, unit length
    std::vector<Eigen::Vector3d> curr_normals;    // skinned, not normalised
    // one entry per bone
    std::vector<std::int32_t> bone_nodeIdx;          // index of its node, -1 if there is none
    std::vector<Eigen::Isometry3d> bone_offset;      // rest pose to bone frame
    std::vector<Eigen::Isometry3d> bone_transforms;  // rest pose to current pose
    // per vertex one weight per bone; their sum is 1, or all are zero
    std::vector<Eigen::VectorXd> weights;
    std::vector<double> bone_weights_arr;     // the same, at vertex * bones + bone
    std::vector<std::int32_t> bone_affected;  // 1 if the vertex has weights, else 0
    std::vector<MeshFace> faces;
    std::vector<std::uint32_t> triangleIndices;  // three vertices per face
    std::vector<Eigen::Vector2d> texCoords;      // per vertex; zero if the file has none
    double totalArea = 0;                        // sum of the face areas at rest [m^2]
};

// Device arrays of the same names.
struct device_MeshData {
    std::int32_t* nodeIdx;
    Eigen::Isometry3d* node_transform;
    Eigen::Vector3d* init_positions;
    Eigen::Vector3d* curr_positions;
    Eigen::Vector3d* init_normals;
    Eigen::Vector3d* curr_normals;
    std::int32_t* bone_nodeIdx;
    Eigen::Isometry3d* bone_offset;
    Eigen::Isometry3d* bone_transforms;
    std::int32_t* bone_affected;
    double* bone_weights_arr;
    MeshFace* faces;
};

class MeshData : public twoSideDataWrapper<host_MeshData, device_MeshData> {
public:
    // A mesh without geometry. Fill it through data_cpu.
    explicit MeshData(int device);
    // Copies an imported mesh. Lengths are divided by unitScaleFactor. A bone without a node of its name
    // is reported on standard output and gets the node index -1.
    MeshData(const aiMesh& mesh, int nodeIdx, const nodeMgr& nodes, int device,
             double unitScaleFactor);
    ~MeshData() override;

    void allocateDevice() override;  // uploads all but nodeIdx and node_transform
    void copyToDevice() override;    // node_transform, bone_transforms
    void copyToHost() override;      // curr_normals, curr_positions
    void freeDevice() override;

    // Normalises data_cpu.weights for each vertex and fills bone_affected and bone_weights_arr.
    void normaliseWeights();
    // Computes areas of all faces and their sum from the rest positions.
    void computeAreas();

    // Computes the current vertices and normals from the transforms, on the host or on the device gpuId.
    // Device results are copied to the host only with readBack.
    void skin(bool onDevice, bool readBack);

private:
    void skinOnHost();
    void skinOnDevice();
};

}  // namespace drelt
