// A fluid domain on host threads under the production schedule: one array of populations, updated in
// place, instead of the operators' arrays. What it holds and returns is what the operator schedule
// holds: a step is frame forcing, collision, absorbing layer, streaming, moments and open planes.
#pragma once

#include <Eigen/Geometry>
#include <cstddef>
#include <memory>
#include <vector>

#include "cslbm/fused/FusedState.h"
#include "cslbm/gpu_inc/gpu/mlCalMacroGpu.h"
#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"
#include "cslbm/mlsolver/mlFlow.h"

namespace drelt {

// Motion of the frame that the grid follows; the arguments of mlAddForcetoUOpt.
struct FrameMotion {
    float velocityScale = 1.0f;
    Eigen::Vector3d lengthScale = Eigen::Vector3d::Ones();
    Eigen::Vector3d linearAcceleration = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularVelocity = Eigen::Vector3d::Zero();
    Eigen::Vector3d angularAcceleration = Eigen::Vector3d::Zero();
    FrameTransform inverse = FrameTransform::Identity();
};

// Instruction set of the sweeps: the widest that machine and build have, or fewer by the environment
// variable DRELT_INSTRUCTIONS (baseline, avx2 or avx512), or by name. Throws std::invalid_argument for a
// name that the build or the machine does not have.
const FusedSweeps& fusedSweeps();
const FusedSweeps& fusedSweeps(const char* name);
// The names that can be asked for here, narrowest first.
std::vector<const char*> fusedInstructionSets();

// Where numbers are not finite, the layer's part of a step may spread them one node further than the
// operators do.
class FusedDomain {
public:
    // A domain at rest: density 1, Sopt 0. Sizes, layer width, dx and body acceleration come from param;
    // nu is the lattice viscosity, sigmaMax the layer's damping at the outer faces. The device selected
    // must be the host's threads, now and when a step is taken. Throws std::invalid_argument for a box
    // thinner than 2 pml_width + 3 nodes, where the open planes have no inner neighbour.
    FusedDomain(const MLFluidParam& param, float nu, float sigmaMax,
                const FusedSweeps& sweeps = fusedSweeps());
    ~FusedDomain();
    FusedDomain(const FusedDomain&) = delete;
    FusedDomain& operator=(const FusedDomain&) = delete;

    // Whether the open planes of a box would have no inner neighbour.
    static bool tooThin(const MLFluidParam& param);
    // Bytes that a domain takes for each node.
    static double bytesPerNode(const MLFluidParam& param);

    // Takes the state of a host record between two steps: f, rou, ux uy uz (raw momentum), Sopt. For a
    // domain just made, as the solver's always is: its layer stays at rest.
    void load(const mlFlow& host);
    // Takes f and ux, uy, uz; the density stays what it is, and rules the next step. Where f is null,
    // the populations are those of a fluid at rest at the record's rou.
    void upload(const mlFlow& host);
    // Layer at rest at the given density, which becomes that of the reference equilibrium; spread forces
    // are dropped.
    void resetLayer(const mlDensity<float>* rou);

    // One step. Consumes the spread forces.
    void step(const FrameMotion& motion);

    // A record for the operators that couple bodies and read markers: ux, uy, uz and rou hold what was
    // prepared, forcex, forcey, forcez take spread forces; other arrays are null. startx, starty, startz
    // are the caller's to move.
    mlFlow* record() { return &record_; }
    // Brings density and raw momentum of the nodes of the boxes into the record's arrays.
    void prepareMoments(const NodeBox* boxes, int count);
    // Tells where the force arrays have been or will be written before the next step.
    void announceForces(const NodeBox* boxes, int count);

    // Fills f, rou, ux uy uz and Sopt of a host record, where not null, as the operators leave them after
    // a step, and fPost as the collision and the layer left it.
    void materialise(mlFlow& host) const;

    std::size_t nodes() const { return nodes_; }
    const char* instructionSet() const { return sweeps_->name; }
    // Bytes of the arrays that every step touches.
    std::size_t residentBytes() const { return bytes_; }

private:
    template <class T>
    T* allocate(std::size_t count, bool sparse = false);
    void startAtRest();
    void layOutLayer(float sigmaMax);
    float* scratchOf(int thread) const;
    void prepareScratch();
    void turnFrame(const FrameMotion& motion);
    template <class Visit>
    void forEachRow(Visit&& visit) const;
    NodeBox clipped(const NodeBox& box) const;
    NodeBox mark(const NodeBox* boxes, int count, std::vector<unsigned>& chunks) const;
    std::size_t wordOf(int y, int z) const;
    void fillWanted(int y, int z);
    void dropForces();

    const FusedSweeps* sweeps_;
    MLFluidParam param_;
    mlFlow record_{};
    FusedState state_{};
    float* momentsBefore_ = nullptr;  // the buffer that is not state_.moments; null without a layer
    float* reference_ = nullptr;      // null until a reset at another density than 1
    std::vector<float> depth_;
    std::vector<float*> scratch_;  // one a thread, with a layer
    std::size_t nodes_;
    std::size_t bytes_ = 0;
    std::vector<void*> arrays_;
    std::vector<unsigned> spread_;  // chunks of nodes under a force, bits of words by row
    std::vector<unsigned> wanted_;  // and those asked for
};

}  // namespace drelt
