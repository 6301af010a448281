#include "MeshLoad/VolumeMoments.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <numeric>
#include <utility>

namespace drelt {

namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;
using Edge = std::pair<std::int32_t, std::int32_t>;

// A volume below this share of its terms is their rounding.
constexpr double kRounding = 1e-12;

// Integrals over a volume from one fixed point: of 1, x and x x^T.
struct Sums {
    double volume = 0, size = 0;  // size: of the terms of the volume, without signs
    Vector3d first = Vector3d::Zero();
    Matrix3d second = Matrix3d::Zero();

    // Adds the tetrahedron of the fixed point and a triangle; its sign is that of the triangle's side.
    void add(const Vector3d& a, const Vector3d& b, const Vector3d& c) {
        const double V = a.dot(b.cross(c)) / 6;
        const Vector3d s = a + b + c;
        volume += V;
        size += std::abs(V);
        first += V / 4 * s;
        second += V / 20 *
                  (s * s.transpose() + a * a.transpose() + b * b.transpose() + c * c.transpose());
    }
    void flip() {
        volume = -volume;
        first = -first;
        second = -second;
    }
    VolumeMoments about(const Vector3d& fixed) const {
        if (!(std::abs(volume) > kRounding * size)) return {};
        const Vector3d c = first / volume;
        return {volume, fixed + c, second - volume * c * c.transpose()};
    }
};

// For each vertex the first one at the same place.
std::vector<std::int32_t> joined(const std::vector<Vector3d>& vertices) {
    std::vector<std::int32_t> order(vertices.size()), first(vertices.size());
    std::iota(order.begin(), order.end(), 0);
    const auto before = [&](std::int32_t i, std::int32_t j) {
        const Vector3d &p = vertices[i], &q = vertices[j];
        for (int a = 0; a < 3; ++a) {
            if (p[a] != q[a]) return p[a] < q[a];
        }
        return i < j;
    };
    std::sort(order.begin(), order.end(), before);
    for (std::size_t k = 0; k < order.size(); ++k) {
        const bool same = k > 0 && vertices[order[k]] == vertices[order[k - 1]];
        first[order[k]] = same ? first[order[k - 1]] : order[k];
    }
    return first;
}

std::vector<FaceVertices> withJoinedVertices(const std::vector<Vector3d>& vertices,
                                             const std::vector<FaceVertices>& triangles) {
    const std::vector<std::int32_t> first = joined(vertices);
    std::vector<FaceVertices> result = triangles;
    for (FaceVertices& t : result) {
        for (std::int32_t& v : t) v = first[v];
    }
    return result;
}

Edge edgeOf(const FaceVertices& t, int k) { return {t[k], t[(k + 1) % 3]}; }
Edge sorted(const Edge& e) { return std::minmax(e.first, e.second); }
bool hasArea(const FaceVertices& t) { return t[0] != t[1] && t[1] != t[2] && t[2] != t[0]; }

// Removes faces with a free edge until none is left. The triangles' vertices are joined.
std::vector<bool> peel(const std::vector<FaceVertices>& triangles) {
    std::map<Edge, std::vector<std::size_t>> facesAt;
    std::vector<bool> closed(triangles.size(), false);
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        if (!hasArea(triangles[i])) continue;
        closed[i] = true;
        for (int k = 0; k < 3; ++k) facesAt[sorted(edgeOf(triangles[i], k))].push_back(i);
    }
    std::vector<std::size_t> loose;
    for (const auto& entry : facesAt) {
        if (entry.second.size() == 1) loose.push_back(entry.second.front());
    }
    while (!loose.empty()) {
        const std::size_t face = loose.back();
        loose.pop_back();
        if (!closed[face]) continue;
        closed[face] = false;
        for (int k = 0; k < 3; ++k) {
            std::vector<std::size_t>& faces = facesAt[sorted(edgeOf(triangles[face], k))];
            faces.erase(std::find(faces.begin(), faces.end(), face));
            if (faces.size() == 1) loose.push_back(faces.front());
        }
    }
    return closed;
}

// The edges at which each part ends, with the number of times that they are left over in their direction.
using Rims = std::vector<std::map<Edge, int>>;

Rims rimsOf(const std::vector<FaceVertices>& triangles, const std::vector<bool>& closed,
            const std::vector<std::int32_t>& labels, int parts) {
    Rims rims(static_cast<std::size_t>(parts));
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        if (!closed[i]) continue;
        for (int k = 0; k < 3; ++k) {
            const Edge e = edgeOf(triangles[i], k);
            rims[labels[i]][sorted(e)] += e.first < e.second ? 1 : -1;
        }
    }
    for (auto& rim : rims) {
        for (auto at = rim.begin(); at != rim.end();) {
            at = at->second == 0 ? rim.erase(at) : std::next(at);
        }
    }
    return rims;
}

// Where the fans of the cuts meet: one point for all cut edges that hang together.
class FanCentres {
public:
    FanCentres(const Rims& rims, const std::vector<Vector3d>& vertices) {
        for (const auto& rim : rims) {
            for (const auto& entry : rim) join(entry.first);
        }
        for (const auto& entry : parent_) {
            auto& [sum, count] = sums_[root(entry.first)];
            if (count == 0) sum.setZero();
            sum += vertices[entry.first];
            ++count;
        }
    }
    Vector3d at(std::int32_t vertex) {
        const auto& [sum, count] = sums_[root(vertex)];
        return sum / count;
    }

private:
    void join(const Edge& e) {
        for (const std::int32_t v : {e.first, e.second}) parent_.emplace(v, v);
        parent_[root(e.first)] = root(e.second);
    }
    std::int32_t root(std::int32_t v) {
        while (parent_[v] != v) v = parent_[v] = parent_[parent_[v]];
        return v;
    }

    std::map<std::int32_t, std::int32_t> parent_;
    std::map<std::int32_t, std::pair<Vector3d, int>> sums_;
};

Vector3d middleOf(const std::vector<Vector3d>& vertices) {
    Eigen::AlignedBox3d box;
    for (const Vector3d& v : vertices) box.extend(v);
    return vertices.empty() ? Vector3d(Vector3d::Zero()) : box.center();
}

}  // namespace

VolumeMoments VolumeMoments::movedBy(const Eigen::Isometry3d& motion) const {
    const Matrix3d& R = motion.linear();
    return {volume, motion * centroid, R * second * R.transpose()};
}

Matrix3d VolumeMoments::inertia() const { return second.trace() * Matrix3d::Identity() - second; }

std::vector<bool> closedFaces(const std::vector<Vector3d>& vertices,
                              const std::vector<FaceVertices>& triangles) {
    return peel(withJoinedVertices(vertices, triangles));
}

VolumeMoments volumeMoments(const std::vector<Vector3d>& vertices,
                            const std::vector<FaceVertices>& triangles) {
    const std::vector<std::int32_t> labels(triangles.size(), 0);
    return volumeMomentsOfParts(vertices, triangles, labels, 1).front();
}

std::vector<VolumeMoments> volumeMomentsOfParts(const std::vector<Vector3d>& vertices,
                                                const std::vector<FaceVertices>& triangles,
                                                const std::vector<std::int32_t>& labels,
                                                int parts) {
    const std::vector<FaceVertices> joinedTriangles = withJoinedVertices(vertices, triangles);
    const std::vector<bool> closed = peel(joinedTriangles);
    const Vector3d fixed = middleOf(vertices);
    const auto from = [&](std::int32_t v) -> Vector3d { return vertices[v] - fixed; };
    std::vector<Sums> sums(static_cast<std::size_t>(parts));
    for (std::size_t i = 0; i < triangles.size(); ++i) {
        const FaceVertices& t = joinedTriangles[i];
        if (closed[i]) sums[labels[i]].add(from(t[0]), from(t[1]), from(t[2]));
    }
    const Rims rims = rimsOf(joinedTriangles, closed, labels, parts);
    FanCentres centres(rims, vertices);
    for (std::size_t part = 0; part < rims.size(); ++part) {
        for (const auto& [edge, times] : rims[part]) {
            const Vector3d apex = centres.at(edge.first) - fixed;
            // against the direction in which the part's own faces go along the edge
            const bool reverse = times > 0;
            const Vector3d a = from(reverse ? edge.second : edge.first);
            const Vector3d b = from(reverse ? edge.first : edge.second);
            for (int n = std::abs(times); n > 0; --n) sums[part].add(a, b, apex);
        }
    }
    double whole = 0;
    for (const Sums& part : sums) whole += part.volume;
    std::vector<VolumeMoments> result;
    for (Sums& part : sums) {
        if (whole < 0) part.flip();
        result.push_back(part.about(fixed));
    }
    return result;
}

}  // namespace drelt
