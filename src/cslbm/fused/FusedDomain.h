// A fluid domain on host threads under the production schedule: one array of populations, updated in
// place, instead of the operators' arrays. What it holds and returns is what the operator schedule
// holds: a step is frame forcing, collision, absorbing layer, streaming, moments and open planes.
#pragma once

#include <cstddef>
#include <vector>

#include "cslbm/fused/FusedState.h"
#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/mlsolver/NodeBox.h"

namespace drelt {

// Instruction set of the sweeps: the widest that machine and build have, or fewer by the environment
// variable DRELT_INSTRUCTIONS (baseline, avx2 or avx512), or by name. Throws std::invalid_argument for a
// name that the build or the machine does not have.
const FusedSweeps& fusedSweeps();
const FusedSweeps& fusedSweeps(const char* name);
// The names that can be asked for here, narrowest first.
std::vector<const char*> fusedInstructionSets();

class FusedDomain : public ProductionDomain {
public:
    // As makeProductionDomain. The device selected must be the host's threads, now and when a step is
    // taken, and host code must reach its memory.
    FusedDomain(const MLFluidParam& param, float nu, float sigmaMax,
                const FusedSweeps& sweeps = fusedSweeps());
    ~FusedDomain() override;
    FusedDomain(const FusedDomain&) = delete;
    FusedDomain& operator=(const FusedDomain&) = delete;

    static double bytesPerNode(const MLFluidParam& param);

    void load(const mlFlow& host) override;
    void upload(const mlFlow& host) override;
    void resetLayer(const mlDensity<float>* rou) override;
    void step(const FrameMotion& motion) override;
    mlFlow* record() override { return &record_; }
    bool holdsMoments() const override { return false; }
    void prepareMoments(const NodeBox* boxes, int count) override;
    void announceForces(const NodeBox* boxes, int count) override;
    void prepareCoupling(const mlLagrangeBoundary* samples, int count,
                         const mlUnitScale& scale) override;
    // The same for the nodes around each of the given ones, where `around` is the box around node
    // 0, 0, 0. Nodes with a negative x are none.
    void prepareAround(const NodeIndex* nodes, int count, const NodeBox& around);
    void materialise(mlFlow& host) const override;
    std::size_t residentBytes() const override { return bytes_; }
    const char* instructionSet() const override { return sweeps_->name; }

    std::size_t nodes() const { return nodes_; }

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
    NodeBox markColumns(const NodeIndex* nodes, int count, const NodeBox& around);
    void coupleRow(int y, int z, const NodeBox& around);
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
    std::vector<unsigned> spread_;   // chunks of nodes under a force, bits of words by row
    std::vector<unsigned> wanted_;   // and those asked for
    std::vector<unsigned> columns_;  // and those around samples, in the samples' own rows
    std::vector<NodeIndex> sampleNodes_;
};

}  // namespace drelt
