// Probes: where they are put, how they follow the skin, what they read.
#include <gtest/gtest.h>

#include "Markers/Markers.h"
#include "platform/runtime.h"
#include "support/device.h"
#include "support/flow_fixture.h"
#include "support/message_of.h"
#include "surface/scene.h"

namespace drelt {
namespace {

// Two unit squares, at z = 0 and z = 1.
struct Squares {
    Squares() : scene(test::rectanglesOf({1.0f, 1.0f})) { mesh.loadScene(*scene, test::device()); }
    std::unique_ptr<aiScene> scene;
    SkeletalMesh mesh;
};

TEST(Markers, ReadTheFluidAsTheReference) {
    const test::VectorCase given("markers");
    test::HostFlow flow(given);
    Markers markers(test::device());
    const auto places = given.array<double>("in_pos");
    for (std::size_t i = 0; i < places.size(); i += 3) {
        markers.addMarker(0, 0, Eigen::Vector3d(places.data() + i), Eigen::Vector3d::UnitX());
    }
    markers.allocateDevice();
    markers.sample(flow.device());
    std::vector<double> velocity;
    for (const auto& v : markers.data_cpu.velocity) {
        velocity.insert(velocity.end(), v.data(), v.data() + 3);
    }
    EXPECT_TRUE(test::compare(given.array<double>("out_velocity"), velocity, 3e-8));
    EXPECT_TRUE(
        test::compare(given.array<double>("out_pressure"), markers.data_cpu.pressure, 1e-6));
}

TEST(Markers, ReadALinearFieldAndOutsideTheGridItsNearestNode) {
    test::HostFlow flow(6, 5, 4);
    MLFluidParam& param = *flow.param();
    param.dx = 0.5f;
    param.width = 3.0f;
    param.height = 2.5f;
    param.depth = 2.0f;
    flow.host().startx = 1.0f;
    flow.host().starty = flow.host().startz = 0.0f;
    for (int z = 0; z < 4; ++z) {
        for (int y = 0; y < 5; ++y) {
            for (int x = 0; x < 6; ++x) {
                const std::size_t n = flow.node(x, y, z);
                flow.host().ux[n] = static_cast<float>(x);
                flow.host().uy[n] = static_cast<float>(y);
                flow.host().uz[n] = static_cast<float>(z);
                flow.host().rou[n].value = 1.0f + static_cast<float>(n);
            }
        }
    }
    flow.upload();
    Markers markers(test::device());
    // On a node; in a cell; just beyond the last nodes; beyond both ends; far beyond; nowhere.
    const std::vector<Eigen::Vector3d> places{{1.5, 1.0, 0.5},    {2.125, 0.75, 0.25},
                                              {3.75, 2.25, 1.75}, {0.75, 9.0, -1.0},
                                              {1e30, -1e30, 0.0}, {std::nan(""), 0.0, 0.0}};
    for (const auto& place : places) markers.addMarker(0, 0, place, Eigen::Vector3d::UnitX());
    markers.allocateDevice();
    markers.sample(flow.device());
    const auto& read = markers.data_cpu;
    EXPECT_EQ(read.velocity[0], Eigen::Vector3d(1, 2, 1));
    EXPECT_EQ(read.pressure[0], 1.0f + static_cast<float>(flow.node(1, 2, 1)));
    const Eigen::Vector3d lastNode(5, 4, 3);
    for (int i = 0; i < 5; ++i) {
        const Eigen::Vector3d node = (places[i] - Eigen::Vector3d(1, 0, 0)) / 0.5;
        const Eigen::Vector3d nearest = node.cwiseMax(0).cwiseMin(lastNode);
        EXPECT_LT((read.velocity[i] - nearest).norm(), 1e-5) << i;
    }
    EXPECT_EQ(read.pressure[2], 1.0f + static_cast<float>(flow.node(5, 4, 3)));

    // The origin moves, the place does not.
    flow.host().startx = 0.5f;
    flow.upload();
    markers.sample(flow.device());
    EXPECT_EQ(read.velocity[0], Eigen::Vector3d(2, 2, 1));
}

TEST(Markers, TakeTheFirstOfTheNearestVertices) {
    Squares squares;
    Markers markers(test::device());
    testing::internal::CaptureStdout();
    markers.place({{1, 1, 0}, {0.5, 0, 0}, {1, 0, 0.5}, {0, 0, 3}, {1e9, 0, 0}}, squares.mesh);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(markers.data_cpu.vId, (std::vector<int>{2, 0, 1, 0, -1}));
    EXPECT_EQ(markers.data_cpu.meshId, (std::vector<int>{0, 0, 0, 1, -1}));
    EXPECT_EQ(markers.data_cpu.pos[2], Eigen::Vector3d(1, 0, 0));
    EXPECT_EQ(markers.data_cpu.normal[2], Eigen::Vector3d(0, 0, 1));
    EXPECT_EQ(markers.data_cpu.pressure[2], 1.0f);
    EXPECT_EQ(printed.find("[warning] marker 3 is nearest to vertex 0 of mesh 1"), 0u) << printed;
    EXPECT_EQ(printed.find('\n'), printed.size() - 1) << printed;
}

TEST(Markers, FollowTheFirstMeshOnTheDeviceAndTheirOwnOnTheHost) {
    Squares squares;
    Markers markers(test::device());
    markers.place({{1, 1, 0}, {1, 0, 1}, {1e9, 0, 0}}, squares.mesh);
    nodeMgr& nodes = *squares.mesh.nodes;
    nodes.setTransform(nodes.find("plate0"), Eigen::Isometry3d(Eigen::Translation3d(0, 0, -2)));
    squares.mesh.update(true, true);
    markers.updatePosNormal(squares.mesh, true);
    EXPECT_EQ(markers.data_cpu.pos[0], Eigen::Vector3d(1, 1, -2));
    EXPECT_EQ(markers.data_cpu.pos[1], Eigen::Vector3d(1, 0, -2));
    EXPECT_EQ(markers.data_cpu.pos[2], Eigen::Vector3d(0, 0, 0));
    markers.updatePosNormal(squares.mesh, false);
    markers.copyToHost();  // a read-out brings the device's positions, which must be the same
    EXPECT_EQ(markers.data_cpu.pos[0], Eigen::Vector3d(1, 1, -2));
    EXPECT_EQ(markers.data_cpu.pos[1], Eigen::Vector3d(1, 0, 1));
}

TEST(Markers, AVertexThatTheFirstMeshLacksIsRefused) {
    auto scene = test::rectanglesOf({1.0f});
    test::SceneMesh larger = test::rectangle(1, 1, 1);
    larger.positions.emplace_back(0.5f, 0.5f, 2.0f);
    larger.triangles.push_back({0, 1, 4});
    aiNode* const node = test::addChild(*scene->mRootNode, "roof");
    test::addMesh(*scene, *node, larger);
    SkeletalMesh mesh;
    mesh.loadScene(*scene, test::device());
    Markers markers(test::device());
    const std::string message = test::messageOf<std::invalid_argument>([&] {
        markers.place({{0, 0, 0}, {0.5, 0.5, 2}}, mesh);
    });
    EXPECT_NE(message.find("marker 1 is nearest to vertex 4 of mesh 1"), std::string::npos)
        << message;
    EXPECT_EQ(markers.count(), 0);
}

TEST(Markers, NoMarkersAndNoMeshAreNoFault) {
    const std::size_t before = platform::deviceBytesInUse();
    {
        SkeletalMesh empty;
        test::HostFlow flow(3, 3, 3);
        Markers none(test::device());
        none.place({}, empty);
        none.updatePosNormal(empty, true);
        none.sample(flow.device());
        EXPECT_EQ(none.count(), 0);
        Markers lost(test::device());
        lost.place({{1, 2, 3}}, empty);
        lost.updatePosNormal(empty, true);
        lost.updatePosNormal(empty, false);
        EXPECT_EQ(lost.data_cpu.vId, std::vector<int>{-1});
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

}  // namespace
}  // namespace drelt
