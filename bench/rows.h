// Rows of the benchmark that run one operator over a whole domain on host threads.
#pragma once

#include <cstddef>

#include "bench_flow.h"

namespace drelt::bench {

// What to run, and the bytes of a node that it must read and write at least (an array that is only
// written counts once; planes and the layer's own nodes are left out of the count). Without bytes
// no bandwidth is given.
struct Row {
    const char* name;
    void (*run)(BenchFlow&);
    double bytesPerNode;
};

inline constexpr double kPopulations = 27.0 * 4.0;

// Registers each row on two grids, for one thread and for all. Returns true.
bool registerRows(const Row* rows, std::size_t count);
template <std::size_t N>
bool registerRows(const Row (&rows)[N]) {
    return registerRows(rows, N);
}

}  // namespace drelt::bench
