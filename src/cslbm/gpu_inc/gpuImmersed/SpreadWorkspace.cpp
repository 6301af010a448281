#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace drelt {
namespace {

void growTo(std::vector<int>& buffer, std::size_t size) {
    if (buffer.size() < size) buffer.resize(size);
}

}  // namespace

void SpreadWorkspace::reserve(int sampleCount) {
    const auto count = static_cast<std::size_t>(sampleCount);
    if (samples_.size() < count) samples_.resize(count);
}

void SpreadWorkspace::sortByPlane(int z0, int z1, int sampleCount) {
    z0_ = z0;
    parts_ = omp_get_max_threads();
    const int entries = (z1 - z0) * parts_;
    growTo(starts_, static_cast<std::size_t>(entries) + 1);
    std::fill_n(starts_.begin(), entries + 1, 0);
    const auto partStart = [&](int part) {
        return static_cast<int>(static_cast<std::int64_t>(sampleCount) * part / parts_);
    };
    // Parts are loop indices and not threads: a smaller team still does all of them.
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts_; ++part) {
        for (int i = partStart(part); i < partStart(part + 1); ++i) {
            int* const counts = &starts_[(samples_[i].z0 - z0) * parts_ + part];
            for (int k = 0; k < samples_[i].planes; ++k) ++counts[k * parts_];
        }
    }
    int total = 0;
    for (int e = 0; e <= entries; ++e) {
        const int size = starts_[e];
        starts_[e] = total;
        total += size;
    }
    growTo(list_, static_cast<std::size_t>(total));
    growTo(places_, static_cast<std::size_t>(entries));
    std::copy_n(starts_.begin(), entries, places_.begin());
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts_; ++part) {
        for (int i = partStart(part); i < partStart(part + 1); ++i) {
            int* const places = &places_[(samples_[i].z0 - z0) * parts_ + part];
            for (int k = 0; k < samples_[i].planes; ++k) list_[places[k * parts_]++] = i;
        }
    }
}

}  // namespace drelt
