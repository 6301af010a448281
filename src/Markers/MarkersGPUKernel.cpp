#include "Markers/MarkersGPUKernel.h"

#include "platform/check.h"

namespace drelt {

namespace {

LaunchShape markerShape(int count) {
    return {512, 1, 1, static_cast<unsigned>(count / 512 + 1), 1, 1};
}

}  // namespace

void copyMarkersPosNormalGPU(int* vId, Eigen::Vector3d* pos, Eigen::Vector3d* normal,
                             Eigen::Vector3d* meshVertices, Eigen::Vector3d* meshNormals,
                             int count) {
    launchLinear<&copyMarkersPosNormalGPUKernel>(markerShape(count), count, vId, pos, normal,
                                                 meshVertices, meshNormals, count);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

void getMarkersPropertiesGPU(mlFlow* flow, Eigen::Vector3d* pos, Eigen::Vector3d* velocity,
                             float* pressure, int count) {
    launchLinear<&getMarkersPropertiesGPUKernel>(markerShape(count), count, flow, pos, velocity,
                                                 pressure, count);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
