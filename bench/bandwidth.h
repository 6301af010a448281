// The device's memory bandwidth, the yardstick of the operators' rows.
#pragma once

#include "platform/launch.h"

namespace drelt::bench {

struct Bandwidth {
    double inPlace;  // read and write one array [GB/s], both counted
    double copy;  // read one array, write another [GB/s], both counted: the better of a launch and,
                  // on a GPU, of cudaMemcpy
};

// Of the device that main chose, over arrays that no cache holds; measured once a thread count.
const Bandwidth& bandwidth(int threads);

// The rate in place measured now [GB/s]: the bound of what runs right before or after, on machines whose
// speed changes from minute to minute. Keeps its array of 256 MiB.
double inPlaceNow(int threads);

DRELT_KERNEL void scaleKernel(LaunchIndex at, float* a) { a[at.n] *= 0.5f; }
DRELT_KERNEL void copyKernel(LaunchIndex at, const float* a, float* b) { b[at.n] = a[at.n]; }

}  // namespace drelt::bench
