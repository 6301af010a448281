// The device runtime as the code calls it: the usual names and status codes, served by host threads
// or by a CUDA device, whichever the selected device is.
//
// The calls are function objects. The compiler finds an object before it looks for functions by their
// arguments, so the calls never clash with the CUDA toolkit's functions of the same names.
//
// Device ids: with a CUDA build and a usable GPU, 0, 1, ... are GPUs. Where no GPU can be used, 0 is
// the host's threads, and a line on standard output says so once. -1 always means the host's threads.
#pragma once

#include <cstddef>

#include "platform/hooks.h"
#include "platform/status.h"

namespace drelt {

enum cudaMemcpyKind : int {
    cudaMemcpyHostToHost = 0,
    cudaMemcpyHostToDevice = 1,
    cudaMemcpyDeviceToHost = 2,
    cudaMemcpyDeviceToDevice = 3,
};

namespace platform {

inline constexpr int kHostDevice = -1;

// Whether the selected device is the host's threads.
bool onHostDevice();

// Bytes now allocated as device memory, over all devices.
std::size_t deviceBytesInUse();

// What the process has asked of its devices so far: allocations, bytes copied by cudaMemcpy, and calls
// that waited for a device.
struct Traffic {
    std::size_t allocations;
    std::size_t bytesCopied;
    std::size_t waits;
};
Traffic traffic();

// While one of these lives, cudaDeviceSynchronize on its thread succeeds without waiting, so that the
// device runs one launch after the other without a gap. Copies still wait for the launches before them.
// Check once after the scope: a failed launch shows there, or at an earlier call. The environment variable
// DRELT_CHECK_LAUNCHES=1 brings back the wait after every launch, which names the launch that failed.
class DeferredWaits {
public:
    DeferredWaits();
    ~DeferredWaits();
    DeferredWaits(const DeferredWaits&) = delete;
    DeferredWaits& operator=(const DeferredWaits&) = delete;

private:
    bool on_;
};

// Whether host code may use the selected device's memory as its own.
bool hostReachesDevice();

// Opens device memory that a test guards (testing.h) to host code of all threads, for the scope. For
// code that computes on host threads. Scopes may nest and overlap.
class HostAccess {
public:
    HostAccess() : guard_(hooks::hostGuard.load(std::memory_order_relaxed)) {
        if (guard_ != nullptr) guard_->open();
    }
    ~HostAccess() {
        if (guard_ != nullptr) guard_->close();
    }
    HostAccess(const HostAccess&) = delete;
    HostAccess& operator=(const HostAccess&) = delete;

private:
    const hooks::HostGuard* guard_;
};

// Bytes of the selected device that are free.
std::size_t deviceBytesFree();

// Bytes of host memory that an allocation can still get without swapping.
std::size_t availableHostBytes();

namespace calls {

struct SetDevice {
    cudaError_t operator()(int device) const;
};
struct GetDevice {
    cudaError_t operator()(int* device) const;
};
struct Malloc {
    template <class T>
    cudaError_t operator()(T** pointer, std::size_t bytes) const {
        void* raw = nullptr;
        const cudaError_t status = allocate(&raw, bytes);
        if (status == cudaSuccess) *pointer = static_cast<T*>(raw);
        return status;
    }

private:
    static cudaError_t allocate(void** pointer, std::size_t bytes);
};
// Frees on the device that owns the pointer, whichever device is selected. Null is no error.
struct Free {
    cudaError_t operator()(void* pointer) const;
};
// Copies between the owners of the two pointers, whichever device is selected.
struct Memcpy {
    cudaError_t operator()(void* to, const void* from, std::size_t bytes, cudaMemcpyKind) const;
};
struct GetLastError {
    cudaError_t operator()() const;
};
struct DeviceSynchronize {
    cudaError_t operator()() const;
};
struct DeviceReset {
    cudaError_t operator()() const;
};

}  // namespace calls
}  // namespace platform

inline constexpr platform::calls::SetDevice cudaSetDevice{};
inline constexpr platform::calls::GetDevice cudaGetDevice{};
inline constexpr platform::calls::Malloc cudaMalloc{};
inline constexpr platform::calls::Free cudaFree{};
inline constexpr platform::calls::Memcpy cudaMemcpy{};
inline constexpr platform::calls::GetLastError cudaGetLastError{};
inline constexpr platform::calls::DeviceSynchronize cudaDeviceSynchronize{};
inline constexpr platform::calls::DeviceReset cudaDeviceReset{};

}  // namespace drelt
