#include "Markers/MarkersGPUKernel.h"

#include "platform/check.h"

namespace drelt {

void copyMarkersPosNormalGPU(int* vId, Eigen::Vector3d* pos, Eigen::Vector3d* normal,
                             Eigen::Vector3d* meshVertices, Eigen::Vector3d* meshNormals,
                             int count) {
    launchLinear<&copyMarkersPosNormalGPUKernel>(listShape(count, 512), count, vId, pos, normal,
                                                 meshVertices, meshNormals, count);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void getMarkersPropertiesGPU(mlFlow* flow, Eigen::Vector3d* pos, Eigen::Vector3d* velocity,
                             float* pressure, int count) {
    launchLinear<&getMarkersPropertiesGPUKernel>(listShape(count, 512), count, flow, pos, velocity,
                                                 pressure, count);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
