// What the host record of a fluid domain holds at the start and after a reset.
#pragma once

#include <cmath>
#include <cstdint>

#include "cslbm/mlsolver/mlFlow.h"
#include "platform/vector3.h"

namespace drelt {

// Calls body(n, x, y, z) for every node, rows in parallel.
template <class Body>
void forEachNode(const MLFluidParam& param, Body&& body) {
    const int nx = param.samples_x;
    const int ny = param.samples_y;
    const std::int64_t rows = static_cast<std::int64_t>(ny) * param.samples_z;
#pragma omp parallel for schedule(static)
    for (std::int64_t row = 0; row < rows; ++row) {
        const int y = static_cast<int>(row % ny);
        const int z = static_cast<int>(row / ny);
        for (int x = 0; x < nx; ++x) body(row * nx + x, x, y, z);
    }
}

// The number of nodes for which test(n, x, y, z) holds.
template <class Test>
std::int64_t countNodesWhere(const MLFluidParam& param, Test&& test) {
    const int nx = param.samples_x;
    const int ny = param.samples_y;
    const std::int64_t rows = static_cast<std::int64_t>(ny) * param.samples_z;
    std::int64_t found = 0;
#pragma omp parallel for schedule(static) reduction(+ : found)
    for (std::int64_t row = 0; row < rows; ++row) {
        const int y = static_cast<int>(row % ny);
        const int z = static_cast<int>(row / ny);
        for (int x = 0; x < nx; ++x) found += test(row * nx + x, x, y, z) ? 1 : 0;
    }
    return found;
}

// Clears an array. Writes only entries that are not 0, so that pages never written stay without memory.
template <class T>
void clearWritten(T* array, std::int64_t count) {
#pragma omp parallel for schedule(static)
    for (std::int64_t n = 0; n < count; ++n) {
        if (array[n] != T{} || std::signbit(array[n])) array[n] = T{};
    }
}

// Whether initialisation, reset and clearInlets leave a node of this class as it is: excluded or solid.
bool keepsItsState(MLLATTICENODE_FLAG flag);

// Place in the absorbing layer and damping of a node. The damping grows with the square of the depth in
// the layer, from sigma_max / pml_width^2 on the innermost plane to sigma_max on the outer faces.
struct LayerNode {
    PML_TYPE type;
    float sigma;
};
LayerNode layerNode(const MLFluidParam& param, float sigma_max, int x, int y, int z);

// A fluid that starts with one velocity (lattice units) at all nodes. The layer's data start at rest.

// Sets f and fPost to the equilibrium at density 1, fEqBar to that at rest, fEqTilde and fEqTildeOld to 0.
void initialisePopulations(mlFlow& flow, const Vector3<float>& velocity = {0.0f, 0.0f, 0.0f});
// Sets f and fPost to the equilibrium at the node's density, fEqBar to that at rest, and fEqTilde,
// fEqTildeOld, Q and cNQ to 0. Nodes that are excluded or solid stay as they are.
void resetPopulations(mlFlow& flow, const Vector3<float>& velocity = {0.0f, 0.0f, 0.0f});
// Sets f and fPost of all nodes to the equilibrium at the node's density.
void uniformPopulations(mlFlow& flow, const Vector3<float>& velocity);
// Sets ux, uy, uz to the density times the velocity. A velocity of 0 changes nothing. Nodes that are
// excluded or solid stay as they are.
void setUniformMomentum(mlFlow& flow, const Vector3<float>& velocity);

}  // namespace drelt
