// What the force spreading on host threads keeps of each sample, and the sorting of samples by planes
// of nodes.
#pragma once

#include <cstddef>
#include <vector>

namespace drelt {

// One sample's share of the spreading: its force and its weights, in rows of kRow nodes.
struct SpreadSample {
    static constexpr int kRow = 8;
    static constexpr int kMost = 5;  // rows and planes

    float x[kRow];  // 0 where the sample does not reach
    float y[kMost], z[kMost];
    double force[3];   // lattice units
    int x0, y0, z0;    // first node
    int rows, planes;  // from y0 and z0 on; rows is 0 where the sample does not fit in here
};

// Buffers of the spreading on host threads, kept between steps: they grow when a step needs more
// than any before it.
class SpreadWorkspace {
public:
    // Room for that many samples.
    void reserve(int sampleCount);
    SpreadSample* samples() { return samples_.data(); }

    // Lists for each plane z0 <= z < z1, which hold those of all samples, the samples that reach it, in
    // their order. Counting sort in parallel; the lists do not depend on the number of threads.
    void sortByPlane(int z0, int z1, int sampleCount);
    // The samples of plane z are list()[begin(z)] .. list()[end(z) - 1].
    const int* list() const { return list_.data(); }
    int begin(int z) const { return starts_[z - z0_]; }
    int end(int z) const { return begin(z + 1); }

private:
    std::vector<SpreadSample> samples_;
    int z0_ = 0;
    std::vector<int> starts_;  // first place in list_ of each plane, and their end
    std::vector<int> places_;  // next free place of each plane, a part after the other
    std::vector<int> list_;
};

}  // namespace drelt
