#include "MeshLoad/Sampler/SampleOrder.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace drelt {
namespace {

constexpr int kBitsPerAxis = 10;

// Spreads the bits of a number, with two zeros between neighbours.
std::uint32_t spreadBits(std::uint32_t value) {
    value = (value | value << 16U) & 0x030000FFU;
    value = (value | value << 8U) & 0x0300F00FU;
    value = (value | value << 4U) & 0x030C30C3U;
    return (value | value << 2U) & 0x09249249U;
}

std::uint32_t curvePlace(const Eigen::Vector3d& place, const Eigen::AlignedBox3d& box) {
    const double edge = std::max(box.sizes().maxCoeff(), 1e-30);
    const Eigen::Vector3d scaled = (place - box.min()) * ((1 << kBitsPerAxis) - 1) / edge;
    std::uint32_t code = 0;
    for (int axis = 0; axis < 3; ++axis) {
        code |= spreadBits(static_cast<std::uint32_t>(scaled[axis])) << static_cast<unsigned>(axis);
    }
    return code;
}

Eigen::Vector3d initialPlace(const MeshSample& sample, const SkeletalMesh& mesh) {
    const host_MeshData& data = mesh.meshes[sample.meshId]->data_cpu;
    const std::int32_t* const v = data.faces[sample.faceId].vertexIds;
    const auto& places = data.init_positions;
    return sample.w0 * places[v[0]] + sample.w1 * places[v[1]] + sample.w2 * places[v[2]];
}

}  // namespace

void sortByLinkAndPlace(std::vector<MeshSample>& samples, const SkeletalMesh& mesh) {
    std::vector<Eigen::Vector3d> places;
    places.reserve(samples.size());
    Eigen::AlignedBox3d box;
    for (const MeshSample& sample : samples) {
        places.push_back(initialPlace(sample, mesh));
        box.extend(places.back());
    }
    std::vector<std::uint32_t> code(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) code[i] = curvePlace(places[i], box);

    std::vector<std::size_t> order(samples.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (samples[a].linkId != samples[b].linkId) return samples[a].linkId < samples[b].linkId;
        return code[a] < code[b];
    });
    std::vector<MeshSample> sorted;
    sorted.reserve(samples.size());
    for (const std::size_t i : order) sorted.push_back(samples[i]);
    samples.swap(sorted);
}

}  // namespace drelt
