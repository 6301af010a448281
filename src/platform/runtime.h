// The device runtime as the code calls it: the usual names and status codes, served by host threads
// or by a CUDA device, whichever the selected device is.
//
// The calls are function objects, not functions: as objects they are found before argument-dependent
// look-up, so they never clash with the CUDA toolkit's functions of the same names.
//
// Device ids: with a CUDA build and a usable GPU, 0, 1, ... are GPUs. Where no GPU can be used, 0 is
// the host's threads, which is said once on standard output. -1 always means host threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace drelt {

enum cudaError_t : int {
    cudaSuccess = 0,
    cudaErrorInvalidValue = 1,
    cudaErrorMemoryAllocation = 2,
    cudaErrorInitializationError = 3,
    cudaErrorCudartUnloading = 4,
    cudaErrorInvalidConfiguration = 9,
    cudaErrorInsufficientDriver = 35,
    cudaErrorNoDevice = 100,
    cudaErrorInvalidDevice = 101,
    cudaErrorNoKernelImageForDevice = 209,
    cudaErrorIllegalAddress = 700,
    cudaErrorLaunchOutOfResources = 701,
    cudaErrorLaunchFailure = 719,
    cudaErrorUnknown = 999,
};

enum cudaMemcpyKind : int {
    cudaMemcpyHostToHost = 0,
    cudaMemcpyHostToDevice = 1,
    cudaMemcpyDeviceToHost = 2,
    cudaMemcpyDeviceToDevice = 3,
};

namespace platform {

inline constexpr int kHostDevice = -1;

// Symbolic name of a status, "<unknown>" for a number without one.
const char* errorName(cudaError_t status);

// Whether the selected device is the host's threads.
bool onHostDevice();

// Bytes now allocated as device memory, over all devices.
std::size_t deviceBytesInUse();

// What the process has asked of its devices so far: allocations, bytes copied by cudaMemcpy, and waits
// for a device to finish.
struct Traffic {
    std::size_t allocations;
    std::size_t bytesCopied;
    std::size_t waits;
};
Traffic traffic();

// While one of these lives, cudaDeviceSynchronize on its thread succeeds without waiting, so that launches
// follow each other at once; copies still wait for what was launched before them. Check once after the
// scope: a failure within it shows there, or at an earlier call. With the environment variable
// DRELT_CHECK_LAUNCHES=1 every launch is waited for all the same, which names the one that failed.
class DeferredWaits {
public:
    DeferredWaits();
    ~DeferredWaits();
    DeferredWaits(const DeferredWaits&) = delete;
    DeferredWaits& operator=(const DeferredWaits&) = delete;

private:
    bool on_;
};

// Makes the nth following runtime call (1 = the next) fail with `status`; 0 takes that back. For tests.
void failNthCall(int n, cudaError_t status = cudaErrorUnknown);

// Shows without a GPU what would fail on one: with the guard, device memory of the host's threads can be
// touched in launches, copies and HostAccess scopes only, and new memory holds bytes 0xff, not zeros.
// For tests; before the first allocation.
void guardHostDevice(bool on);

// Whether host code may use the selected device's memory as its own.
bool hostReachesDevice();

namespace detail {
inline std::atomic<bool> hostGuard{false};
void openHostMemory();
void closeHostMemory();
}  // namespace detail

// Opens guarded device memory to host code for the scope, to all threads. Scopes may nest and overlap.
// For code that computes on host threads; nothing without a guard.
class HostAccess {
public:
    HostAccess() : opens_(detail::hostGuard.load(std::memory_order_relaxed)) {
        if (opens_) detail::openHostMemory();
    }
    ~HostAccess() {
        if (opens_) detail::closeHostMemory();
    }
    HostAccess(const HostAccess&) = delete;
    HostAccess& operator=(const HostAccess&) = delete;

private:
    bool opens_;
};

// Bytes of the selected device that are free.
std::size_t deviceBytesFree();

// Bytes of host memory that an allocation can still get without swapping.
std::size_t availableHostBytes();
// Makes it return no more than `bytes` from now on. For tests.
void capAvailableHostBytes(std::size_t bytes = SIZE_MAX);

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
// Frees on the device that owns the pointer, whatever device is selected. Null is no error.
struct Free {
    cudaError_t operator()(void* pointer) const;
};
// Copies by the owners of the two pointers, whatever device is selected.
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
