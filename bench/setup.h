// What main was asked for, and the rows' way to hear of it: sources register a function each at the
// program's start, which main calls when device and threads are known.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace drelt::bench {

struct Grid {
    int nx, ny, nz;
    int pml_width;
};

struct Setup {
    int device;                // id as everywhere; host threads by default
    bool onHost;               // whether that is host threads
    std::vector<int> threads;  // numbers of host threads that rows are run for
};

// The setup in force; valid once main has read its arguments.
const Setup& setup();

// Reads and removes `--device N` or `--device=N` from the arguments, and selects the device. Throws
// std::invalid_argument for a device that cannot be used.
void readSetup(int* argc, char** argv);

// Keeps a function that adds rows to the benchmark, for addAllRows. Returns true.
bool onSetup(std::function<void()> addRows);
void addAllRows();

// The grids of an operator's row: on host threads two of 2.4 million nodes, of sizes that do and do
// not collide in caches; on a GPU of 1, 4 and 16 million.
std::vector<Grid> grids(int pml_width);
std::string nameOf(const Grid& grid);

// Runs body with each number of threads under "NAME/threads:N"; on a GPU, once, under "NAME/device:N".
void forEachThreads(const std::string& name,
                    const std::function<void(const std::string& row, int threads)>& body);

}  // namespace drelt::bench
