#include "supplement/IBBoundaryMemMgr.h"

#include <new>
#include <type_traits>
#include <vector>

#include "platform/check.h"

namespace drelt {

// The record crosses as one block, and its address is taken member by member on the device side.
static_assert(std::is_standard_layout_v<mlLagrangeBoundary>);

IBBoundaryMemMgr::~IBBoundaryMemMgr() {
    free();
    delete mllagbndHost;
}

// Failure messages quote the statements below as they are written, each on its line.
// clang-format off
void IBBoundaryMemMgr::allocate() {
    cudaSetDevice(gpuDeviceId);
    delete mllagbndHost;
    mllagbndHost = new mlLagrangeBoundary();
    mllagbndHost->reservedOne = 1.0f;
    free();
    checkCudaErrors(cudaMalloc(&mllaboundary_gpu, sizeof(mlLagrangeBoundary)));
    checkCudaErrors(cudaMalloc(&ux_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&uy_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&uz_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordx_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordy_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordz_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&normalx_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&normaly_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&normalz_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordInitx_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordInity_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&coordInitz_dev, mllaboundary->count * sizeof(float)));
    checkCudaErrors(cudaMalloc(&forcex_dev, mllaboundary->count * sizeof(double)));
    checkCudaErrors(cudaMalloc(&forcey_dev, mllaboundary->count * sizeof(double)));
    checkCudaErrors(cudaMalloc(&forcez_dev, mllaboundary->count * sizeof(double)));
    checkCudaErrors(cudaMalloc(&den_dev, mllaboundary->count * sizeof(mlDensity<float>)));
}

void IBBoundaryMemMgr::upload() {
    cudaSetDevice(gpuDeviceId);
    checkCudaErrors(cudaMemcpy(ux_dev, mllaboundary->ux, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(uy_dev, mllaboundary->uy, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(uz_dev, mllaboundary->uz, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordx_dev, mllaboundary->coordx, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordy_dev, mllaboundary->coordy, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordz_dev, mllaboundary->coordz, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(normalx_dev, mllaboundary->normalx, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(normaly_dev, mllaboundary->normaly, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(normalz_dev, mllaboundary->normalz, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordInitx_dev, mllaboundary->coordInitx, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordInity_dev, mllaboundary->coordInity, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(coordInitz_dev, mllaboundary->coordInitz, mllaboundary->count * sizeof(float), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(forcex_dev, mllaboundary->forcex, mllaboundary->count * sizeof(double), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(forcey_dev, mllaboundary->forcey, mllaboundary->count * sizeof(double), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(forcez_dev, mllaboundary->forcez, mllaboundary->count * sizeof(double), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(den_dev, mllaboundary->rou, mllaboundary->count * sizeof(mlDensity<float>), cudaMemcpyHostToDevice));

    // The record's image carries host addresses: every array pointer is patched after it.
    checkCudaErrors(cudaMemcpy(mllaboundary_gpu, mllaboundary, sizeof(mlLagrangeBoundary), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->ux), &ux_dev, sizeof(ux_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->uy), &uy_dev, sizeof(uy_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->uz), &uz_dev, sizeof(uz_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordx), &coordx_dev, sizeof(coordx_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordy), &coordy_dev, sizeof(coordy_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordz), &coordz_dev, sizeof(coordz_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->normalx), &normalx_dev, sizeof(normalx_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->normaly), &normaly_dev, sizeof(normaly_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->normalz), &normalz_dev, sizeof(normalz_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordInitx), &coordInitx_dev, sizeof(coordInitx_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordInity), &coordInity_dev, sizeof(coordInity_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->coordInitz), &coordInitz_dev, sizeof(coordInitz_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->forcex), &forcex_dev, sizeof(forcex_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->forcey), &forcey_dev, sizeof(forcey_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->forcez), &forcez_dev, sizeof(forcez_dev), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(&(mllaboundary_gpu->rou), &den_dev, sizeof(den_dev), cudaMemcpyHostToDevice));  // NOLINT(bugprone-sizeof-expression)
}

void IBBoundaryMemMgr::download() {
    cudaSetDevice(gpuDeviceId);
    checkCudaErrors(cudaMemcpy(mllagbndHost, mllaboundary_gpu, sizeof(mlLagrangeBoundary), cudaMemcpyDeviceToHost));
    // The image's list is another vector's bytes; this record must not release them.
    new (&mllagbndHost->reservedList) std::vector<int>();
    checkCudaErrors(cudaMemcpy(mllaboundary->ux, ux_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->uy, uy_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->uz, uz_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->coordx, coordx_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->coordy, coordy_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->coordz, coordz_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->normalx, normalx_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->normaly, normaly_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->normalz, normalz_dev, mllaboundary->count * sizeof(float), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->forcex, forcex_dev, mllaboundary->count * sizeof(double), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->forcey, forcey_dev, mllaboundary->count * sizeof(double), cudaMemcpyDeviceToHost));
    checkCudaErrors(cudaMemcpy(mllaboundary->forcez, forcez_dev, mllaboundary->count * sizeof(double), cudaMemcpyDeviceToHost));
}

void IBBoundaryMemMgr::free() {
    cudaSetDevice(gpuDeviceId);
    if (mllaboundary_gpu == nullptr) return;
    checkCudaErrors(cudaFree(mllaboundary_gpu));
    checkCudaErrors(cudaFree(ux_dev));
    checkCudaErrors(cudaFree(uy_dev));
    checkCudaErrors(cudaFree(uz_dev));
    checkCudaErrors(cudaFree(coordx_dev));
    checkCudaErrors(cudaFree(coordy_dev));
    checkCudaErrors(cudaFree(coordz_dev));
    checkCudaErrors(cudaFree(normalx_dev));
    checkCudaErrors(cudaFree(normaly_dev));
    checkCudaErrors(cudaFree(normalz_dev));
    checkCudaErrors(cudaFree(coordInitx_dev));
    checkCudaErrors(cudaFree(coordInity_dev));
    checkCudaErrors(cudaFree(coordInitz_dev));
    checkCudaErrors(cudaFree(forcex_dev));
    checkCudaErrors(cudaFree(forcey_dev));
    checkCudaErrors(cudaFree(forcez_dev));
    checkCudaErrors(cudaFree(den_dev));
    mllaboundary_gpu = nullptr;
    ux_dev = uy_dev = uz_dev = nullptr;
    coordx_dev = coordy_dev = coordz_dev = nullptr;
    normalx_dev = normaly_dev = normalz_dev = nullptr;
    coordInitx_dev = coordInity_dev = coordInitz_dev = nullptr;
    forcex_dev = forcey_dev = forcez_dev = nullptr;
    den_dev = nullptr;
}
// clang-format on

void IBBoundaryMemMgr::setScale(float nodesPerLength, float length, float velocity,
                                float latticeVelocity) {
    if (mllaboundary != nullptr) {
        mllaboundary->N = nodesPerLength;
        mllaboundary->l0p = length;
    }
    N = nodesPerLength;
    l0p = length;
    u0p = velocity;
    u0k = latticeVelocity;
    upload();
}

}  // namespace drelt
