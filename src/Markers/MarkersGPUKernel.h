// The operators by which markers follow the skin and read the fluid.
#pragma once

#include <Eigen/Core>
#include <cmath>

#include "cslbm/mlsolver/mlFlow.h"
#include "platform/launch.h"

namespace drelt {

// Copies position and normal of a marker's vertex. A marker without a vertex keeps its values.
DRELT_KERNEL void copyMarkersPosNormalGPUKernel(LaunchIndex at, int* vId, Eigen::Vector3d* pos,
                                                Eigen::Vector3d* normal,
                                                Eigen::Vector3d* meshVertices,
                                                Eigen::Vector3d* meshNormals, int count) {
    if (at.n >= count || vId[at.n] < 0) return;
    const double* const vertex = reinterpret_cast<const double*>(meshVertices + vId[at.n]);
    const double* const direction = reinterpret_cast<const double*>(meshNormals + vId[at.n]);
    double* const toPos = reinterpret_cast<double*>(pos + at.n);
    double* const toNormal = reinterpret_cast<double*>(normal + at.n);
    for (int k = 0; k < 3; ++k) {
        toPos[k] = vertex[k];
        toNormal[k] = direction[k];
    }
}

// Along one axis: the cell that holds a coordinate, and the position in the cell.
struct MarkerCell {
    int index;   // clamped to the grid
    float part;  // 0 at the lower node of the cell, 1 at its upper node
};

// The cell follows from the box's length and node count, the part from the node spacing. If the two
// disagree, the part may lie outside 0..1. A coordinate outside the grid takes the value of the nearest
// node: the part is clamped below in the first cell and above in the last.
DRELT_HOST_DEVICE MarkerCell markerCell(float x, float start, float length, int samples, float dx) {
    const float cell = std::floor((x - start) / length * static_cast<float>(samples));
    const float last = static_cast<float>(samples - 2);
    const float held = cell > 0.0f ? (cell < last ? cell : last) : 0.0f;
    const int index = static_cast<int>(held);
    const float part = (x - (static_cast<float>(index) * dx + start)) / dx;
    if (index == 0 && part < 0.0f) return {index, 0.0f};
    if (held == last && part > 1.0f) return {index, 1.0f};
    return {index, part};
}

// Interpolates a node field trilinearly between the eight nodes of a cell, along x, then y, then z. `node` is
// the lowest node of the cell.
DRELT_HOST_DEVICE float interpolateInCell(const float* field, std::int64_t node,
                                          std::int64_t rowStride, std::int64_t planeStride,
                                          float tx, float ty, float tz) {
    const auto alongX = [&](std::int64_t row) DRELT_LAMBDA_INLINE {
        return field[row + 1] * tx + field[row] * (1.0f - tx);
    };
    const std::int64_t above = node + planeStride;
    return (1.0f - tz) * ((1.0f - ty) * alongX(node) + ty * alongX(node + rowStride)) +
           tz * ((1.0f - ty) * alongX(above) + ty * alongX(above + rowStride));
}

// Interpolates momentum and density of the fluid to one marker. Lattice units.
DRELT_KERNEL void getMarkersPropertiesGPUKernel(LaunchIndex at, mlFlow* flow, Eigen::Vector3d* pos,
                                                Eigen::Vector3d* velocity, float* pressure,
                                                int count) {
    if (at.n >= count) return;
    const MLFluidParam& param = *flow->param;
    const double* const place = reinterpret_cast<const double*>(pos + at.n);
    const MarkerCell i = markerCell(static_cast<float>(place[0]), flow->startx, param.width,
                                    param.samples_x, param.dx);
    const MarkerCell j = markerCell(static_cast<float>(place[1]), flow->starty, param.height,
                                    param.samples_y, param.dx);
    const MarkerCell k = markerCell(static_cast<float>(place[2]), flow->startz, param.depth,
                                    param.samples_z, param.dx);
    const std::int64_t row = param.samples_x;
    const std::int64_t plane = row * param.samples_y;
    const std::int64_t node = i.index + row * j.index + plane * k.index;
    const auto sampled = [&](const float* field) DRELT_LAMBDA_INLINE {
        return interpolateInCell(field, node, row, plane, i.part, j.part, k.part);
    };
    double* const to = reinterpret_cast<double*>(velocity + at.n);
    to[0] = static_cast<double>(sampled(flow->ux));
    to[1] = static_cast<double>(sampled(flow->uy));
    to[2] = static_cast<double>(sampled(flow->uz));
    pressure[at.n] = sampled(&flow->rou->value);
}

// Launches copyMarkersPosNormalGPUKernel on device arrays.
void copyMarkersPosNormalGPU(int* vId, Eigen::Vector3d* pos, Eigen::Vector3d* normal,
                             Eigen::Vector3d* meshVertices, Eigen::Vector3d* meshNormals,
                             int count);
// Launches getMarkersPropertiesGPUKernel on device arrays.
void getMarkersPropertiesGPU(mlFlow* flow, Eigen::Vector3d* pos, Eigen::Vector3d* velocity,
                             float* pressure, int count);

}  // namespace drelt
