#include "platform/cuda_backend.h"

namespace drelt::platform::gpu {

int deviceCount() { return 0; }
cudaError_t setDevice(int) { return cudaErrorNoDevice; }
cudaError_t allocate(void**, std::size_t) { return cudaErrorNoDevice; }
cudaError_t release(void*, int) { return cudaErrorNoDevice; }
cudaError_t copy(void*, const void*, std::size_t) { return cudaErrorNoDevice; }
std::size_t freeBytes() { return 0; }
const char* errorName(cudaError_t) { return nullptr; }
cudaError_t lastError() { return cudaErrorNoDevice; }
cudaError_t synchronize() { return cudaErrorNoDevice; }
cudaError_t reset() { return cudaErrorNoDevice; }

}  // namespace drelt::platform::gpu
