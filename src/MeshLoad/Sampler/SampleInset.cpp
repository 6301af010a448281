#include "MeshLoad/Sampler/SampleInset.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <unsupported/Eigen/BVH>

namespace drelt {
namespace {

// Lengths below this share of the skin's extent count as zero: a ray ignores faces this close to its
// start, and crossings this close together are at one place.
constexpr double kSamePlace = 1e-6;
// A ray that meets a face's plane at a smaller sine than this is parallel: it does not cross the face.
constexpr double kParallel = 1e-9;
// Barycentric margin around faces. A ray that goes through an edge meets both faces instead of
// slipping through between them.
constexpr double kEdgeMargin = 1e-9;
// Vertex normals that point more than 120 degrees away from a face's normal contradict it.
constexpr double kContradiction = 0.5;

// A face at rest. The order of its vertices says which side is outside, unless the vertex normals
// clearly contradict: some models mix the order, and the inward rays follow the normals. At sharp
// corners the mean of the normals may stand a little beyond 90 degrees from a face. That is no
// contradiction.
struct Triangle {
    Eigen::Vector3d corner, edge1, edge2;
    Eigen::Vector3d outward;  // unit length; zero where the face has no area
    std::size_t id;           // counts through the faces of all meshes
};

using Tree = Eigen::KdBVH<double, 3, Triangle>;

// Faces of all meshes, and a tree over them for rays.
struct Skin {
    explicit Skin(const SkeletalMesh& mesh);

    double samePlace;                    // length [m] below which two places are one
    std::vector<std::size_t> firstFace;  // id of each mesh's first face
    Tree tree;
};

Triangle triangleOf(const host_MeshData& mesh, const MeshFace& face, std::size_t id) {
    const std::int32_t* const v = face.vertexIds;
    Triangle t;
    t.corner = mesh.init_positions[v[0]];
    t.edge1 = mesh.init_positions[v[1]] - t.corner;
    t.edge2 = mesh.init_positions[v[2]] - t.corner;
    t.outward = t.edge1.cross(t.edge2).stableNormalized();
    const Eigen::Vector3d normals =
        mesh.init_normals[v[0]] + mesh.init_normals[v[1]] + mesh.init_normals[v[2]];
    if (t.outward.dot(normals) < -kContradiction * normals.norm()) t.outward = -t.outward;
    t.id = id;
    return t;
}

Skin::Skin(const SkeletalMesh& mesh) : samePlace(kSamePlace * largestExtent(mesh)) {
    std::vector<Triangle> triangles;
    std::vector<Eigen::AlignedBox3d> boxes;
    // Boxes are wider than their faces, so that a ray along a side of a box does not miss it.
    const Eigen::Vector3d margin = Eigen::Vector3d::Constant(samePlace);
    for (const auto& part : mesh.meshes) {
        firstFace.push_back(triangles.size());
        for (const MeshFace& face : part->data_cpu.faces) {
            const Triangle t = triangleOf(part->data_cpu, face, triangles.size());
            triangles.push_back(t);
            Eigen::AlignedBox3d box(t.corner);
            box.extend(t.corner + t.edge1).extend(t.corner + t.edge2);
            boxes.emplace_back(box.min() - margin, box.max() + margin);
        }
    }
    tree.init(triangles.begin(), triangles.end(), boxes.begin(), boxes.end());
}

// Where a ray goes through a face.
struct Crossing {
    double length;  // from the ray's start [m]
    bool leaves;    // the ray goes from the face's inner side to its outer side
};

// Searches the tree for the faces that a ray goes through.
class RayQuery {
public:
    RayQuery(const Eigen::Vector3d& start, const Eigen::Vector3d& direction, std::size_t ownFace,
             double shortest)
        : start_(start), direction_(direction), ownFace_(ownFace), shortest_(shortest) {
        for (int k = 0; k < 3; ++k) {
            const double along = direction[k];
            inverse_[k] = 1.0 / (std::abs(along) < 1e-30 ? 1e-30 : along);
        }
    }

    // The ray against the three pairs of planes of a box.
    bool intersectVolume(const Eigen::AlignedBox3d& box) const {
        const Eigen::Array3d a = (box.min() - start_).array() * inverse_;
        const Eigen::Array3d b = (box.max() - start_).array() * inverse_;
        return std::max(a.min(b).maxCoeff(), 0.0) <= a.max(b).minCoeff();
    }

    // T. Moeller, B. Trumbore, J. Graphics Tools 2 (1997) 21. False: the search goes on.
    bool intersectObject(const Triangle& t) {
        const double sine = direction_.dot(t.outward);
        if (t.id == ownFace_ || std::abs(sine) < kParallel) return false;
        const Eigen::Vector3d h = direction_.cross(t.edge2);
        const double determinant = t.edge1.dot(h);
        const Eigen::Vector3d s = start_ - t.corner;
        const double u = s.dot(h) / determinant;
        const Eigen::Vector3d q = s.cross(t.edge1);
        const double v = direction_.dot(q) / determinant;
        if (!(u >= -kEdgeMargin && v >= -kEdgeMargin && u + v <= 1 + kEdgeMargin)) return false;
        const double length = t.edge2.dot(q) / determinant;
        if (length >= shortest_) crossings.push_back({length, sine > 0});
        return false;
    }

    std::vector<Crossing> crossings;

private:
    Eigen::Vector3d start_, direction_;
    Eigen::Array3d inverse_;
    std::size_t ownFace_;
    double shortest_;
};

// How far a ray that starts inside the skin runs until it is outside; 0 if it never is. Parts of a skin
// may overlap, and other parts may lie behind an open sheet. So the function counts the parts that the
// ray is in, and the ray is outside when none is left. Where it leaves one part and enters another at
// the same place, it stays inside.
double insideLength(std::vector<Crossing>& crossings, double samePlace) {
    const auto place = [&](const Crossing& c) {
        return c.leaves ? c.length : c.length - samePlace;
    };
    std::sort(crossings.begin(), crossings.end(),
              [&](const Crossing& a, const Crossing& b) { return place(a) < place(b); });
    int inside = 1;
    double last[2] = {-1, -1};  // of the crossings that enter, and of those that leave
    for (const Crossing& c : crossings) {
        // Two faces of one edge, or a face that is there twice, are one crossing.
        const bool again = last[c.leaves] >= 0 && c.length - last[c.leaves] < samePlace;
        last[c.leaves] = c.length;
        if (again) continue;
        inside += c.leaves ? -1 : 1;
        if (inside == 0) return c.length;
    }
    return 0;
}

double localThickness(const Skin& skin, const host_MeshData& mesh, const MeshSample& sample) {
    const std::int32_t* const v = mesh.faces[sample.faceId].vertexIds;
    const auto mean = [&](const std::vector<Eigen::Vector3d>& of) -> Eigen::Vector3d {
        return sample.w0 * of[v[0]] + sample.w1 * of[v[1]] + sample.w2 * of[v[2]];
    };
    const Eigen::Vector3d normal = mean(mesh.init_normals);
    const double norm = normal.norm();
    if (!(norm > 0)) return 0;
    RayQuery ray(mean(mesh.init_positions), normal / -norm,
                 skin.firstFace[sample.meshId] + sample.faceId, skin.samePlace);
    Eigen::BVIntersect(skin.tree, ray);
    return insideLength(ray.crossings, skin.samePlace);
}

}  // namespace

std::vector<float> sampleInsets(const SkeletalMesh& mesh, const std::vector<MeshSample>& samples,
                                double distance) {
    if (!(std::isfinite(distance) && distance >= 0)) {
        throw std::invalid_argument("the distance of samples inside the skin is " +
                                    std::to_string(distance) +
                                    " m; give a finite distance of 0 or more, for example 0.8 node "
                                    "spacings");
    }
    const Skin skin(mesh);
    std::vector<float> insets(samples.size());
    const auto count = static_cast<std::int64_t>(samples.size());
#pragma omp parallel for schedule(dynamic, 256)
    for (std::int64_t i = 0; i < count; ++i) {
        const host_MeshData& part = mesh.meshes[samples[i].meshId]->data_cpu;
        const double thickness = localThickness(skin, part, samples[i]);
        insets[i] = static_cast<float>(std::min(distance, 0.5 * thickness));
    }
    return insets;
}

double largestExtent(const SkeletalMesh& mesh) {
    Eigen::AlignedBox3d box;
    for (const auto& part : mesh.meshes) {
        for (const MeshFace& face : part->data_cpu.faces) {
            for (const std::int32_t vertex : face.vertexIds) {
                box.extend(part->data_cpu.init_positions[vertex]);
            }
        }
    }
    return box.isEmpty() ? 0.0 : box.sizes().maxCoeff();
}

}  // namespace drelt
