// How far samples stand inside the skin.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "MeshLoad/Sampler/SampleInset.h"
#include "support/device.h"
#include "support/message_of.h"
#include "surface/scene.h"

namespace drelt {
namespace {

// An asset with samples on it.
struct Body {
    Body(const std::string& name, int number) : sampler(&mesh, test::device()) {
        EXPECT_TRUE(mesh.load("assets/" + name + ".glb", test::device()));
        sampler.generateSamples(number);
    }
    std::vector<float> insets(double distance) const {
        return sampleInsets(mesh, sampler.samples, distance);
    }
    Eigen::Vector3d mean(std::size_t i, std::vector<Eigen::Vector3d> host_MeshData::*of) const {
        const MeshSample& s = sampler.samples[i];
        const host_MeshData& data = mesh.meshes[s.meshId]->data_cpu;
        const std::int32_t* const v = data.faces[s.faceId].vertexIds;
        return s.w0 * (data.*of)[v[0]] + s.w1 * (data.*of)[v[1]] + s.w2 * (data.*of)[v[2]];
    }
    Eigen::Vector3d place(std::size_t i) const { return mean(i, &host_MeshData::init_positions); }
    Eigen::Vector3d normal(std::size_t i) const {
        return mean(i, &host_MeshData::init_normals).normalized();
    }
    SkeletalMesh mesh;
    IBSamplerMesh sampler;
};

// How often the skin goes round a point: 1 inside, 0 outside. Solid angles of the faces after A. van
// Oosterom, J. Strackee, IEEE Trans. Biomed. Eng. 30 (1983) 125.
double windingNumber(const SkeletalMesh& mesh, const Eigen::Vector3d& point) {
    double halfAngles = 0;
    for (const auto& part : mesh.meshes) {
        for (const MeshFace& face : part->data_cpu.faces) {
            Eigen::Vector3d r[3];
            double length[3];
            for (int k = 0; k < 3; ++k) {
                r[k] = part->data_cpu.init_positions[face.vertexIds[k]] - point;
                length[k] = r[k].norm();
            }
            halfAngles +=
                std::atan2(r[0].dot(r[1].cross(r[2])),
                           length[0] * length[1] * length[2] + r[0].dot(r[1]) * length[2] +
                               r[1].dot(r[2]) * length[0] + r[2].dot(r[0]) * length[1]);
        }
    }
    return halfAngles / (2 * M_PI);
}

TEST(Inset, ASphereGivesWayByTheDistanceUpToItsCentre) {
    const Body sphere("sphere", 1000);
    EXPECT_NEAR(largestExtent(sphere.mesh), 0.02, 1e-4);
    for (const float inset : sphere.insets(0.002)) EXPECT_EQ(inset, 0.002f);
    for (const float inset : sphere.insets(0.1)) EXPECT_NEAR(inset, 0.01f, 1e-4f);
    for (const float inset : sphere.insets(0)) EXPECT_EQ(inset, 0.0f);
}

TEST(Inset, SamplesOfAThinPlateStayOnItsMidSurface) {
    const Body plate("plate", 1000);
    const std::vector<float> thick = plate.insets(0.001);
    const std::vector<float> thin = plate.insets(0.0005);
    int onFlatSides = 0;
    for (std::size_t i = 0; i < thick.size(); ++i) {
        EXPECT_EQ(thin[i], 0.0005f);
        if (std::abs(plate.normal(i).y()) < 1 - 1e-6) continue;  // the plate's edge
        ++onFlatSides;
        EXPECT_NEAR(plate.place(i).y() - thick[i] * plate.normal(i).y(), 0, 1e-8);
    }
    EXPECT_GT(onFlatSides, 700);
}

TEST(Inset, SamplesOfASwimmerMoveInsideABodyOfTwoMeshes) {
    const Body swimmer("swimmer", 2000);
    EXPECT_NEAR(largestExtent(swimmer.mesh), 0.2, 1e-6);
    ASSERT_EQ(swimmer.mesh.meshes.size(), 2u);
    const std::vector<float> insets = swimmer.insets(0.003);
    int onFin = 0;
    int onBody = 0;
    int full = 0;
    int stay = 0;
    for (std::size_t i = 0; i < insets.size(); ++i) {
        ASSERT_GE(insets[i], 0.0f);
        ASSERT_LE(insets[i], 0.003f);
        const double x = swimmer.place(i).x();
        if (x < -0.08 && std::abs(swimmer.normal(i).z()) > 0.9) {  // a side of the fin
            ++onFin;
            EXPECT_LT(insets[i], 0.003f);
        } else if (x > -0.07) {
            ++onBody;
            if (insets[i] == 0.003f) ++full;
        }
        if (insets[i] == 0) {
            ++stay;
            continue;
        }
        EXPECT_NEAR(windingNumber(swimmer.mesh, swimmer.place(i) - insets[i] * swimmer.normal(i)),
                    1, 1e-6)
            << swimmer.place(i).transpose();
    }
    EXPECT_GT(onFin, 100);
    EXPECT_GT(full, 0.9 * onBody);
    // Smooth normals at the fin's sharp corners may point through its skin.
    EXPECT_LT(stay, 5);

    const int threads = omp_get_max_threads();
    for (const int number : {1, 2}) {
        omp_set_num_threads(number);
        EXPECT_EQ(swimmer.insets(0.003), insets) << number << " threads";
    }
    omp_set_num_threads(threads);
}

// Coordinates of all samples after an update on the device or on the host.
std::vector<float> placesAfterUpdate(IBSamplerMesh& sampler, bool onDevice) {
    sampler.update(onDevice, true);
    const mlLagrangeBoundary& b = *sampler.boundary();
    std::vector<float> places;
    for (const float* const from : {b.coordx, b.coordy, b.coordz}) {
        places.insert(places.end(), from, from + b.count);
    }
    return places;
}

TEST(Inset, ARetractedSamplerFollowsThePoseInsideTheSkin) {
    Body sphere("sphere", 500);
    IBSamplerMesh& sampler = sphere.sampler;
    const float area = sampler.boundary()->sampleArea;
    for (const bool onDevice : {true, false}) {
        const std::vector<float> skin = placesAfterUpdate(sampler, onDevice);
        for (const double distance : {0.002, 0.001}) {
            sampler.setRetraction(distance);
            const std::vector<float> inside = placesAfterUpdate(sampler, onDevice);
            const std::size_t n = inside.size() / 3;
            for (std::size_t i = 0; i < n; ++i) {
                const Eigen::Vector3d outside(skin[i], skin[i + n], skin[i + 2 * n]);
                const Eigen::Vector3d at(inside[i], inside[i + n], inside[i + 2 * n]);
                EXPECT_NEAR((outside - distance * sphere.normal(i) - at).norm(), 0, 3e-9);
            }
        }
        EXPECT_EQ(sampler.boundary()->sampleArea, area);
        sampler.setRetraction(0);
        EXPECT_EQ(placesAfterUpdate(sampler, onDevice), skin) << "back on the skin, bit for bit";
    }
}

TEST(Inset, SamplesPlacedAnewKeepTheRetractionAndThoseWithoutNormalStay) {
    Body sphere("sphere", 500);
    sphere.sampler.setRetraction(0.002);
    sphere.sampler.generateSamples(300);
    for (const bool onDevice : {false, true}) {
        const std::vector<float> places = placesAfterUpdate(sphere.sampler, onDevice);
        const std::size_t n = places.size() / 3;
        ASSERT_GT(n, 100u);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_NEAR(std::hypot(places[i], places[i + n], places[i + 2 * n]), 0.008, 2e-4);
        }
    }
    // A skin can lose its normals in a pose.
    sphere.sampler.setRetraction(0);
    const std::vector<float> skin = placesAfterUpdate(sphere.sampler, false);
    sphere.sampler.setRetraction(0.002);
    for (Eigen::Vector3d& normal : sphere.mesh.meshes[0]->data_cpu.curr_normals) normal.setZero();
    EXPECT_EQ(placesAfterUpdate(sphere.sampler, false), skin);
}

struct Layer {
    float z;          // height of a rectangle of two triangles
    float normal;     // z component of the vertex normals; the triangles' own normals point to +z
    float width = 1;  // the other edge is 1 long
};

// The insets of one sample of each layer. The sample lies on the diagonal of its rectangle, and once more
// on its border, so its ray meets an edge of every layer of the same width.
std::vector<float> insetsOf(const std::vector<Layer>& layers) {
    const std::unique_ptr<aiScene> scene = test::emptyScene();
    std::vector<MeshSample> samples;
    std::vector<MeshSample> onBorder;
    for (const Layer& layer : layers) {
        const auto id = static_cast<unsigned>(samples.size());
        test::SceneMesh sheet = test::rectangle(layer.width, 1, layer.z);
        sheet.normal = {0, 0, layer.normal};
        aiNode* const node = test::addChild(*scene->mRootNode, "layer" + std::to_string(id));
        test::addMesh(*scene, *node, sheet);
        samples.push_back({id, 0, 0, 0.4, 0.0, 0.6});
        onBorder.push_back({id, 0, 0, 0.0, 0.4, 0.6});
    }
    SkeletalMesh mesh;
    testing::internal::CaptureStdout();
    mesh.loadScene(*scene, test::device());
    testing::internal::GetCapturedStdout();
    std::vector<float> insets = sampleInsets(mesh, samples, 10);
    EXPECT_EQ(sampleInsets(mesh, onBorder, 10), insets);
    return insets;
}

TEST(Inset, SheetsHaveNoInsideAndOverlappingPartsHaveOne) {
    using Insets = std::vector<float>;
    EXPECT_EQ(insetsOf({{0, 1}}), Insets({0})) << "one sheet";
    EXPECT_EQ(insetsOf({{1, 1}, {0, 1}}), Insets({0, 0})) << "a sheet above a sheet";
    EXPECT_EQ(insetsOf({{0, 1}, {0, -1}}), Insets({0, 0})) << "a sheet of two coincident sides";
    EXPECT_EQ(insetsOf({{1, 0}, {0, -1}}), Insets({0, 0.5f})) << "no normals";
    EXPECT_EQ(insetsOf({{3, 1}, {2, 1}, {1, -1}}), Insets({0, 0.5f, 0.5f}))
        << "an open sheet above a plate";
    EXPECT_EQ(insetsOf({{3, 1}, {2, 1, 3}, {1, -1}}), Insets({0, 0, 0.5f}))
        << "in through one face, out through an edge of two";
    EXPECT_EQ(insetsOf({{4, 1}, {0, -1}, {3, 1}, {1, -1}}), Insets({2, 2, 1, 1}))
        << "a plate in a plate";
    EXPECT_EQ(insetsOf({{4, 1}, {2, -1}, {3, 1}, {0, -1}}), Insets({2, 0.5f, 0.5f, 2}))
        << "two plates that overlap";
    EXPECT_EQ(insetsOf({{2, 1}, {1, -1}, {1, 1}, {0, -1}}), Insets({1, 0.5f, 0.5f, 1}))
        << "two plates that touch";
    EXPECT_EQ(insetsOf({{9, 1}, {5, -1}, {4, 1}, {0, -1}}), Insets({2, 2, 2, 2})) << "a gap";
}

TEST(Inset, DistancesThatAreNoneAreRefused) {
    const SkeletalMesh empty;
    EXPECT_TRUE(sampleInsets(empty, {}, 0.001).empty());
    EXPECT_EQ(largestExtent(empty), 0.0);
    for (const double distance : {-0.25, std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::quiet_NaN()}) {
        const auto call = [&] { sampleInsets(empty, {}, distance); };
        EXPECT_NE(test::messageOf<std::invalid_argument>(call).find(std::to_string(distance)),
                  std::string::npos);
    }
}

}  // namespace
}  // namespace drelt
