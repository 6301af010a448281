// The device mirror of a mesh and the launch of the skinning. Failure messages quote these statements, so
// their text must not change.
#include "MeshLoad/MeshDatatGPUKernel.h"

#include "MeshLoad/MeshData.h"
#include "platform/check.h"

namespace drelt {

void updateVerticesPos(Eigen::Isometry3d* node_transform, Eigen::Isometry3d* bone_transforms,
                       int* bone_affected, double* bone_weights_arr,
                       Eigen::Vector3d* init_positions, Eigen::Vector3d* curr_positions,
                       Eigen::Vector3d* init_normals, Eigen::Vector3d* curr_normals,
                       int vertexCount, int boneCount) {
    launchLinear<&updateVerticesPosKernel>(listShape(vertexCount, 512), vertexCount, node_transform,
                                           bone_transforms, bone_affected, bone_weights_arr,
                                           init_positions, curr_positions, init_normals,
                                           curr_normals, vertexCount, boneCount);
    checkCudaErrorsAtLine(37, cudaGetLastError());       // sic: prescribed value
    checkCudaErrorsAtLine(38, cudaDeviceSynchronize());  // sic: prescribed value
}

// clang-format off
void MeshData::allocateDevice() {
    freeDevice();
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.nodeIdx, sizeof(int)));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.node_transform, sizeof(Eigen::Isometry3d)));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.init_positions, sizeof(Eigen::Vector3d) * data_cpu.init_positions.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.init_positions, data_cpu.init_positions.data(), sizeof(Eigen::Vector3d) * data_cpu.init_positions.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.curr_positions, sizeof(Eigen::Vector3d) * data_cpu.curr_positions.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.curr_positions, data_cpu.curr_positions.data(), sizeof(Eigen::Vector3d) * data_cpu.curr_positions.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.init_normals, sizeof(Eigen::Vector3d) * data_cpu.init_normals.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.init_normals, data_cpu.init_normals.data(), sizeof(Eigen::Vector3d) * data_cpu.init_normals.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.curr_normals, sizeof(Eigen::Vector3d) * data_cpu.curr_normals.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.curr_normals, data_cpu.curr_normals.data(), sizeof(Eigen::Vector3d) * data_cpu.curr_normals.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.faces, sizeof(MeshFace) * data_cpu.faces.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.faces, data_cpu.faces.data(), sizeof(MeshFace) * data_cpu.faces.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.bone_affected, sizeof(int) * data_cpu.bone_affected.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_affected, data_cpu.bone_affected.data(), sizeof(int) * data_cpu.bone_affected.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void**)&data_gpu.bone_weights_arr,sizeof(double)*data_cpu.bone_weights_arr.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_weights_arr, data_cpu.bone_weights_arr.data(), sizeof(double) * data_cpu.bone_weights_arr.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.bone_transforms, sizeof(Eigen::Isometry3d) * data_cpu.bone_transforms.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_transforms, data_cpu.bone_transforms.data(), sizeof(Eigen::Isometry3d) * data_cpu.bone_transforms.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.bone_offset, sizeof(Eigen::Isometry3d) * data_cpu.bone_offset.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_offset, data_cpu.bone_offset.data(), sizeof(Eigen::Isometry3d) * data_cpu.bone_offset.size(), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMalloc((void **)&data_gpu.bone_nodeIdx, sizeof(int) * data_cpu.bone_nodeIdx.size()));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_nodeIdx, data_cpu.bone_nodeIdx.data(), sizeof(int) * data_cpu.bone_nodeIdx.size(), cudaMemcpyHostToDevice));
}

void MeshData::copyToDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(data_gpu.node_transform, &data_cpu.node_transform, sizeof(Eigen::Isometry3d), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(data_gpu.bone_transforms, data_cpu.bone_transforms.data(), sizeof(Eigen::Isometry3d) * data_cpu.bone_transforms.size(), cudaMemcpyHostToDevice));
    hostDirty = false;
}

void MeshData::copyToHost() {
    checkCudaErrors(cudaSetDevice(gpuId));
    checkCudaErrors(cudaMemcpy(data_cpu.curr_normals.data(), data_gpu.curr_normals, sizeof(Eigen::Vector3d) * data_cpu.curr_normals.size(), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(data_cpu.curr_positions.data(), data_gpu.curr_positions, sizeof(Eigen::Vector3d) * data_cpu.curr_normals.size(),cudaMemcpyDeviceToHost));
    deviceDirty = false;
}

void MeshData::freeDevice() {
    checkCudaErrors(cudaFree(data_gpu.nodeIdx));
    checkCudaErrors(cudaFree(data_gpu.node_transform));
    checkCudaErrors(cudaFree(data_gpu.init_positions));
    checkCudaErrors(cudaFree(data_gpu.curr_positions));
    checkCudaErrors(cudaFree(data_gpu.init_normals));
    checkCudaErrors(cudaFree(data_gpu.curr_normals));
    checkCudaErrors(cudaFree(data_gpu.faces));
    checkCudaErrors(cudaFree(data_gpu.bone_affected));
    checkCudaErrors(cudaFree(data_gpu.bone_weights_arr));
    checkCudaErrors(cudaFree(data_gpu.bone_transforms));
    checkCudaErrors(cudaFree(data_gpu.bone_offset));
    checkCudaErrors(cudaFree(data_gpu.bone_nodeIdx));
    data_gpu = {};
    hostDirty = false;
    deviceDirty = false;
}
// clang-format on

void MeshData::skinOnDevice() {
    checkCudaErrors(cudaSetDevice(gpuId));
    if (hostDirty) copyToDevice();
    updateVerticesPos(data_gpu.node_transform, data_gpu.bone_transforms, data_gpu.bone_affected,
                      data_gpu.bone_weights_arr, data_gpu.init_positions, data_gpu.curr_positions,
                      data_gpu.init_normals, data_gpu.curr_normals,
                      static_cast<int>(data_cpu.init_positions.size()),
                      static_cast<int>(data_cpu.bone_transforms.size()));
}

}  // namespace drelt
