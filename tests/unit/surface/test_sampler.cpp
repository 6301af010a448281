// Samples are placed on meshes and follow the skin.
#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cmath>
#include <limits>
#include <set>

#include "MeshLoad/Sampler/IBSamplerMesh.h"
#include "platform/runtime.h"
#include "support/device.h"
#include "support/message_of.h"
#include "surface/scene.h"

namespace drelt {
namespace {

// Rectangles of the given areas with a sampler on them.
struct Plates {
    explicit Plates(const std::vector<float>& areas)
        : scene(test::rectanglesOf(areas)), sampler(&mesh, test::device()) {
        testing::internal::CaptureStdout();
        mesh.loadScene(*scene, test::device());
        testing::internal::GetCapturedStdout();
    }
    // Places samples and returns what was printed.
    std::string sample(int number) {
        testing::internal::CaptureStdout();
        sampler.generateSamples(number);
        return testing::internal::GetCapturedStdout();
    }
    std::unique_ptr<aiScene> scene;
    SkeletalMesh mesh;
    IBSamplerMesh sampler;
};

using Record = std::array<double, 6>;

Record recordOf(const MeshSample& s) {
    return {double(s.meshId), double(s.linkId), double(s.faceId), s.w0, s.w1, s.w2};
}

std::vector<Record> recordsOf(const IBSamplerMesh& sampler) {
    std::vector<Record> records;
    for (const MeshSample& s : sampler.samples) records.push_back(recordOf(s));
    return records;
}

// The number of different places of samples on one mesh. Several samples can share a place.
std::size_t placesOn(const IBSamplerMesh& sampler, unsigned meshId) {
    std::set<Record> places;
    for (const MeshSample& s : sampler.samples) {
        if (s.meshId == meshId) places.insert(recordOf(s));
    }
    return places.size();
}

TEST(Sampler, MeshesShareSamplesByAreaAndARepeatedSamplingHalvesThem) {
    Plates plates({3.0f, 1.0f});
    EXPECT_EQ(plates.sample(100), "");
    EXPECT_EQ(placesOn(plates.sampler, 0), 75u);
    EXPECT_EQ(placesOn(plates.sampler, 1), 25u);
    const mlLagrangeBoundary& b = *plates.sampler.boundary();
    const int n = plates.sampler.sampleCount();
    EXPECT_EQ(b.count, n);
    // 4 m^2 over 100 samples: the radius is 0.10746 m, the disc 0.036276 m^2.
    EXPECT_NEAR(b.sampleArea, 0.0362760 * 100 / n, 1e-7);
    EXPECT_EQ(plates.sampler.sampleWrenches.size(), static_cast<std::size_t>(n));

    EXPECT_EQ(plates.sample(100).find("[warning] "), 0u);
    EXPECT_FLOAT_EQ(plates.sampler.totalArea, 8.0f);
    EXPECT_EQ(placesOn(plates.sampler, 0), 37u);
    EXPECT_EQ(placesOn(plates.sampler, 1), 12u);
    EXPECT_NEAR(plates.sampler.boundary()->sampleArea,
                0.0362760 * 200 / plates.sampler.sampleCount(), 2e-7);
}

TEST(Sampler, SamplesAreTheSameInEveryRun) {
    Plates first({2.0f, 1.0f});
    first.sample(300);
    std::srand(99);
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    Plates second({2.0f, 1.0f});
    second.sample(300);
    omp_set_num_threads(threads);
    EXPECT_EQ(recordsOf(first.sampler), recordsOf(second.sampler));
}

TEST(Sampler, SamplesLieInTheirTrianglesApartFromEachOther) {
    Plates plates({1.0f});
    plates.sample(400);
    const mlLagrangeBoundary& b = *plates.sampler.boundary();
    const double densest = 2 * std::sqrt(1.0 / 400 / (2 * std::sqrt(3.0)));
    double nearest = 1;
    for (int i = 0; i < b.count; ++i) {
        const MeshSample& s = plates.sampler.samples[i];
        EXPECT_NEAR(s.w0 + s.w1 + s.w2, 1.0, 1e-15);
        EXPECT_GE(std::min({s.w0, s.w1, s.w2}), -1e-15);
        // Face 0 is the lower triangle of the square, face 1 the upper.
        const float above = b.coordy[i] - b.coordx[i];
        EXPECT_GE(s.faceId == 0 ? -above : above, -1e-6f);
        for (int j = 0; j < i; ++j) {
            const double d = std::hypot(b.coordx[i] - b.coordx[j], b.coordy[i] - b.coordy[j]);
            if (d > 0) nearest = std::min(nearest, d);
        }
    }
    EXPECT_GT(nearest, 0.55 * densest);
}

TEST(Sampler, SamplesComeInRunsOfOneLink) {
    Plates plates({1.0f, 1.0f});
    for (const auto& mesh : plates.mesh.meshes) {
        mesh->data_cpu.faces[0].linkId = 2;
        mesh->data_cpu.faces[1].linkId = 1;
    }
    plates.sample(100);
    const IBSamplerMesh& sampler = plates.sampler;
    std::size_t ofFirstLink = 0;
    for (std::size_t i = 0; i < sampler.samples.size(); ++i) {
        const MeshSample& s = sampler.samples[i];
        EXPECT_EQ(s.linkId, s.faceId == 0 ? 2 : 1);
        EXPECT_EQ(sampler.sampleLinks[i], s.linkId);
        EXPECT_GE(s.linkId, sampler.samples[i > 0 ? i - 1 : 0].linkId);
        if (s.linkId == 1) ++ofFirstLink;
    }
    EXPECT_NEAR(static_cast<double>(ofFirstLink), 50.0, 10.0);
    std::vector<int> onDevice(sampler.sampleLinks.size());
    cudaMemcpy(onDevice.data(), sampler.sampleLinks_dev, onDevice.size() * sizeof(int),
               cudaMemcpyDeviceToHost);
    EXPECT_EQ(onDevice, sampler.sampleLinks);
}

TEST(Sampler, SamplesFollowTheirOwnMeshOnTheDevice) {
    Plates plates({1.0f, 1.0f});
    plates.sample(60);
    IBSamplerMesh& sampler = plates.sampler;
    const mlLagrangeBoundary& b = *sampler.boundary();
    std::vector<float> x(b.coordx, b.coordx + b.count);
    nodeMgr& nodes = *plates.mesh.nodes;
    nodes.setTransform(nodes.find("plate1"), Eigen::Isometry3d(Eigen::Translation3d(4, 0, 2)));
    plates.mesh.update(true, false);

    sampler.update(true, false);
    EXPECT_TRUE(sampler.deviceDirty);
    EXPECT_TRUE(std::equal(x.begin(), x.end(), b.coordx)) << "not fetched";
    sampler.update(true, true);
    EXPECT_FALSE(sampler.deviceDirty);
    for (int i = 0; i < b.count; ++i) {
        const bool moved = sampler.samples[i].meshId == 1;
        EXPECT_FLOAT_EQ(b.coordx[i], x[i] + (moved ? 4 : 0));
        EXPECT_FLOAT_EQ(b.coordz[i], moved ? 3 : 0);
        EXPECT_FLOAT_EQ(b.coordInitx[i], x[i]) << "only a host update rewrites the first position";
    }
    // The host's skin is still the old one.
    sampler.update(false, false);
    EXPECT_TRUE(sampler.hostDirty);
    EXPECT_TRUE(std::equal(x.begin(), x.end(), b.coordx));
}

TEST(Sampler, NormalsAreOfUnitLengthOnTheDeviceOnly) {
    Plates plates({1.0f});
    plates.mesh.meshes[0]->data_cpu.curr_normals[0] = {0, 0.6, 0.8};
    plates.sample(50);
    const mlLagrangeBoundary& b = *plates.sampler.boundary();
    const auto shortest = [&] {
        float least = 2;
        for (int i = 0; i < b.count; ++i) {
            least = std::min(least, std::hypot(b.normalx[i], b.normaly[i], b.normalz[i]));
        }
        return least;
    };
    EXPECT_LT(shortest(), 0.97f);
    cudaMemcpy(plates.mesh.meshes[0]->data_gpu.curr_normals,
               plates.mesh.meshes[0]->data_cpu.curr_normals.data(), 4 * sizeof(Eigen::Vector3d),
               cudaMemcpyHostToDevice);
    plates.sampler.update(true, true);
    EXPECT_NEAR(shortest(), 1.0f, 1e-6f);
}

TEST(Sampler, TheSphereIsCovered) {
    SkeletalMesh mesh;
    ASSERT_TRUE(mesh.load("assets/sphere.glb", test::device()));
    IBSamplerMesh sampler(&mesh, test::device());
    sampler.generateSamples(2000);
    EXPECT_GE(sampler.sampleCount(), 1900);
    const mlLagrangeBoundary& b = *sampler.boundary();
    const double sphere = 4 * M_PI * 0.01 * 0.01;
    EXPECT_NEAR(b.sampleArea * b.count / sphere, M_PI / (2 * std::sqrt(3.0)), 0.015);
    std::array<int, 8> octants{};
    for (int i = 0; i < b.count; ++i) {
        ++octants[(b.coordx[i] > 0) + 2 * (b.coordy[i] > 0) + 4 * (b.coordz[i] > 0)];
        EXPECT_NEAR(std::hypot(b.coordx[i], b.coordy[i], b.coordz[i]), 0.01, 2e-4);
    }
    for (const int count : octants) EXPECT_NEAR(count, b.count / 8.0, 0.06 * b.count / 8);
}

TEST(Sampler, ZeroSamplesAreValidAndANegativeNumberIsRefused) {
    Plates plates({1.0f});
    EXPECT_EQ(plates.sample(0), "");
    EXPECT_EQ(plates.sampler.boundary()->count, 0);
    EXPECT_EQ(plates.sampler.boundary()->sampleArea, 0.0f);
    plates.sampler.update(true, true);
    const auto negative = [&] { plates.sampler.generateSamples(-3); };
    EXPECT_NE(test::messageOf<std::invalid_argument>(negative).find("-3"), std::string::npos);
    EXPECT_FLOAT_EQ(plates.sampler.totalArea, 1.0f) << "refused before anything changed";
}

TEST(Sampler, WithoutSurfaceOrCandidatesAWarningSaysSo) {
    SkeletalMesh empty;
    IBSamplerMesh onEmpty(&empty, test::device());
    testing::internal::CaptureStdout();
    onEmpty.generateSamples(10);
    const std::string said = testing::internal::GetCapturedStdout();
    EXPECT_EQ(said.find("[warning] 0 of 10 wanted samples"), 0u);
    EXPECT_NE(said.find("; ask for more samples\n"), std::string::npos);

    IBSamplerMesh onNothing(nullptr, test::device());
    onNothing.generateSamples(10);
    testing::internal::CaptureStdout();
    onNothing.updateOnHost();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " Error boundary host data not setted");

    // One triangle in two has less than a tenth of a sample's share.
    auto scene = test::emptyScene();
    test::SceneMesh strip{{{0, 0, 0}, {0, 1, 0}}, {}};
    for (unsigned i = 0; i < 20; ++i) {
        const float x = 0.5f * static_cast<float>(i + 1);
        strip.positions.emplace_back(x, 0.0f, 0.0f);
        strip.positions.emplace_back(x, i % 2 == 0 ? 0.02f : 1.0f, 0.0f);
        strip.triangles.push_back({2 * i, 2 * i + 2, 2 * i + 1});
        strip.triangles.push_back({2 * i + 1, 2 * i + 2, 2 * i + 3});
    }
    test::addMesh(*scene, *scene->mRootNode, strip);
    SkeletalMesh mesh;
    mesh.loadScene(*scene, test::device());
    IBSamplerMesh sampler(&mesh, test::device());
    testing::internal::CaptureStdout();
    sampler.generateSamples(5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    for (const MeshSample& s : sampler.samples) {
        EXPECT_GT(mesh.meshes[0]->data_cpu.faces[s.faceId].area, 0.1);
    }
}

TEST(Sampler, DeviceMemoryIsGivenBack) {
    const std::size_t before = platform::deviceBytesInUse();
    {
        Plates plates({1.0f});
        const std::size_t meshOnly = platform::deviceBytesInUse();
        plates.sample(1000);
        const std::size_t first = platform::deviceBytesInUse();
        EXPECT_GT(first, meshOnly);
        plates.sample(1000);
        EXPECT_LT(platform::deviceBytesInUse(), first) << "half as many samples";
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

}  // namespace
}  // namespace drelt
