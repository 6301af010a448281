// Hands each runtime call to the owner of the pointer or to the selected device.
#include "platform/runtime.h"

#include <omp.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "platform/BlockRegistry.h"
#include "platform/cuda_backend.h"
#include "platform/hooks.h"
#include "platform/host_memory.h"
#include "platform/messages.h"

namespace drelt::platform {
namespace {

std::atomic<int> selectedDevice{0};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> bytesCopied{0};
std::atomic<std::size_t> waits{0};
thread_local int deferring = 0;

// The status that a test has asked this call to fail with, or success.
cudaError_t injectedFailure() {
    const auto hook = hooks::failure.load(std::memory_order_relaxed);
    return hook != nullptr ? hook() : cudaSuccess;
}

bool isHost(int device) { return device == kHostDevice || gpu::deviceCount() == 0; }

void sayHostOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        inform("[Info] no CUDA device can be used: device 0 is the host's threads\n");
        std::fflush(stdout);
    });
}

// A forked process has none of its parent's threads, but its first parallel region would wait for them
// for ever: it goes on with its own thread alone.
void workAloneAfterFork() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, [] { omp_set_num_threads(1); }); });
}

}  // namespace

bool onHostDevice() { return isHost(selectedDevice.load(std::memory_order_relaxed)); }

bool hostReachesDevice() { return onHostDevice() && hooks::hostGuard.load() == nullptr; }

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
    if (onHostDevice()) return host::allocate(pointer, bytes);
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
    return host::release(pointer, block);
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
    host::copy(to, from, bytes);
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
