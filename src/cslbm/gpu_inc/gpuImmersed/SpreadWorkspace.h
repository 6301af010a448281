// What the force spreading on host threads keeps of each sample, and the sorting of samples by
// tiles of nodes.
#pragma once

#include <vector>

#include "cslbm/gpu_inc/gpuImmersed/mlDelta.h"
#include "cslbm/mlsolver/NodeBox.h"
#include "platform/launch.h"

namespace drelt {

// The nodes that one sample reaches, their weights, and the force that is shared out among them.
struct SpreadStencil {
    double forcex, forcey, forcez;  // lattice units
    DeltaWeights x, y, z;

    DRELT_HOST_DEVICE NodeBox box() const {
        return {x.first, y.first, z.first, x.first + x.count, y.first + y.count, z.first + z.count};
    }
};

// Buffers of the spreading on host threads, kept between steps: they grow when a step needs more
// than any before it.
class SpreadWorkspace {
public:
    // Room for the stencils of that many samples.
    void reserve(int sampleCount);
    SpreadStencil* stencils() { return stencils_.data(); }
    // The nodes of each stencil; for the caller to fill.
    NodeBox* boxes() { return boxes_.data(); }

    // Cuts `reach`, which holds all boxes, into tiles and lists for each tile the samples whose
    // boxes overlap it, in the order of the samples. Counting sort in parallel; the lists do not
    // depend on the number of threads.
    void sortByTile(const NodeBox& reach, int sampleCount);
    int tileCount() const { return nx_ * ny_ * nz_; }
    NodeBox tile(int t) const;
    // The samples of tile t are samples()[begin(t)] .. samples()[end(t) - 1].
    const int* samples() const { return samples_.data(); }
    int begin(int t) const { return starts_[static_cast<std::size_t>(t) * parts_]; }
    int end(int t) const { return starts_[static_cast<std::size_t>(t + 1) * parts_]; }

private:
    NodeBox tilesOf(const NodeBox& box) const;
    template <class Visit>
    void forEachTileOf(int sample, Visit&& visit) const;

    std::vector<SpreadStencil> stencils_;  // one a sample
    std::vector<NodeBox> boxes_;
    NodeBox reach_{};
    int width_ = 1, edge_ = 1;      // nodes of a tile along x, and along y and z
    int nx_ = 0, ny_ = 0, nz_ = 0;  // tiles along each axis
    int parts_ = 1;                 // runs of samples that were counted apart, one a thread
    std::vector<int> starts_;       // first place in samples_ of each tile and part, and their end
    std::vector<int> places_;       // next free place of each
    std::vector<int> samples_;
};

}  // namespace drelt
