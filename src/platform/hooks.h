// The places where the tests of testing.h reach into the platform. All are null in production: a call
// then pays for one test of a pointer.
#pragma once

#include <atomic>
#include <cstddef>

#include "platform/status.h"

namespace drelt::platform::hooks {

// Decides when host code may touch the device memory of the host's threads.
struct HostGuard {
    void (*open)();
    void (*close)();
    void (*newBlock)(void* memory, std::size_t bytes);
};
inline std::atomic<const HostGuard*> hostGuard{nullptr};

// Called before each runtime call, which fails with the status unless that is cudaSuccess.
inline std::atomic<cudaError_t (*)()> failure{nullptr};

// Largest value that availableHostBytes returns.
inline std::atomic<std::size_t (*)()> hostBytesCap{nullptr};

}  // namespace drelt::platform::hooks
