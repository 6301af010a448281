// What the production step works on: sizes, arrays and the numbers of one step. Plain data, shared by the
// domain that owns the arrays and by the sweeps, which are compiled once per instruction set.
//
// The two places of a population
//
// Populations stand in one array and are updated in place. Directions form 13 opposite pairs (e, -e), where
// e is the positive one: its last non-zero component, in the order x, y, z, is +1. Each node has two places
// for each pair, A and B. Node n finds its streamed populations in A(n) and in B of the neighbour n + e,
// and puts the post-collision ones where the neighbours look for them in the next step:
//
//                        node n             node n + e
//                    A(n)       B(n)      A(n+e)     B(n+e)
//     read by      n: f_e    n-e: f_-e   n+e: f_e    n: f_-e     streamed
//     written by   n: f_-e   n-e: f_e    n+e: f_-e   n: f_e      post-collision
//
// After the step, A and B trade roles (`swapped`), and every place again holds a streamed population. This
// is the "AA" pattern of Bailey et al. (ICPP 2009) with exchanged roles instead of two kinds of step. In a
// step each place belongs to one node, so neither the order of nodes nor the number of threads can change
// a bit.
//
// Rows
//
// A row (y, z) of populations is 27 slots of `pitch` floats. Slots 0 to 12 and 14 to 26 are the two places
// of each pair, slot 13 is the rest population:
//
//     slot     0 ......... 12    13    14 ........ 26
//              B of 14 .. 26    rest   A of 14 .. 26      swapped = 1
//              A of 14 .. 26    rest   B of 14 .. 26      swapped = 0
//
// Row (y, z) of an array with k fields starts at ((ny + 1) z + y) k pitch. The extra row after each plane
// and the extra plane at the end take the populations that leave the grid. What leaves towards -x goes into
// the padding of the row before.
//
// Pending open planes
//
// A step ends before the open planes: `planesPending` says that their nodes still have to take the streamed
// populations of their inner neighbours. The next step does this when it forms the moments of a row. Until
// then the post-collision populations can be read, and whoever reads streamed populations or moments takes
// those of the inner neighbour. Characteristic planes form theirs from two nodes inside and the far state at
// the end of the step (FusedPlanes.h). Along x, with a layer of w nodes:
//
//     x   0 .. w-1       w        w+1   .....   nx-2-w      nx-1-w     nx-w .. nx-1
//          layer    open plane <- inner nodes, inner -> open plane      layer
//
// The ring of the absorbing layer is drawn in FusedLayer.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cslbm/mlsolver/OpenPlanes.h"
#include "platform/launch.h"

namespace drelt {

struct FusedState {
    int nx, ny, nz;
    std::ptrdiff_t pitch;  // floats from one row of a field to the next, an odd multiple of 16
    int width;             // of the absorbing layer [nodes]
    int swapped;           // 1 if the places A are the upper 13 slots of a row, else 0
    float nu;              // kinematic viscosity

    // Offsets from the start of a row, in floats. They follow from `swapped`; see findOffsets.
    std::ptrdiff_t place[27];     // of the streamed population of node 0, by code
    std::ptrdiff_t keepFrom[18];  // of populations without a source at the ends of a row,
    std::ptrdiff_t keepTo[18];    // and where the next step looks for them

    float* populations;      // [z][y][27][x]
    float* moments;          // [z][y][4][x]: density and velocity (half-force shifted) of this step
    const float* before;     // the same of the step before
    float* sopt;             // [z][y][x]
    const float* reference;  // layer: density of the reference equilibrium [z][y][x]; null means 1
    const float* depth;      // layer: distance of x to the nearest end of a row
    float sigmaScale;        // layer: damping divided by the square of the depth in the layer
    double* force[3];        // spread force, dense [z][y][x], without padding
    unsigned* spread;        // [z][y][words]: one bit per chunk whose force is not 0
    int chunkWords;          // words of a row in `spread`

    float acceleration[3];      // of the frame's inertial force, lattice units
    float bodyAcceleration[3];  // enters the force source only
    bool momentsGiven;   // `moments` holds the density and raw momentum of uploaded populations
    bool whole;          // density and momentum may differ from the sums of the populations
    bool planesPending;  // see above
    OpenPlanes planes;   // as of the step that left them pending
};

// The sweeps of one instruction set. The planes z0 <= z < z1 are the slab of a thread.
struct FusedSweeps {
    const char* name;
    // Forms the moments of the first and last plane of a slab. All threads must finish this before any of
    // them calls `slab`.
    void (*edges)(const FusedState& state, int z0, int z1);
    // Forms the moments of the other planes and collides all of them. Each thread has its own `scratch`.
    void (*slab)(const FusedState& state, int z0, int z1, float* scratch);
    // Writes density and raw momentum of the nodes x0 <= x < x1 of a row, with open planes applied, to the
    // four dense rows `to`, which begin at x = 0.
    void (*fillMoments)(const FusedState& state, int y, int z, int x0, int x1, float* const* to);
    // Writes the populations of the nodes of a row on pending characteristic planes to the 27 dense rows
    // `to`, by code.
    void (*fillOpenNodes)(const FusedState& state, int y, int z, float* const* to);
};

// Nodes of a chunk. A bit marks the chunk as a whole: under a spread force, or asked for.
constexpr int kChunkNodes = 16;

// Nodes that a sample may interpolate from and spread to, counted from its own node. A delta function of
// four points reaches 1 below and 2 above. One more on each side allows for rounding; this suffices within
// 2^24 node spacings of the origin, where single precision still tells nodes apart.
constexpr int kSampleBelow = 2;
constexpr int kSampleAbove = 4;  // the first node beyond

// Rows of a tile of the sweep. The scratch of a thread is the ring of the absorbing layer: two planes of a
// tile's rows with one more row on each side, and three rows, of 27 fields each.
constexpr int kTileRows = 16;
constexpr int kScratchRows = (2 * (kTileRows + 2) + 3) * 27;

// Sweeps of the instruction sets that this build knows.
const FusedSweeps& fusedSweepsBaseline();
const FusedSweeps& fusedSweepsAvx2();
const FusedSweeps& fusedSweepsAvx512();

}  // namespace drelt
