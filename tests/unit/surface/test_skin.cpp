// Skinning, on both sides.
#include <gtest/gtest.h>

#include <cmath>

#include "MeshLoad/MeshData.h"
#include "platform/runtime.h"
#include "support/device.h"
#include "support/vectors.h"

namespace drelt {
namespace {

using Rows = Eigen::Matrix<double, 4, 4, Eigen::RowMajor>;

std::vector<Eigen::Vector3d> vectorsOf(const std::vector<double>& flat) {
    std::vector<Eigen::Vector3d> out;
    for (std::size_t i = 0; i < flat.size(); i += 3) out.emplace_back(flat.data() + i);
    return out;
}

std::vector<double> flatOf(const std::vector<Eigen::Vector3d>& vectors) {
    std::vector<double> out;
    for (const auto& v : vectors) out.insert(out.end(), v.data(), v.data() + 3);
    return out;
}

// The mesh of the reference case, on the host's threads as device.
void fillFromCase(const test::VectorCase& given, MeshData& mesh) {
    host_MeshData& d = mesh.data_cpu;
    const int bones = given.integer("bones");
    const auto raw = given.array<double>("in_raw_weights");
    for (int v = 0; v < given.integer("vertices"); ++v) {
        d.weights.push_back(Eigen::Map<const Eigen::VectorXd>(raw.data() + v * bones, bones));
    }
    d.node_transform.matrix() =
        Eigen::Map<const Rows>(given.array<double>("in_node_transform").data());
    const auto transforms = given.array<double>("in_bone_transforms");
    d.bone_transforms.resize(bones);
    for (int b = 0; b < bones; ++b) {
        d.bone_transforms[b].matrix() = Eigen::Map<const Rows>(transforms.data() + 16 * b);
    }
    d.bone_offset.assign(bones, Eigen::Isometry3d::Identity());
    d.bone_nodeIdx.assign(bones, 0);
    d.init_positions = d.curr_positions = vectorsOf(given.array<double>("in_init_positions"));
    d.init_normals = d.curr_normals = vectorsOf(given.array<double>("in_init_normals"));
    mesh.normaliseWeights();
}

TEST(Skin, AgreesWithTheReferenceOnBothSides) {
    const test::VectorCase given("skinning");
    MeshData mesh(test::device());
    fillFromCase(given, mesh);
    EXPECT_EQ(mesh.data_cpu.bone_affected, given.array<std::int32_t>("out_bone_affected"));
    EXPECT_TRUE(test::compareScaled(given.array<double>("out_weights"),
                                    mesh.data_cpu.bone_weights_arr, 1e-12));
    mesh.skin(false, false);
    const auto hostPositions = flatOf(mesh.data_cpu.curr_positions);
    const auto hostNormals = flatOf(mesh.data_cpu.curr_normals);
    EXPECT_TRUE(
        test::compareScaled(given.array<double>("out_curr_positions"), hostPositions, 1e-12));
    EXPECT_TRUE(test::compareScaled(given.array<double>("out_curr_normals"), hostNormals, 1e-12));

    mesh.allocateDevice();
    mesh.hostDirty = true;
    for (auto& p : mesh.data_cpu.curr_positions) p.setZero();
    for (auto& n : mesh.data_cpu.curr_normals) n.setZero();
    mesh.skin(true, true);
    EXPECT_EQ(flatOf(mesh.data_cpu.curr_positions), hostPositions);
    EXPECT_EQ(flatOf(mesh.data_cpu.curr_normals), hostNormals);
}

// One vertex at (1, 0, 0) with its normal along x, and as many bones as weights.
void makeVertex(MeshData& mesh, const std::vector<double>& weights) {
    host_MeshData& d = mesh.data_cpu;
    d.init_positions = d.curr_positions = {Eigen::Vector3d::UnitX()};
    d.init_normals = d.curr_normals = {Eigen::Vector3d::UnitX()};
    d.weights = {Eigen::Map<const Eigen::VectorXd>(weights.data(),
                                                   static_cast<Eigen::Index>(weights.size()))};
    d.bone_transforms.assign(weights.size(), Eigen::Isometry3d::Identity());
    d.bone_offset = d.bone_transforms;
    d.bone_nodeIdx.assign(weights.size(), 0);
    mesh.normaliseWeights();
    mesh.allocateDevice();
}

TEST(Skin, OppositeRotationsShortenTheNormal) {
    MeshData mesh(test::device());
    makeVertex(mesh, {2.0, 2.0});
    const Eigen::Vector3d axis = Eigen::Vector3d::UnitZ();
    mesh.data_cpu.bone_transforms[0] = Eigen::AngleAxisd(M_PI / 3, axis);
    mesh.data_cpu.bone_transforms[1] = Eigen::AngleAxisd(-M_PI / 3, axis);
    mesh.hostDirty = true;
    mesh.skin(true, true);
    EXPECT_LT((mesh.data_cpu.curr_normals[0] - Eigen::Vector3d(0.5, 0, 0)).norm(), 1e-15);
    EXPECT_LT((mesh.data_cpu.curr_positions[0] - Eigen::Vector3d(0.5, 0, 0)).norm(), 1e-15);
}

TEST(Skin, WithoutBonesVerticesFollowTheNode) {
    MeshData mesh(test::device());
    makeVertex(mesh, {});
    mesh.data_cpu.node_transform =
        Eigen::Translation3d(0, 0, 2) * Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ());
    for (const bool onDevice : {false, true}) {
        mesh.hostDirty = true;
        mesh.skin(onDevice, true);
        EXPECT_LT((mesh.data_cpu.curr_positions[0] - Eigen::Vector3d(0, 1, 2)).norm(), 1e-15);
    }
}

TEST(Skin, FlagsSayWhichSideIsNewer) {
    MeshData mesh(test::device());
    makeVertex(mesh, {1.0});
    Eigen::Isometry3d& bone = mesh.data_cpu.bone_transforms[0];
    const Eigen::Vector3d& at = mesh.data_cpu.curr_positions[0];

    bone.translation().x() = 1;
    mesh.hostDirty = true;
    mesh.skin(true, false);
    EXPECT_FALSE(mesh.hostDirty);
    EXPECT_TRUE(mesh.deviceDirty);
    EXPECT_EQ(at.x(), 1.0) << "not read back";

    // A clean host side is not uploaded again.
    bone.translation().x() = 5;
    mesh.skin(true, true);
    EXPECT_FALSE(mesh.deviceDirty);
    EXPECT_EQ(at.x(), 2.0);

    mesh.skin(false, false);
    EXPECT_TRUE(mesh.hostDirty);
    EXPECT_FALSE(mesh.deviceDirty);
    EXPECT_EQ(at.x(), 6.0);
}

}  // namespace
}  // namespace drelt
