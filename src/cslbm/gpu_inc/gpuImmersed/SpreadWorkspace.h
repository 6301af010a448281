// The buffers of the force spreading on host threads: the stencil of each sample, and the samples sorted by
// planes of nodes.
#pragma once

#include <cstddef>
#include <vector>

namespace drelt {

// The stencil of one sample: its force and its weights, in rows of kRow nodes.
struct SpreadSample {
    static constexpr int kRow = 8;
    static constexpr int kMost = 5;  // the most rows and planes

    float x[kRow];  // 0 for nodes that the sample does not reach
    float y[kMost], z[kMost];
    double force[3];   // lattice units
    int x0, y0, z0;    // first node
    int rows, planes;  // from y0 and z0 on; rows is 0 if the stencil does not fit into this record
};

// The buffers are kept between steps. They grow when a step needs more than all steps before it.
class SpreadWorkspace {
public:
    // Makes room for sampleCount samples.
    void reserve(int sampleCount);
    SpreadSample* samples() { return samples_.data(); }

    // Lists, for each plane z0 <= z < z1, the samples that reach it, in their order. All planes of all samples
    // must lie in this range. A parallel counting sort; the lists do not depend on the number of threads.
    void sortByPlane(int z0, int z1, int sampleCount);
    // The samples of plane z are list()[begin(z)] .. list()[end(z) - 1].
    const int* list() const { return list_.data(); }
    int begin(int z) const { return starts_[z - z0_]; }
    int end(int z) const { return begin(z + 1); }

private:
    std::vector<SpreadSample> samples_;
    int z0_ = 0;
    std::vector<int> starts_;  // first place of each plane in list_, and the end of the last one
    // next free place in list_ for each part of the samples and each plane
    std::vector<int> places_;
    std::vector<int> list_;
};

}  // namespace drelt
