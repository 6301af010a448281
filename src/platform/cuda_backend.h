// What the runtime needs of a CUDA device. cuda_backend.cu implements it with the toolkit's runtime, and
// cuda_absent.cpp for builds without CUDA, which have no GPU.
#pragma once

#include <cstddef>

#include "platform/status.h"

namespace drelt::platform::gpu {

// Number of usable GPUs, 0 without a driver. The driver is asked once.
int deviceCount();
cudaError_t setDevice(int device);
cudaError_t allocate(void** pointer, std::size_t bytes);
// Succeeds if the runtime is already unloading.
cudaError_t release(void* pointer, int device);
cudaError_t copy(void* to, const void* from, std::size_t bytes);
// Free bytes of the selected device; 0 without a driver.
std::size_t freeBytes();
// The toolkit's name of a status; null if there is none, or without the toolkit.
const char* errorName(cudaError_t status);
cudaError_t lastError();
cudaError_t synchronize();
cudaError_t reset();

}  // namespace drelt::platform::gpu
