#include "platform/BlockRegistry.h"

namespace drelt::platform {

void BlockRegistry::add(void* pointer, Block block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    blocks_[reinterpret_cast<std::uintptr_t>(pointer)] = block;
    inUse_ += block.bytes;
}

bool BlockRegistry::remove(void* pointer, Block* block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = blocks_.find(reinterpret_cast<std::uintptr_t>(pointer));
    if (found == blocks_.end()) return false;
    *block = found->second;
    inUse_ -= block->bytes;
    blocks_.erase(found);
    return true;
}

int BlockRegistry::owner(const void* pointer) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto address = reinterpret_cast<std::uintptr_t>(pointer);
    auto after = blocks_.upper_bound(address);
    if (after == blocks_.begin()) return kHostDevice;
    --after;
    return address < after->first + after->second.bytes ? after->second.device : kHostDevice;
}

std::size_t BlockRegistry::inUse() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return inUse_;
}

BlockRegistry& registry() {
    // never destroyed: destructors of static objects may still free device memory at exit
    static auto* instance = new BlockRegistry;
    return *instance;
}

}  // namespace drelt::platform
