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

DRELT_KERNEL void scaleKernel(LaunchIndex at, float* a) { a[at.n] *= 0.5f; }
DRELT_KERNEL void copyKernel(LaunchIndex at, const float* a, float* b) { b[at.n] = a[at.n]; }

}  // namespace drelt::bench
