// All blocks of device memory, by address: frees and copies go by the owner of a pointer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

#include "platform/runtime.h"

namespace drelt::platform {

struct Block {
    std::size_t bytes;   // as asked for
    std::size_t mapped;  // whole pages
    int device;          // kHostDevice, or a GPU's id
};

class BlockRegistry {
public:
    void add(void* pointer, Block block);
    // Returns false for a pointer that is not the start of a block.
    bool remove(void* pointer, Block* block);
    // The device that owns an address inside a block; kHostDevice for ordinary host memory too.
    int owner(const void* pointer) const;
    // Bytes of all blocks, as asked for.
    std::size_t inUse() const;
    // Calls visit(memory, mapped bytes) for each block of the host's threads.
    template <class Visit>
    void forEachHostBlock(Visit&& visit) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [address, block] : blocks_) {
            if (block.device != kHostDevice) continue;
            // NOLINTNEXTLINE(performance-no-int-to-ptr)
            visit(reinterpret_cast<void*>(address), block.mapped);
        }
    }

private:
    mutable std::mutex mutex_;
    std::map<std::uintptr_t, Block> blocks_;
    std::size_t inUse_ = 0;
};

// The process's only registry.
BlockRegistry& registry();

}  // namespace drelt::platform
