// The command line's choices, and how rows get them: each source registers a function when the program
// starts, and main calls it when it knows device and threads.
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
    int device;                // device id; host threads by default
    bool onHost;               // whether the device is the host's threads
    std::vector<int> threads;  // each row runs once for each of these numbers of host threads
};

// Valid once main has read its arguments.
const Setup& setup();

// Reads and removes `--device N` or `--device=N` from the arguments, and selects the device. Throws
// std::invalid_argument for a device that cannot be used.
void readSetup(int* argc, char** argv);

// Keeps a function that adds rows to the benchmark, for addAllRows. Returns true.
bool onSetup(std::function<void()> addRows);
void addAllRows();

// The grids of an operator's row. On host threads two of 2.4 million nodes: one whose sizes cause cache
// conflicts and one whose sizes do not. On a GPU 1, 4 and 16 million nodes.
std::vector<Grid> grids(int pml_width);
std::string nameOf(const Grid& grid);

// Runs body with each number of threads under "NAME/threads:N"; on a GPU, once, under "NAME/device:N".
void forEachThreads(const std::string& name,
                    const std::function<void(const std::string& row, int threads)>& body);

}  // namespace drelt::bench
