#include "platform/testing.h"

#include <sys/mman.h>

#include <cstring>
#include <mutex>

#include "platform/BlockRegistry.h"
#include "platform/hooks.h"

namespace drelt::platform {
namespace {

std::atomic<int> callsUntilFailure{0};
std::atomic<cudaError_t> injectedStatus{cudaErrorUnknown};
std::atomic<std::size_t> hostBytesCap{SIZE_MAX};

cudaError_t injectedFailure() {
    if (callsUntilFailure.load(std::memory_order_relaxed) == 0) return cudaSuccess;
    return callsUntilFailure.fetch_sub(1) == 1 ? injectedStatus.load() : cudaSuccess;
}

constexpr int kOpen = PROT_READ | PROT_WRITE;
// Larger blocks are not filled: they may be larger than the memory of the machine.
constexpr std::size_t kLargestFilled = std::size_t{1} << 28;

std::mutex accessMutex;  // of openScopes and of the protection of the pages
int openScopes = 0;

void protectHostMemory(int rights) {
    registry().forEachHostBlock(
        [&](void* memory, std::size_t bytes) { mprotect(memory, bytes, rights); });
}

void openHostMemory() {
    const std::lock_guard<std::mutex> lock(accessMutex);
    if (openScopes++ == 0) protectHostMemory(kOpen);
}

void closeHostMemory() {
    const std::lock_guard<std::mutex> lock(accessMutex);
    if (--openScopes == 0 && hooks::hostGuard.load() != nullptr) protectHostMemory(PROT_NONE);
}

void fillAndClose(void* memory, std::size_t bytes) {
    const std::lock_guard<std::mutex> lock(accessMutex);
    mprotect(memory, bytes, kOpen);  // another thread may have closed it already
    if (bytes <= kLargestFilled) std::memset(memory, 0xff, bytes);
    if (openScopes == 0) mprotect(memory, bytes, PROT_NONE);
}

constexpr hooks::HostGuard kGuard{&openHostMemory, &closeHostMemory, &fillAndClose};

}  // namespace

void failNthCall(int n, cudaError_t status) {
    injectedStatus = status;
    callsUntilFailure = n;
    hooks::failure = &injectedFailure;
}

void guardHostDevice(bool on) {
    const std::lock_guard<std::mutex> lock(accessMutex);
    hooks::hostGuard = on ? &kGuard : nullptr;
    protectHostMemory(on && openScopes == 0 ? PROT_NONE : kOpen);
}

void capAvailableHostBytes(std::size_t bytes) {
    hostBytesCap = bytes;
    hooks::hostBytesCap = [] { return hostBytesCap.load(); };
}

}  // namespace drelt::platform
