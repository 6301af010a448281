// Status codes of device calls, with the CUDA toolkit's numbers.
#pragma once

namespace drelt {

enum cudaError_t : int {
    cudaSuccess = 0,
    cudaErrorInvalidValue = 1,
    cudaErrorMemoryAllocation = 2,
    cudaErrorInitializationError = 3,
    cudaErrorCudartUnloading = 4,
    cudaErrorInvalidConfiguration = 9,
    cudaErrorInsufficientDriver = 35,
    cudaErrorNoDevice = 100,
    cudaErrorInvalidDevice = 101,
    cudaErrorNoKernelImageForDevice = 209,
    cudaErrorIllegalAddress = 700,
    cudaErrorLaunchOutOfResources = 701,
    cudaErrorLaunchFailure = 719,
    cudaErrorUnknown = 999,
};

namespace platform {

// Symbolic name of a status; "<unknown>" for a number without one.
const char* errorName(cudaError_t status);

}  // namespace platform
}  // namespace drelt
