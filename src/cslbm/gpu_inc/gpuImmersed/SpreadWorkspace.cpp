#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace drelt {
namespace {

// Small enough to share out the work, large enough that few stencils reach into more than one.
// Rows are cut seldom, so that those of a stencil stay whole.
constexpr int kTileWidth = 64;  // along x
constexpr int kTileEdge = 12;   // along y and z

int tilesAlong(int nodes, int edge) { return (nodes + edge - 1) / edge; }

void growTo(std::vector<int>& buffer, std::size_t size) {
    if (buffer.size() < size) buffer.resize(size);
}

}  // namespace

void SpreadWorkspace::reserve(int sampleCount) {
    const auto count = static_cast<std::size_t>(sampleCount);
    if (stencils_.size() >= count) return;
    stencils_.resize(count);
    boxes_.resize(count);
}

NodeBox SpreadWorkspace::tile(int t) const {
    const int x = reach_.x0 + width_ * (t % nx_);
    const int y = reach_.y0 + edge_ * (t / nx_ % ny_);
    const int z = reach_.z0 + edge_ * (t / nx_ / ny_);
    return intersection({x, y, z, x + width_, y + edge_, z + edge_}, reach_);
}

// In numbers of tiles along each axis.
NodeBox SpreadWorkspace::tilesOf(const NodeBox& box) const {
    return {(box.x0 - reach_.x0) / width_,         (box.y0 - reach_.y0) / edge_,
            (box.z0 - reach_.z0) / edge_,          tilesAlong(box.x1 - reach_.x0, width_),
            tilesAlong(box.y1 - reach_.y0, edge_), tilesAlong(box.z1 - reach_.z0, edge_)};
}

template <class Visit>
void SpreadWorkspace::forEachTileOf(int sample, Visit&& visit) const {
    if (boxes_[sample].empty()) return;
    const NodeBox tiles = tilesOf(boxes_[sample]);
    for (int z = tiles.z0; z < tiles.z1; ++z) {
        for (int y = tiles.y0; y < tiles.y1; ++y) {
            for (int x = tiles.x0; x < tiles.x1; ++x) visit(x + nx_ * (y + ny_ * z));
        }
    }
}

void SpreadWorkspace::sortByTile(const NodeBox& reach, int sampleCount) {
    reach_ = reach;
    parts_ = omp_get_max_threads();
    width_ = kTileWidth;
    edge_ = kTileEdge;
    if (parts_ == 1) {  // nothing to share out: one tile
        width_ = reach.x1 - reach.x0;
        edge_ = std::max(reach.y1 - reach.y0, reach.z1 - reach.z0);
    }
    nx_ = tilesAlong(reach.x1 - reach.x0, width_);
    ny_ = tilesAlong(reach.y1 - reach.y0, edge_);
    nz_ = tilesAlong(reach.z1 - reach.z0, edge_);
    const int entries = tileCount() * parts_;
    growTo(starts_, static_cast<std::size_t>(entries) + 1);
    std::fill_n(starts_.begin(), entries + 1, 0);
    const auto partStart = [&](int part) {
        return static_cast<int>(static_cast<std::int64_t>(sampleCount) * part / parts_);
    };
    // Parts are loop indices and not threads: a smaller team still does all of them.
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts_; ++part) {
        for (int i = partStart(part); i < partStart(part + 1); ++i) {
            forEachTileOf(i, [&](int t) { ++starts_[t * parts_ + part]; });
        }
    }
    int total = 0;
    for (int e = 0; e <= entries; ++e) {
        const int size = starts_[e];
        starts_[e] = total;
        total += size;
    }
    growTo(samples_, static_cast<std::size_t>(total));
    growTo(places_, static_cast<std::size_t>(entries));
    std::copy_n(starts_.begin(), entries, places_.begin());
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts_; ++part) {
        for (int i = partStart(part); i < partStart(part + 1); ++i) {
            forEachTileOf(i, [&](int t) { samples_[places_[t * parts_ + part]++] = i; });
        }
    }
}

}  // namespace drelt
