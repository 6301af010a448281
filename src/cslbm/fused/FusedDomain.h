// A fluid domain on host threads under the production schedule: a step is one sweep over the rows.
#pragma once

#include <cstddef>
#include <vector>

#include "cslbm/fused/FusedState.h"
#include "cslbm/fused/ProductionDomain.h"
#include "cslbm/mlsolver/NodeBox.h"

namespace drelt {

// The sweeps of an instruction set: of the widest that machine and build have, of the one that the
// environment variable DRELT_INSTRUCTIONS names (baseline, avx2 or avx512), or of the one named. Throws
// std::invalid_argument for a name that the build or the machine does not have.
const FusedSweeps& fusedSweeps();
const FusedSweeps& fusedSweeps(const char* name);
// The names that build and machine have, narrowest first.
std::vector<const char*> fusedInstructionSets();

class FusedDomain : public ProductionDomain {
public:
    // As makeProductionDomain. The selected device must be the host's threads, here and in every step, and
    // host code must reach its memory.
    FusedDomain(const MLFluidParam& param, float nu, float sigmaMax,
                const FusedSweeps& sweeps = fusedSweeps());
    ~FusedDomain() override;

    static double bytesPerNode(const MLFluidParam& param);

    void load(const mlFlow& host) override;
    void upload(const mlFlow& host) override;
    void resetLayer(const mlDensity<float>* rou) override;
    void setStepBefore(const mlFlow& fluid) override;
    void step(const FrameMotion& motion) override;
    mlFlow* record() override { return &record_; }
    bool holdsMoments() const override { return false; }
    void prepareMoments(const NodeBox* boxes, int count) override;
    void announceForces(const NodeBox* boxes, int count) override;
    void prepareCoupling(const mlLagrangeBoundary* samples, int count,
                         const mlUnitScale& scale) override;
    // Prepares moments and announces forces around each of the given nodes; `around` is the box for node
    // (0, 0, 0). Entries with a negative x are skipped.
    void prepareAround(const NodeIndex* nodes, int count, const NodeBox& around);
    void materialise(mlFlow& host) const override;
    void visitState(StateVisitor& state) override;
    void stateLoaded(bool hostNewer) override;
    std::size_t residentBytes() const override { return bytes_; }
    const char* instructionSet() const override { return sweeps_->name; }

private:
    bool stepped() const override { return state_.planesPending; }
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
    std::size_t floatsOf(int fields) const;
    void dropForces() override;

    const FusedSweeps* sweeps_;
    MLFluidParam param_;
    mlFlow record_{};
    FusedState state_{};
    float* momentsBefore_ =
        nullptr;                  // the other buffer beside state_.moments; null without a layer
    float* reference_ = nullptr;  // null until a reset at a density other than 1
    std::vector<float> depth_;
    std::vector<float*> scratch_;  // one per thread; none without a layer
    std::size_t nodes_;
    std::size_t bytes_ = 0;
    std::vector<void*> arrays_;
    std::vector<unsigned>
        spread_;  // one bit per chunk of nodes, rows of words: forces are spread there
    std::vector<unsigned> wanted_;   // moments are wanted there
    std::vector<unsigned> columns_;  // samples are near along x, in the samples' own rows
    std::vector<NodeIndex> sampleNodes_;
};

}  // namespace drelt
