// Device memory of the host's threads: separate, page-aligned memory that costs nothing until touched.
#pragma once

#include <cstddef>

#include "platform/BlockRegistry.h"
#include "platform/status.h"

namespace drelt::platform::host {

// Maps and registers new memory; it holds zeros.
cudaError_t allocate(void** pointer, std::size_t bytes);
// Unmaps a block that the registry no longer holds.
cudaError_t release(void* pointer, const Block& block);
// Large copies run on all threads, so that each page is first touched by the thread that uses it.
void copy(void* to, const void* from, std::size_t bytes);

}  // namespace drelt::platform::host
