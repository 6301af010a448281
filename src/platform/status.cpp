#include "platform/status.h"

#include "platform/cuda_backend.h"

namespace drelt::platform {

const char* errorName(cudaError_t status) {
    switch (status) {
        case cudaSuccess: return "cudaSuccess";
        case cudaErrorInvalidValue: return "cudaErrorInvalidValue";
        case cudaErrorMemoryAllocation: return "cudaErrorMemoryAllocation";
        case cudaErrorInitializationError: return "cudaErrorInitializationError";
        case cudaErrorCudartUnloading: return "cudaErrorCudartUnloading";
        case cudaErrorInvalidConfiguration: return "cudaErrorInvalidConfiguration";
        case cudaErrorInsufficientDriver: return "cudaErrorInsufficientDriver";
        case cudaErrorNoDevice: return "cudaErrorNoDevice";
        case cudaErrorInvalidDevice: return "cudaErrorInvalidDevice";
        case cudaErrorNoKernelImageForDevice: return "cudaErrorNoKernelImageForDevice";
        case cudaErrorIllegalAddress: return "cudaErrorIllegalAddress";
        case cudaErrorLaunchOutOfResources: return "cudaErrorLaunchOutOfResources";
        case cudaErrorLaunchFailure: return "cudaErrorLaunchFailure";
        case cudaErrorUnknown: return "cudaErrorUnknown";
    }
    const char* const name = gpu::errorName(status);
    return name != nullptr ? name : "<unknown>";
}

}  // namespace drelt::platform
