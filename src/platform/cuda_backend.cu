#include "platform/cuda_backend.h"

#include <cuda_runtime.h>

#include <cstring>

namespace drelt::platform::gpu {
namespace {

// Status numbers are the toolkit's own.
drelt::cudaError_t status(::cudaError_t error) { return static_cast<drelt::cudaError_t>(error); }

}  // namespace

int deviceCount() {
    static const int count = [] {
        int found = 0;
        if (::cudaGetDeviceCount(&found) != ::cudaSuccess) {
            ::cudaGetLastError();  // a machine without driver is no error
            found = 0;
        }
        return found;
    }();
    return count;
}

drelt::cudaError_t setDevice(int device) { return status(::cudaSetDevice(device)); }

drelt::cudaError_t allocate(void** pointer, std::size_t bytes) {
    return status(::cudaMalloc(pointer, bytes == 0 ? 1 : bytes));
}

drelt::cudaError_t release(void* pointer, int device) {
    int selected = 0;
    ::cudaGetDevice(&selected);
    ::cudaSetDevice(device);
    const ::cudaError_t error = ::cudaFree(pointer);
    ::cudaSetDevice(selected);
    return error == ::cudaErrorCudartUnloading ? drelt::cudaSuccess : status(error);
}

drelt::cudaError_t copy(void* to, const void* from, std::size_t bytes) {
    return status(::cudaMemcpy(to, from, bytes, ::cudaMemcpyDefault));
}

std::size_t freeBytes() {
    std::size_t free = 0;
    std::size_t total = 0;
    return ::cudaMemGetInfo(&free, &total) == ::cudaSuccess ? free : 0;
}

const char* errorName(drelt::cudaError_t error) {
    const char* const name = ::cudaGetErrorName(static_cast<::cudaError_t>(error));
    return std::strncmp(name, "cudaError", 9) == 0 ? name : nullptr;
}

drelt::cudaError_t lastError() { return status(::cudaGetLastError()); }
drelt::cudaError_t synchronize() { return status(::cudaDeviceSynchronize()); }
drelt::cudaError_t reset() { return status(::cudaDeviceReset()); }

}  // namespace drelt::platform::gpu
