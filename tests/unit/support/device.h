// The device that tests run on: the GPU that DRELT_TEST_DEVICE names, or the host's threads if it is -1 or
// not set. Tests fail if there is no such GPU. DRELT_GUARD_DEVICE=1 guards the memory of the host's threads,
// so that code that would fail on a GPU fails there too.
#pragma once

#include <Eigen/Core>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/check.h"
#include "platform/runtime.h"
#include "platform/testing.h"

// Skips a test of code that needs host threads and memory that host code can reach.
#define DRELT_HOST_ONLY(reason) \
    if (!::drelt::test::plainMemory()) GTEST_SKIP() << (reason)

namespace drelt::test {

// Set when the program starts, before any allocation.
inline const bool guarded = [] {
    const char* const given = std::getenv("DRELT_GUARD_DEVICE");
    const bool on = given != nullptr && std::atoi(given) != 0;
    if (on) platform::guardHostDevice(true);
    return on;
}();

inline int device() {
    static const int id = [] {
        const char* const given = std::getenv("DRELT_TEST_DEVICE");
        const int wished = given != nullptr ? std::atoi(given) : platform::kHostDevice;
        if (wished < 0) return platform::kHostDevice;
        if (cudaSetDevice(wished) != cudaSuccess || platform::onHostDevice()) {
            std::fprintf(stderr, "DRELT_TEST_DEVICE=%s: there is no such GPU\n", given);
            std::_Exit(1);
        }
        return wished;
    }();
    return id;
}

inline bool selectDevice() { return cudaSetDevice(device()) == cudaSuccess; }

// Whether the tests run on a GPU. Selects the device.
inline bool onGpu() { return selectDevice() && !platform::onHostDevice(); }

// Whether host code may read and write device memory. Selects the device.
inline bool plainMemory() { return selectDevice() && platform::hostReachesDevice(); }

template <class T>
using Array = std::vector<T, Eigen::aligned_allocator<T>>;

// Values of a device array, on the host.
template <class T>
Array<T> fetched(const T* there, std::size_t count) {
    Array<T> values(count);
    checkCudaErrors(cudaMemcpy(values.data(), there, count * sizeof(T), cudaMemcpyDeviceToHost));
    return values;
}
template <class T>
T fetched(const T* there) {
    return fetched(there, 1).front();
}

// Writes `value` to place i of a device array.
template <class T>
void store(T* there, std::size_t i, const T& value) {
    checkCudaErrors(cudaMemcpy(there + i, &value, sizeof(T), cudaMemcpyHostToDevice));
}

// A device array that holds a copy of the given values.
template <class T>
class DeviceArray {
public:
    template <class Values>
    explicit DeviceArray(const Values& values) : count_(values.size()) {
        selectDevice();
        checkCudaErrors(cudaMalloc(&data_, count_ * sizeof(T)));
        checkCudaErrors(
            cudaMemcpy(data_, values.data(), count_ * sizeof(T), cudaMemcpyHostToDevice));
    }
    ~DeviceArray() { cudaFree(data_); }
    DeviceArray(const DeviceArray&) = delete;
    DeviceArray& operator=(const DeviceArray&) = delete;

    T* data() { return data_; }
    Array<T> values() const { return fetched(data_, count_); }

private:
    std::size_t count_;
    T* data_ = nullptr;
};

}  // namespace drelt::test
