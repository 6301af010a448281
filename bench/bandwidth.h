// The device's memory bandwidth. The rows of the operators are compared with it.
#pragma once

#include "platform/launch.h"

namespace drelt::bench {

struct Bandwidth {
    double inPlace;  // read and write one array [GB/s], both counted
    double copy;  // read one array, write another [GB/s], both counted; on a GPU, the better of a
                  // launch and cudaMemcpy
};

// The bandwidth of the device that main chose, with arrays too large for any cache. Measured once per number
// of threads.
const Bandwidth& bandwidth(int threads);

// The rate in place, measured now [GB/s]. It bounds what runs right before or after it, also on a machine
// whose speed changes from minute to minute. Keeps its array of 256 MiB.
double inPlaceNow(int threads);

DRELT_KERNEL void scaleKernel(LaunchIndex at, float* a) { a[at.n] *= 0.5f; }
DRELT_KERNEL void copyKernel(LaunchIndex at, const float* a, float* b) { b[at.n] = a[at.n]; }

}  // namespace drelt::bench
