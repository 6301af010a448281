// What the runtime needs of a CUDA device. cuda_backend.cu serves it with the toolkit's runtime;
// a build without CUDA has no GPU (cuda_absent.cpp).
#pragma once

#include <cstddef>

#include "platform/status.h"

namespace drelt::platform::gpu {

// Usable GPUs; 0 without a driver. Asked once.
int deviceCount();
cudaError_t setDevice(int device);
cudaError_t allocate(void** pointer, std::size_t bytes);
// A runtime that is already unloading counts as success.
cudaError_t release(void* pointer, int device);
cudaError_t copy(void* to, const void* from, std::size_t bytes);
// Bytes of the selected device that are free; 0 without a driver.
std::size_t freeBytes();
// The toolkit's name of a status; null for a number without one, and without the toolkit.
const char* errorName(cudaError_t status);
cudaError_t lastError();
cudaError_t synchronize();
cudaError_t reset();

}  // namespace drelt::platform::gpu
