// Rows of the benchmark that run one operator over a whole domain.
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
inline constexpr double kState = 4 * 4;  // density and velocity
inline constexpr double kForce = 3 * 8;
inline constexpr double kFrameForceBytes = 4 + 2 * 3 * 4 + 2 * kForce;
inline constexpr double kCollisionBytes = 2 * kPopulations + kState + kForce + 2 * 4;
inline constexpr double kLayerBytes = 5 * kPopulations + kState + kPopulations + 4;
inline constexpr double kStreamBytes = 2 * kPopulations;
inline constexpr double kMomentBytes = kPopulations + kState + kForce;
// Of the operators of one step; planes, samples and bodies are left out.
inline constexpr double kStepBytes =
    kFrameForceBytes + kCollisionBytes + kLayerBytes + kStreamBytes + kMomentBytes;

// Of the production step on a GPU: populations are read twice and written once, density and momentum
// read and written, and the high-order parameter. What a layer reads of the last step is left out.
inline constexpr double kProductionBytes = 3 * kPopulations + 2 * kState + 2 * 4;

inline constexpr const char* kNoMemory = "not enough free memory for this grid";

// Adds each row on all grids, on host threads for one thread and for all. Returns true.
bool registerRows(const Row* rows, std::size_t count);
template <std::size_t N>
bool registerRows(const Row (&rows)[N]) {
    return registerRows(rows, N);
}

}  // namespace drelt::bench
