#include "MeshLoad/Sampler/IBSamplerMeshGpuKernel.h"

#include "platform/check.h"

namespace drelt {

void updateSamplesPosNormal(int meshId, MeshFace* faces, MeshSample* samples,
                            Eigen::Vector3d* vertices, Eigen::Vector3d* normals, float* coordx,
                            float* coordy, float* coordz, float* normalx, float* normaly,
                            float* normalz, const float* insets, int count) {
    launchLinear<&updateSamplesPosNormalKernel>(listShape(count, 512), count, meshId, faces,
                                                samples, vertices, normals, coordx, coordy, coordz,
                                                normalx, normaly, normalz, insets, count);
    checkCudaErrors(cudaGetLastError());
    checkCudaErrors(cudaDeviceSynchronize());
}

}  // namespace drelt
