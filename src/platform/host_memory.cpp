#include "platform/host_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "platform/hooks.h"
#include "platform/runtime.h"

namespace drelt::platform::host {
namespace {

constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;
constexpr std::size_t kCopyChunk = std::size_t{1} << 20;

std::size_t wholePages(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

}  // namespace

cudaError_t allocate(void** pointer, std::size_t bytes) {
    const std::size_t mapped = wholePages(bytes == 0 ? 1 : bytes);
    if (mapped < bytes || mapped > availableHostBytes()) return cudaErrorMemoryAllocation;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return cudaErrorMemoryAllocation;
    if (mapped >= kHugePageBytes) madvise(memory, mapped, MADV_HUGEPAGE);
    registry().add(memory, {bytes, mapped, kHostDevice});
    if (const auto* guard = hooks::hostGuard.load()) guard->newBlock(memory, mapped);
    *pointer = memory;
    return cudaSuccess;
}

cudaError_t release(void* pointer, const Block& block) {
    return munmap(pointer, block.mapped) == 0 ? cudaSuccess : cudaErrorInvalidValue;
}

void copy(void* to, const void* from, std::size_t bytes) {
    const HostAccess access;
    if (bytes < 2 * kCopyChunk) {
        std::memcpy(to, from, bytes);
        return;
    }
    const auto chunks = static_cast<std::int64_t>((bytes + kCopyChunk - 1) / kCopyChunk);
#pragma omp parallel for schedule(static)
    for (std::int64_t i = 0; i < chunks; ++i) {
        const std::size_t start = static_cast<std::size_t>(i) * kCopyChunk;
        const std::size_t length = bytes - start < kCopyChunk ? bytes - start : kCopyChunk;
        std::memcpy(static_cast<char*>(to) + start, static_cast<const char*>(from) + start, length);
    }
}

}  // namespace drelt::platform::host
