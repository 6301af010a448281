// Probes on a body's skin: each sits on one mesh vertex and reads the fluid there.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "MeshLoad/SkeletalMesh.h"
#include "MeshLoad/twoSideDataWrapper.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// Each list has one entry per marker.
struct Markers_CPU {
    std::vector<int> vId;                   // vertex within its mesh, -1 without one
    std::vector<int> meshId;                // mesh within the SkeletalMesh, -1 without one
    std::vector<Eigen::Vector3d> pos;       // world axes [m]
    std::vector<Eigen::Vector3d> normal;    // vertex normal, not normalised
    std::vector<Eigen::Vector3d> velocity;  // sampled momentum, lattice units; 0 at first
    std::vector<float> pressure;            // sampled density, lattice units; 1 at first
};

struct Markers_GPU {
    int* vId;
    Eigen::Vector3d* pos;
    Eigen::Vector3d* normal;
    Eigen::Vector3d* velocity;
    float* pressure;
};

class StateVisitor;

class Markers : public twoSideDataWrapper<Markers_CPU, Markers_GPU> {
public:
    explicit Markers(int device);
    ~Markers() override;

    int count() const { return static_cast<int>(data_cpu.vId.size()); }
    void addMarker(int meshId, int vId, const Eigen::Vector3d& pos, const Eigen::Vector3d& normal);

    // Adds a marker at the vertex nearest to each place [m] and copies all markers to the device.
    // On the device, markers follow the first mesh only, so a marker on another mesh prints a warning
    // on standard output. Throws std::invalid_argument if the first mesh has no vertex with its
    // index, and then changes nothing.
    void place(const std::vector<Eigen::Vector3d>& placements, const SkeletalMesh& mesh);

    // Moves the markers with the skin, on the device or on the host. Both sides then hold the new
    // positions and normals.
    void updatePosNormal(const SkeletalMesh& mesh, bool onDevice);

    // The cells that sample reads, each two nodes wide along each axis. `flow` is in host memory, and
    // the host must be able to read the device's marker positions.
    std::vector<NodeBox> cells(const mlFlow& flow) const;

    // Reads the fluid at the markers and copies the values to the host, in lattice units. `flow` is in
    // device memory, and its ux, uy, uz must hold momentum. A marker outside the grid reads the
    // nearest point of the grid.
    void sample(mlFlow* flow);

    // Lists what changes, on the host. Call copyToDevice after a load.
    void visitState(StateVisitor& state);

    void allocateDevice() override;
    void copyToDevice() override;
    void copyToHost() override;  // all but vId
    void freeDevice() override;
};

}  // namespace drelt
