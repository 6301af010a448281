// The device that tests run on: DRELT_TEST_DEVICE, an id as everywhere; the host's threads if unset.
#pragma once

#include <cstdlib>

#include "platform/runtime.h"

namespace drelt::test {

inline int device() {
    static const int id = [] {
        const char* const given = std::getenv("DRELT_TEST_DEVICE");
        return given != nullptr ? std::atoi(given) : platform::kHostDevice;
    }();
    return id;
}

// Whether that is a GPU. Selects the device.
inline bool onGpu() { return cudaSetDevice(device()) == cudaSuccess && !platform::onHostDevice(); }

}  // namespace drelt::test
