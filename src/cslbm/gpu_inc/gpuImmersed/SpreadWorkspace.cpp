#include "cslbm/gpu_inc/gpuImmersed/SpreadWorkspace.h"

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace drelt {
namespace {

// Unused counters between those of two parts: a pair of cache lines, so that threads share none.
constexpr int kApart = 32;

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
    const int planes = z1 - z0;
    // Each part of the samples is counted separately. Parts are loop indices, not threads, so a smaller team
    // still treats all of them.
    const int parts = omp_get_max_threads();
    const int stride = planes + kApart;
    growTo(starts_, static_cast<std::size_t>(planes) + 1);
    growTo(places_, static_cast<std::size_t>(parts) * stride);
    const auto forEachPlaneOf = [&](int part, auto&& visit) {
        const std::int64_t count = sampleCount;
        const auto end = static_cast<int>(count * (part + 1) / parts);
        int* const places = &places_[static_cast<std::size_t>(part) * stride];
        for (auto i = static_cast<int>(count * part / parts); i < end; ++i) {
            const SpreadSample& sample = samples_[i];
            for (int k = 0; k < sample.planes; ++k) visit(i, places[sample.z0 - z0 + k]);
        }
    };
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts; ++part) {
        std::fill_n(&places_[static_cast<std::size_t>(part) * stride], planes, 0);
        forEachPlaneOf(part, [](int, int& count) { ++count; });
    }
    int total = 0;
    for (int plane = 0; plane < planes; ++plane) {
        starts_[plane] = total;
        for (int part = 0; part < parts; ++part) {
            int& place = places_[static_cast<std::size_t>(part) * stride + plane];
            const int size = place;
            place = total;
            total += size;
        }
    }
    starts_[planes] = total;
    growTo(list_, static_cast<std::size_t>(total));
#pragma omp parallel for schedule(static)
    for (int part = 0; part < parts; ++part) {
        forEachPlaneOf(part, [&](int i, int& place) { list_[place++] = i; });
    }
}

}  // namespace drelt
