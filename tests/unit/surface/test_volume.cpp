// Volumes inside skins, and their moments.
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <vector>

#include "MeshLoad/VolumeMoments.h"

namespace drelt {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

struct Skin {
    std::vector<Vector3d> vertices;
    std::vector<FaceVertices> faces;

    // A flat patch of n x n cells. Patches share no vertices.
    void addPatch(const Vector3d& corner, const Vector3d& a, const Vector3d& b, int n) {
        const auto first = static_cast<int>(vertices.size());
        for (int i = 0; i <= n; ++i) {
            for (int j = 0; j <= n; ++j) vertices.emplace_back(corner + (i * a + j * b) / n);
        }
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                const int at = first + i * (n + 1) + j;
                faces.push_back({at, at + n + 1, at + n + 2});
                faces.push_back({at, at + n + 2, at + 1});
            }
        }
    }
    void move(const Eigen::Isometry3d& motion) {
        for (Vector3d& v : vertices) v = motion * v;
    }
};

// From the origin to `size`.
Skin box(const Vector3d& size, int n = 4) {
    const Vector3d x(size.x(), 0, 0), y(0, size.y(), 0), z(0, 0, size.z()), o(0, 0, 0);
    Skin skin;
    skin.addPatch(o, y, x, n);
    skin.addPatch(z, x, y, n);
    skin.addPatch(o, x, z, n);
    skin.addPatch(y, z, x, n);
    skin.addPatch(o, z, y, n);
    skin.addPatch(x, y, z, n);
    return skin;
}

const Vector3d kSize(0.4, 1.0, 2.0);

// Of a box about its centre.
Matrix3d secondOfBox(const Vector3d& size) {
    return (size.prod() / 12 * size.cwiseAbs2()).asDiagonal();
}

TEST(VolumeMoments, ABoxHasThoseOfItsFormulaInAnyPose) {
    Skin skin = box(kSize);
    Eigen::Isometry3d pose(Eigen::AngleAxisd(0.7, Vector3d(1, 2, -1).normalized()));
    pose.pretranslate(Vector3d(30, -20, 10));
    const VolumeMoments rest = volumeMoments(skin.vertices, skin.faces);
    skin.move(pose);
    const VolumeMoments moved = volumeMoments(skin.vertices, skin.faces);
    EXPECT_NEAR(rest.volume, 0.8, 1e-14);
    EXPECT_LT((rest.centroid - kSize / 2).norm(), 1e-14);
    EXPECT_LT((rest.second - secondOfBox(kSize)).norm(), 1e-14);
    EXPECT_NEAR(rest.inertia()(0, 0), 0.8 * (1 + 4) / 12, 1e-14);
    const VolumeMoments expected = rest.movedBy(pose);
    EXPECT_NEAR(moved.volume, expected.volume, 1e-12);
    EXPECT_LT((moved.centroid - expected.centroid).norm(), 1e-12);
    EXPECT_LT((moved.second - expected.second).norm(), 1e-12);

    for (FaceVertices& face : skin.faces) std::swap(face[0], face[1]);
    EXPECT_NEAR(volumeMoments(skin.vertices, skin.faces).volume, 0.8, 1e-12) << "inside out";
}

TEST(VolumeMoments, OnlyTheClosedPartCounts) {
    Skin skin = box({1, 1, 1});
    const std::size_t closed = skin.faces.size();
    skin.addPatch({1, 0, 0.5}, {2, 0, 0}, {0, 1, 0}, 4);  // a fin along edges of the box
    skin.addPatch({5, 0, 0}, {2, 0, 0}, {0, 1, 0}, 4);    // and a sheet of its own
    EXPECT_NEAR(volumeMoments(skin.vertices, skin.faces).volume, 1, 1e-14);
    const std::vector<bool> kept = closedFaces(skin.vertices, skin.faces);
    for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_EQ(kept[i], i < closed) << i;

    skin.faces.erase(skin.faces.begin() + 5);  // a hole
    EXPECT_EQ(volumeMoments(skin.vertices, skin.faces).volume, 0);
    EXPECT_EQ(volumeMoments({}, {}).volume, 0);
}

// Along the box, labels change at 1/2; in the upper half also across it, so that three parts meet.
TEST(VolumeMoments, PartsOfASkinAddUpToTheWhole) {
    const Skin skin = box(kSize);
    std::vector<std::int32_t> labels;
    for (const FaceVertices& face : skin.faces) {
        const Vector3d c =
            (skin.vertices[face[0]] + skin.vertices[face[1]] + skin.vertices[face[2]]) / 3;
        labels.push_back(c.z() < 1 ? 1 : c.y() < 0.5 ? 2 : 3);
    }
    const auto parts = volumeMomentsOfParts(skin.vertices, skin.faces, labels, 4);
    EXPECT_EQ(parts[0].volume, 0);
    EXPECT_NEAR(parts[1].volume + parts[2].volume + parts[3].volume, 0.8, 1e-14);
    EXPECT_NEAR(parts[2].volume, parts[3].volume, 1e-14);
    Vector3d first = Vector3d::Zero();
    for (const VolumeMoments& part : parts) first += part.volume * part.centroid;
    EXPECT_LT((first - 0.4 * kSize).norm(), 1e-14);

    for (std::int32_t& label : labels) label = label == 1 ? 0 : 1;
    const auto halves = volumeMomentsOfParts(skin.vertices, skin.faces, labels, 2);
    for (int half : {0, 1}) {
        EXPECT_NEAR(halves[half].volume, 0.4, 1e-14) << "a flat cut";
        EXPECT_LT((halves[half].centroid - Vector3d(0.2, 0.5, half + 0.5)).norm(), 1e-14);
        EXPECT_LT((halves[half].second - secondOfBox({0.4, 1, 1})).norm(), 1e-14);
    }
}

}  // namespace
}  // namespace drelt
