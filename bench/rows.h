// Benchmark rows that run one operator over a whole domain.
#pragma once

#include <cstddef>

#include "bench_flow.h"

namespace drelt::bench {

// What to run, and the bytes per node that it must at least read and write. An array that is only written
// counts once; open planes and the nodes of the layer are not counted. With 0, the row reports no bandwidth.
struct Row {
    const char* name;
    void (*run)(BenchFlow&);
    double bytesPerNode;
};

inline constexpr double kPopulations = 27.0 * 4.0;
inline constexpr double kState = 4 * 4;  // density and velocity
inline constexpr double kForce = 3 * 8;
inline constexpr double kFrameForceBytes = 4 + 2 * 3 * 4 + 2 * kForce;
inline constexpr double kCollisionBytes = 2 * kPopulations + kState + kForce + 2 * 4;
inline constexpr double kLayerBytes = 5 * kPopulations + kState + kPopulations + 4;
inline constexpr double kStreamBytes = 2 * kPopulations;
inline constexpr double kMomentBytes = kPopulations + kState + kForce;
// All operators of one step, without open planes, samples and bodies.
inline constexpr double kStepBytes =
    kFrameForceBytes + kCollisionBytes + kLayerBytes + kStreamBytes + kMomentBytes;

// The production step on a GPU: reads the populations twice and writes them once, reads and writes
// density, momentum and Sopt. What a layer reads from the previous step is not counted.
inline constexpr double kProductionBytes = 3 * kPopulations + 2 * kState + 2 * 4;

inline constexpr const char* kNoMemory = "not enough free memory for this grid";

// Registers each row for all grids; on host threads, once for one thread and once for all. Returns true.
bool registerRows(const Row* rows, std::size_t count);
template <std::size_t N>
bool registerRows(const Row (&rows)[N]) {
    return registerRows(rows, N);
}

}  // namespace drelt::bench
