// Dispatch of the runtime calls to the owner of a pointer or to the selected device, and the host
// back end: "device memory" there is separate, page-aligned memory that costs nothing until touched.
#include "platform/runtime.h"

#include <omp.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <string>

#include "platform/cuda_backend.h"

namespace drelt::platform {
namespace {

struct Block {
    std::size_t bytes;   // as asked for
    std::size_t mapped;  // whole pages
    int device;          // kHostDevice, or a GPU's id
};

// Device memory by address, over all devices: frees and copies go by the owner of a pointer.
class Registry {
public:
    void add(void* pointer, Block block) {
        const std::lock_guard<std::mutex> lock(mutex_);
        blocks_[reinterpret_cast<std::uintptr_t>(pointer)] = block;
        inUse_ += block.bytes;
    }
    bool remove(void* pointer, Block* block) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = blocks_.find(reinterpret_cast<std::uintptr_t>(pointer));
        if (found == blocks_.end()) return false;
        *block = found->second;
        inUse_ -= block->bytes;
        blocks_.erase(found);
        return true;
    }
    // The device that owns an address inside a block; kHostDevice for ordinary host memory too.
    int owner(const void* pointer) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto address = reinterpret_cast<std::uintptr_t>(pointer);
        auto after = blocks_.upper_bound(address);
        if (after == blocks_.begin()) return kHostDevice;
        --after;
        return address < after->first + after->second.bytes ? after->second.device : kHostDevice;
    }
    template <class Visit>
    void forEachHostBlock(Visit&& visit) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [address, block] : blocks_) {
            if (block.device != kHostDevice) continue;
            // NOLINTNEXTLINE(performance-no-int-to-ptr)
            visit(reinterpret_cast<void*>(address), block.mapped);
        }
    }
    std::size_t inUse() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return inUse_;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::uintptr_t, Block> blocks_;
    std::size_t inUse_ = 0;
};

// Never destroyed: destructors of static objects may still free device memory at exit.
Registry& registry() {
    static auto* instance = new Registry;
    return *instance;
}

std::atomic<int> selectedDevice{0};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> bytesCopied{0};
std::atomic<std::size_t> waits{0};
thread_local int deferring = 0;
std::atomic<std::size_t> hostBytesCap{SIZE_MAX};
std::atomic<int> callsUntilFailure{0};
std::atomic<cudaError_t> injectedStatus{cudaErrorUnknown};

// The status that a test asked this call to fail with, or success.
cudaError_t injectedFailure() {
    if (callsUntilFailure.load(std::memory_order_relaxed) == 0) return cudaSuccess;
    return callsUntilFailure.fetch_sub(1) == 1 ? injectedStatus.load() : cudaSuccess;
}

bool isHost(int device) { return device == kHostDevice || gpu::deviceCount() == 0; }

void sayHostOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        std::puts("[Info] no CUDA device can be used: device 0 is the host's threads");
        std::fflush(stdout);
    });
}

std::size_t wholePages(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

// A forked process has none of its parent's threads, but waits for them in its first parallel region for
// ever: it goes on with its own thread alone.
void workAloneAfterFork() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, [] { omp_set_num_threads(1); }); });
}

constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;

std::mutex accessMutex;  // of the two below, and of the pages' protection
int openScopes = 0;
constexpr int kOpen = PROT_READ | PROT_WRITE;

void protectHostMemory(int rights) {
    registry().forEachHostBlock(
        [&](void* memory, std::size_t bytes) { mprotect(memory, bytes, rights); });
}

// Registers a new block. Under the guard it is filled with what no code expects, unless it is so large
// that it is meant never to be touched whole, and closed.
void addHostBlock(void* memory, std::size_t bytes, std::size_t mapped) {
    constexpr std::size_t kLargestFilled = std::size_t{1} << 28;
    const std::lock_guard<std::mutex> lock(accessMutex);
    registry().add(memory, {bytes, mapped, kHostDevice});
    if (!detail::hostGuard) return;
    if (mapped <= kLargestFilled) std::memset(memory, 0xff, mapped);
    if (openScopes == 0) mprotect(memory, mapped, PROT_NONE);
}

cudaError_t hostAllocate(void** pointer, std::size_t bytes) {
    const std::size_t mapped = wholePages(bytes == 0 ? 1 : bytes);
    if (mapped < bytes || mapped > availableHostBytes()) return cudaErrorMemoryAllocation;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return cudaErrorMemoryAllocation;
    if (mapped >= kHugePageBytes) madvise(memory, mapped, MADV_HUGEPAGE);
    addHostBlock(memory, bytes, mapped);
    *pointer = memory;
    return cudaSuccess;
}

// Large copies run on all threads, so that pages are first touched by the threads that use them.
void hostCopy(void* to, const void* from, std::size_t bytes) {
    const HostAccess access;
    constexpr std::size_t kChunk = std::size_t{1} << 20;
    if (bytes < 2 * kChunk) {
        std::memcpy(to, from, bytes);
        return;
    }
    const auto chunks = static_cast<std::int64_t>((bytes + kChunk - 1) / kChunk);
#pragma omp parallel for schedule(static)
    for (std::int64_t i = 0; i < chunks; ++i) {
        const std::size_t start = static_cast<std::size_t>(i) * kChunk;
        const std::size_t length = bytes - start < kChunk ? bytes - start : kChunk;
        std::memcpy(static_cast<char*>(to) + start, static_cast<const char*>(from) + start, length);
    }
}

}  // namespace

bool onHostDevice() { return isHost(selectedDevice.load(std::memory_order_relaxed)); }

void guardHostDevice(bool on) {
    const std::lock_guard<std::mutex> lock(accessMutex);
    detail::hostGuard = on;
    protectHostMemory(on && openScopes == 0 ? PROT_NONE : kOpen);
}

bool hostReachesDevice() { return onHostDevice() && !detail::hostGuard; }

void detail::openHostMemory() {
    const std::lock_guard<std::mutex> lock(accessMutex);
    if (openScopes++ == 0) protectHostMemory(kOpen);
}

void detail::closeHostMemory() {
    const std::lock_guard<std::mutex> lock(accessMutex);
    if (--openScopes == 0 && hostGuard) protectHostMemory(PROT_NONE);
}

std::size_t deviceBytesInUse() { return registry().inUse(); }

Traffic traffic() { return {allocations.load(), bytesCopied.load(), waits.load()}; }

DeferredWaits::DeferredWaits() {
    const char* const given = std::getenv("DRELT_CHECK_LAUNCHES");
    on_ = given == nullptr || std::atoi(given) == 0;
    if (on_) ++deferring;
}

DeferredWaits::~DeferredWaits() {
    if (on_) --deferring;
}

void failNthCall(int n, cudaError_t status) {
    injectedStatus = status;
    callsUntilFailure = n;
}

namespace {

// What a container's limit leaves, if there is one.
std::size_t bytesToContainerLimit() {
    constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
    const char* const files[][2] = {{"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory.current"},
                                    {"/sys/fs/cgroup/memory/memory.limit_in_bytes",
                                     "/sys/fs/cgroup/memory/memory.usage_in_bytes"}};
    for (const auto& [limitFile, usageFile] : files) {
        std::size_t limit = 0;
        std::size_t usage = 0;
        if (!(std::ifstream(limitFile) >> limit) || !(std::ifstream(usageFile) >> usage)) continue;
        return limit > usage ? limit - usage : 0;
    }
    return kNone;
}

std::size_t freeMachineBytes() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    std::size_t kilobytes = 0;
    std::string unit;
    while (meminfo >> key >> kilobytes) {
        if (key == "MemAvailable:") return kilobytes * 1024;
        std::getline(meminfo, unit);
    }
    return static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

std::size_t availableHostBytes() {
    return std::min({freeMachineBytes(), bytesToContainerLimit(), hostBytesCap.load()});
}

void capAvailableHostBytes(std::size_t bytes) { hostBytesCap = bytes; }

std::size_t deviceBytesFree() { return onHostDevice() ? availableHostBytes() : gpu::freeBytes(); }

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

namespace calls {

cudaError_t SetDevice::operator()(int device) const {
    if (const cudaError_t status = injectedFailure()) return status;
    const int gpus = gpu::deviceCount();
    const bool named =
        device == kHostDevice || (gpus == 0 ? device == 0 : device >= 0 && device < gpus);
    if (!named) return cudaErrorInvalidDevice;
    workAloneAfterFork();
    if (device == 0 && gpus == 0) sayHostOnce();
    if (!isHost(device)) {
        if (const cudaError_t status = gpu::setDevice(device)) return status;
    }
    selectedDevice = device;
    return cudaSuccess;
}

cudaError_t GetDevice::operator()(int* device) const {
    *device = selectedDevice.load();
    return cudaSuccess;
}

cudaError_t Malloc::allocate(void** pointer, std::size_t bytes) {
    if (const cudaError_t status = injectedFailure()) return status;
    ++allocations;
    if (onHostDevice()) return hostAllocate(pointer, bytes);
    const cudaError_t status = gpu::allocate(pointer, bytes);
    if (status == cudaSuccess && *pointer != nullptr) {
        registry().add(*pointer, {bytes, bytes, selectedDevice.load()});
    }
    return status;
}

cudaError_t Free::operator()(void* pointer) const {
    if (const cudaError_t status = injectedFailure()) return status;
    if (pointer == nullptr) return cudaSuccess;
    Block block{};
    if (!registry().remove(pointer, &block)) return cudaErrorInvalidValue;
    if (block.device != kHostDevice) return gpu::release(pointer, block.device);
    return munmap(pointer, block.mapped) == 0 ? cudaSuccess : cudaErrorInvalidValue;
}

cudaError_t Memcpy::operator()(void* to, const void* from, std::size_t bytes,
                               cudaMemcpyKind) const {
    if (const cudaError_t status = injectedFailure()) return status;
    if (bytes == 0) return cudaSuccess;
    if (to == nullptr || from == nullptr) return cudaErrorInvalidValue;
    bytesCopied += bytes;
    if (registry().owner(to) != kHostDevice || registry().owner(from) != kHostDevice) {
        return gpu::copy(to, from, bytes);
    }
    hostCopy(to, from, bytes);
    return cudaSuccess;
}

cudaError_t GetLastError::operator()() const {
    if (const cudaError_t status = injectedFailure()) return status;
    return onHostDevice() ? cudaSuccess : gpu::lastError();
}

cudaError_t DeviceSynchronize::operator()() const {
    if (const cudaError_t status = injectedFailure()) return status;
    if (deferring > 0) return cudaSuccess;
    ++waits;
    return onHostDevice() ? cudaSuccess : gpu::synchronize();
}

cudaError_t DeviceReset::operator()() const { return onHostDevice() ? cudaSuccess : gpu::reset(); }

}  // namespace calls
}  // namespace drelt::platform
