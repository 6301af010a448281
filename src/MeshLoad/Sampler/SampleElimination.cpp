#include "MeshLoad/Sampler/SampleElimination.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <nanoflann.hpp>
#include <numeric>

namespace drelt {

namespace {

constexpr double kBeta = 0.65;
constexpr double kGamma = 1.5;

struct PairDistances {
    double max;  // points farther apart are no neighbours
    double min;  // closer points weigh as much as points at this distance
};

// Weight of a pair at a distance below distances.max: (1 - d/max)^alpha with alpha = 8.
double pairWeight(double distance, const PairDistances& distances) {
    const double w = 1.0 - std::max(distance, distances.min) / distances.max;
    const double w2 = w * w;
    const double w4 = w2 * w2;
    return w4 * w4;
}

// The points as the k-d tree reads them.
struct PointCloud {
    const std::vector<Eigen::Vector3d>& points;
    std::size_t kdtree_get_point_count() const { return points.size(); }
    double kdtree_get_pt(std::size_t i, std::size_t axis) const {
        return points[i][static_cast<Eigen::Index>(axis)];
    }
    template <class Box>
    bool kdtree_get_bbox(Box&) const {
        return false;
    }
};

using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, PointCloud>,
                                                 PointCloud, 3, std::uint32_t>;

// The neighbours of every point within a distance, and the weights of the points.
class Neighbourhoods {
public:
    Neighbourhoods(const std::vector<Eigen::Vector3d>& points, const PairDistances& distances);

    const std::uint32_t* begin(std::size_t i) const {
        return lists_[i / kBlock].data() + starts_[i];
    }
    const std::uint32_t* end(std::size_t i) const { return begin(i) + counts_[i]; }

    std::vector<double> weights;

private:
    // Threads search blocks of points. Each block has its own list of neighbours.
    static constexpr std::size_t kBlock = 4096;
    std::vector<std::vector<std::uint32_t>> lists_;
    std::vector<std::uint32_t> starts_, counts_;
};

Neighbourhoods::Neighbourhoods(const std::vector<Eigen::Vector3d>& points,
                               const PairDistances& distances)
    : weights(points.size()),
      lists_(points.size() / kBlock + 1),
      starts_(points.size()),
      counts_(points.size()) {
    const PointCloud cloud{points};
    const Tree tree(3, cloud, nanoflann::KDTreeSingleIndexAdaptorParams(16));
    // The tree compares squared distances. Search a little farther and apply the exact bound below.
    const double searched = distances.max * distances.max * (1.0 + 1e-9);
    const nanoflann::SearchParams unsorted(0, 0.0f, false);
    const int blocks = static_cast<int>(lists_.size());
#pragma omp parallel
    {
        std::vector<std::pair<std::uint32_t, double>> found;
#pragma omp for schedule(dynamic, 1)
        for (int block = 0; block < blocks; ++block) {
            std::vector<std::uint32_t>& list = lists_[block];
            const std::size_t last = std::min(points.size(), (block + 1) * kBlock);
            for (std::size_t i = block * kBlock; i < last; ++i) {
                tree.radiusSearch(points[i].data(), searched, found, unsorted);
                starts_[i] = static_cast<std::uint32_t>(list.size());
                for (const auto& candidate : found) {
                    if (candidate.first == i) continue;
                    if ((points[i] - points[candidate.first]).norm() < distances.max) {
                        list.push_back(candidate.first);
                    }
                }
                std::sort(list.begin() + starts_[i], list.end());
                counts_[i] = static_cast<std::uint32_t>(list.size() - starts_[i]);
                double weight = 0;
                for (std::size_t n = starts_[i]; n < list.size(); ++n) {
                    weight += pairWeight((points[i] - points[list[n]]).norm(), distances);
                }
                weights[i] = weight;
            }
        }
    }
}

// A max-heap of point indices by weight. Points that are taken from the top are stored behind the end of
// the heap, the last one first.
class WeightHeap {
public:
    explicit WeightHeap(std::vector<double>& weights)
        : weights_(weights), order_(weights.size()), place_(weights.size()), size_(weights.size()) {
        std::iota(order_.begin(), order_.end(), 0u);
        std::iota(place_.begin(), place_.end(), 0u);
        for (std::size_t at = size_ / 2; at-- > 0;) siftDown(at);
    }

    std::size_t size() const { return size_; }
    bool holds(std::uint32_t point) const { return place_[point] < size_; }
    const std::vector<std::uint32_t>& order() const { return order_; }

    std::uint32_t takeTop() {
        const std::uint32_t top = order_[0];
        --size_;
        put(order_[size_], 0);
        put(top, size_);
        siftDown(0);
        return top;
    }

    void lower(std::uint32_t point, double by) {
        weights_[point] -= by;
        siftDown(place_[point]);
    }

private:
    void put(std::uint32_t point, std::size_t at) {
        order_[at] = point;
        place_[point] = static_cast<std::uint32_t>(at);
    }

    void siftDown(std::size_t at) {
        if (at >= size_) return;
        const std::uint32_t point = order_[at];
        const double weight = weights_[point];
        for (std::size_t child = 2 * at + 1; child < size_; child = 2 * at + 1) {
            if (child + 1 < size_ && weights_[order_[child]] < weights_[order_[child + 1]]) ++child;
            if (!(weight < weights_[order_[child]])) break;
            put(order_[child], at);
            at = child;
        }
        put(point, at);
    }

    std::vector<double>& weights_;
    std::vector<std::uint32_t> order_;
    std::vector<std::uint32_t> place_;
    std::size_t size_;
};

// Removes the point of the largest weight until `wanted` are left. Returns all points in the order of the
// heap, the remaining ones first.
std::vector<std::uint32_t> eliminateTo(std::size_t wanted,
                                       const std::vector<Eigen::Vector3d>& points,
                                       const PairDistances& distances) {
    Neighbourhoods near(points, distances);
    WeightHeap heap(near.weights);
    while (heap.size() > wanted) {
        const std::uint32_t taken = heap.takeTop();
        for (const std::uint32_t* n = near.begin(taken); n != near.end(taken); ++n) {
            if (!heap.holds(*n)) continue;
            heap.lower(*n, pairWeight((points[taken] - points[*n]).norm(), distances));
        }
    }
    return heap.order();
}

// Orders the points so that every prefix is an even set: eliminates half of the set, puts the eliminated
// half behind the remaining one, and repeats this for the remaining half.
std::vector<int> progressiveOrder(const std::vector<Eigen::Vector3d>& points,
                                  std::vector<int> chosen, PairDistances distances) {
    constexpr float kSqrt2 = 1.41421356f;
    std::vector<int> ordered = chosen;
    std::vector<Eigen::Vector3d> places;
    while (chosen.size() >= 3) {
        const std::size_t half = chosen.size() / 2;
        distances.max *= static_cast<double>(kSqrt2);
        places.clear();
        for (const int i : chosen) places.push_back(points[i]);
        const std::vector<std::uint32_t> order = eliminateTo(half, places, distances);
        for (std::size_t at = 0; at < chosen.size(); ++at) ordered[at] = chosen[order[at]];
        chosen.assign(ordered.begin(), ordered.begin() + static_cast<std::ptrdiff_t>(half));
    }
    return ordered;
}

}  // namespace

std::vector<int> eliminateSamples(const std::vector<Eigen::Vector3d>& points, int wanted,
                                  double area) {
    if (points.empty() || wanted <= 0) return {};
    const double surface = area > 0 ? area : 1.0;
    const double share = static_cast<double>(wanted) / static_cast<double>(points.size());
    PairDistances distances{};
    distances.max = 2.0 * std::sqrt(surface / wanted / (2.0 * std::sqrt(3.0)));
    distances.min = distances.max * kBeta * (1.0 - std::pow(share, kGamma));
    const std::vector<std::uint32_t> order =
        eliminateTo(static_cast<std::size_t>(wanted), points, distances);
    const std::size_t left = std::min(order.size(), static_cast<std::size_t>(wanted));
    return progressiveOrder(
        points, std::vector<int>(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(left)),
        distances);
}

}  // namespace drelt
