// The machine's memory bandwidth, the yardstick of the operators' rows.
#pragma once

namespace drelt::bench {

struct Bandwidth {
    double inPlace;  // read and write one array [GB/s], both counted
    double copy;     // read one array, write another [GB/s], both counted
};

// Measured once a thread count, over arrays that no cache holds.
const Bandwidth& bandwidth(int threads);

}  // namespace drelt::bench
