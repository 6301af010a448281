// What the fused step works on: sizes, arrays, and the numbers of one step. Plain data, shared by the
// domain that owns the arrays and by the sweeps that are compiled once an instruction set.
//
// Populations stand in one array, updated in place. Direction e of each of the 13 opposite pairs
// (e lexicographically positive by z, y, x) has two places a node, A and B. A node n finds its streamed
// f_e at A(n) and f_-e at B(n + e), writes the post-collision f_e to B(n + e), where its neighbour
// will look for it, and f_-e to A(n), and A and B trade roles with every step (the "AA" pattern of
// Bailey et al., ICPP 2009, with the roles exchanged instead of two kinds of step). Every place belongs
// to one node in a step, so neither order nor number of threads can change a bit.
//
// Memory: rows of `pitch` floats; row (y, z) of a field group is ((ny + 1) z + y) times the group's
// number of fields. One row after the last of each plane and one plane at the end take what leaves
// the grid; column -1 lies in the padding of the row before.
#pragma once

#include <cstddef>
#include <cstdint>

// Everything that is compiled once an instruction set must be inlined: none of it may be shared.
#define DRELT_FUSED_INLINE inline __attribute__((always_inline))

namespace drelt {

struct FusedState {
    int nx, ny, nz;
    std::ptrdiff_t pitch;  // floats from one row of a field to the next, an odd multiple of 16
    int width;             // of the absorbing layer [nodes]
    int swapped;           // 1 if places A are the upper 13 slots of a row, else 0
    float nu;              // kinematic viscosity

    // Offsets from a row's start, in floats, of what follows from `swapped`; see FusedRows.h.
    std::ptrdiff_t place[27];  // of the streamed population of node 0, by code
    std::ptrdiff_t keepFrom[18],
        keepTo[18];  // of populations without a source at the ends of a row

    float* populations;      // [z][y][27][x]: slots 0..12 and 14..26 pairs, 13 rest
    float* moments;          // [z][y][4][x]: density and velocity (half-force shifted) of this step
    const float* before;     // the same of the step before
    float* sopt;             // [z][y][x]
    const float* reference;  // layer: density of the reference equilibrium [z][y][x]; null for 1
    const float* depth;      // layer: distance of x to the nearest end of a row
    float sigmaScale;        // layer: damping over the square of the depth in it
    double* force[3];        // spread force, dense [z][y][x], without padding
    unsigned*
        spread;  // [z][y][words]: which chunks of a row's force arrays hold anything, a bit each
    int chunkWords;

    float acceleration[3];      // of the frame's inertial force, lattice units
    float bodyAcceleration[3];  // enters the source alone
    bool momentsGiven;   // density and raw momentum stand in `moments`: populations were uploaded
    bool whole;          // populations, density and momentum need not belong together
    bool planesPending;  // open planes have not been applied to the streamed populations
};

// The sweeps of one instruction set. Planes z0 <= z < z1 make a thread's slab.
struct FusedSweeps {
    const char* name;
    // Moments of the first and last plane of a slab. All threads must be done before any goes on.
    void (*edges)(const FusedState& state, int z0, int z1);
    // Moments of the other planes, and the collision of all. `scratch` is the thread's own.
    void (*slab)(const FusedState& state, int z0, int z1, float* scratch);
    // Density and raw momentum of nodes x0 <= x < x1 of a row, with open planes applied, into the four
    // dense rows `to` that begin at x = 0.
    void (*segment)(const FusedState& state, int y, int z, int x0, int x1, float* const* to);
};

// Nodes along x that are marked together, as asked for or as under a spread force.
constexpr int kChunkNodes = 16;

// Rows of a tile of the sweep; a thread's scratch holds two planes of them and one more on either side,
// and three rows, 27 fields each.
constexpr int kTileRows = 16;
constexpr int kScratchRows = (2 * (kTileRows + 2) + 3) * 27;

// Sweeps for the instruction sets that this build knows.
const FusedSweeps& fusedSweepsBaseline();
const FusedSweeps& fusedSweepsAvx2();
const FusedSweeps& fusedSweepsAvx512();

}  // namespace drelt
