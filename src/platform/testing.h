// What tests do to the platform. The library's object file of these functions is linked only into
// programs that call them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/status.h"

namespace drelt::platform {

// Makes the nth runtime call from now on (1 = the next) fail with `status`; 0 cancels that.
void failNthCall(int n, cudaError_t status = cudaErrorUnknown);

// Shows without a GPU what would fail on one. With the guard on, host code can touch the device memory
// of the host's threads only in launches, copies and HostAccess scopes, and new memory is filled with
// bytes 0xff. Call it before the first allocation.
void guardHostDevice(bool on);

// availableHostBytes returns at most `bytes` from now on.
void capAvailableHostBytes(std::size_t bytes = SIZE_MAX);

}  // namespace drelt::platform
