// The node tree and what is taken from an imported scene.
#include <gtest/gtest.h>

#include <assimp/Exporter.hpp>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>

#include "MeshLoad/GltfCheck.h"
#include "MeshLoad/SceneCheck.h"
#include "MeshLoad/SkeletalMesh.h"
#include "platform/messages.h"
#include "platform/runtime.h"
#include "support/device.h"
#include "support/message_of.h"
#include "surface/scene.h"

namespace drelt {
namespace {

using test::addBone;
using test::addChild;
using test::addMesh;
using test::messageOf;

Eigen::Isometry3d shifted(double x, double y, double z) {
    return Eigen::Isometry3d(Eigen::Translation3d(x, y, z));
}

// root -> fork -> {left, right}, the fork turned by 90 degrees about z.
nodeMgr forkedTree() {
    nodeMgr tree;
    tree.addNode("root", shifted(5, 6, 7), -1);
    tree.setGlobalInverse();
    const Eigen::Isometry3d turned =
        shifted(1, 0, 0) * Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ());
    tree.addNode("fork", turned, 0);
    tree.addNode("left", shifted(0, 2, 0), 1);
    tree.addNode("right", shifted(3, 0, 0), 1);
    tree.childBegin = {1, 2, 4, 4};
    tree.childEnd = {2, 4, 4, 4};
    tree.updateWorldTransforms();
    return tree;
}

void expectAt(const nodeMgr& tree, const std::string& name, const Eigen::Vector3d& place) {
    const Eigen::Vector3d at = tree.nodes[tree.find(name)]->worldTransform.translation();
    EXPECT_LT((at - place).norm(), 1e-7) << name << " at " << at.transpose();
}

TEST(NodeTree, WorldTransformsAreRelativeToTheRootAsLoaded) {
    nodeMgr tree = forkedTree();
    expectAt(tree, "root", {0, 0, 0});
    expectAt(tree, "fork", {1, 0, 0});
    expectAt(tree, "left", {-1, 0, 0});
    expectAt(tree, "right", {1, 3, 0});
    tree.setTransform(0, shifted(5, 6, 8));
    tree.updateWorldTransforms();
    expectAt(tree, "right", {1, 3, 1});
    EXPECT_EQ(tree.parentName(3), "fork");
    EXPECT_EQ(tree.parentName(0), "");
    EXPECT_EQ(tree.find("nobody"), -1);
}

TEST(NodeTree, IntermediateNodesGiveEachBranchItsOwnChain) {
    nodeMgr tree = forkedTree();
    tree.insertIntermediateNodes(1);
    tree.insertIntermediateNodes(1);
    tree.insertIntermediateNodes(0);
    ASSERT_EQ(tree.size(), 6);
    EXPECT_EQ(tree.childCount(1), 2);
    for (const auto& [branch, child] : {std::pair<std::string, int>{"fork_intermediate_0", 2},
                                        std::pair<std::string, int>{"fork_intermediate_1", 3}}) {
        const int added = tree.find(branch);
        ASSERT_GE(added, 0) << branch;
        EXPECT_EQ(tree.parents[added], 1);
        EXPECT_EQ(tree.childBegin[added], child);
        EXPECT_EQ(tree.childEnd[added], child + 1);
        EXPECT_EQ(tree.parentName(child), branch);
    }
    tree.updateWorldTransforms();
    expectAt(tree, "left", {-1, 0, 0});
    expectAt(tree, "right", {1, 3, 0});
    // An appended node moves its child within the same update, against the order of indices.
    tree.setTransform(tree.find("fork_intermediate_1"), shifted(0, 0, 4));
    tree.updateWorldTransforms();
    expectAt(tree, "left", {-1, 0, 0});
    expectAt(tree, "right", {1, 3, 4});
}

TEST(NodeTree, PosesSurviveTheWayThroughDegrees) {
    nodeMgr tree;
    tree.addNode("node", Eigen::Isometry3d::Identity(), -1);
    Eigen::Quaterniond turn(0.3, -0.5, 0.7, 0.2);
    turn.normalize();
    const Eigen::Isometry3d pose = shifted(1, -2, 3) * turn;
    tree.setTransform(0, pose);
    tree.updateWorldTransforms();
    EXPECT_LT((tree.nodes[0]->localTransform.matrix() - pose.matrix()).norm(), 1e-14);
    // The conversion to degrees uses 3.1415926 in place of pi.
    tree.setTransform(0, Eigen::Isometry3d(Eigen::AngleAxisd(1.0, Eigen::Vector3d::UnitX())));
    EXPECT_DOUBLE_EQ(tree.nodes[0]->eulerAngles.x(), 180.0 / 3.1415926);
}

// The scene of a centimetre file: root and child 300 units along x, a plate of 200 x 100 units.
std::unique_ptr<aiScene> centimetreScene() {
    auto scene = test::emptyScene();
    scene->mRootNode->mTransformation = test::translation(300, 0, 0);
    aiNode* const child = addChild(*scene->mRootNode, "plate", test::translation(300, 0, 0));
    aiMesh* const mesh = addMesh(*scene, *child, test::rectangle(200, 100));
    mesh->mNormals[0] = aiVector3D(0, 0, 3);
    mesh->mNormals[1] = aiVector3D(0, 0, 0);
    addBone(*mesh, "plate", {{0, 1}, {1, 1}, {2, 1}, {3, 1}}, test::translation(-300, 0, 0));
    return scene;
}

TEST(ImportedScene, UnitScaleFactorDividesAllButTheRootsTranslation) {
    const auto load = [](auto value) {
        auto scene = centimetreScene();
        scene->mMetaData = aiMetadata::Alloc(2);
        scene->mMetaData->Set(0, "UnitScale", 7.0);
        scene->mMetaData->Set(1, "UnitScaleFactor", value);
        auto mesh = std::make_shared<SkeletalMesh>();
        testing::internal::CaptureStdout();
        mesh->loadScene(*scene, test::device());
        mesh->scene = nullptr;
        return std::make_pair(testing::internal::GetCapturedStdout(), mesh);
    };
    for (const auto& [printed, mesh] : {load(100.0), load(100.0f)}) {
        EXPECT_EQ(printed, "factor 100\n");
        EXPECT_EQ(mesh->nodes->nodes[0]->position, Eigen::Vector3d(300, 0, 0));
        EXPECT_EQ(mesh->nodes->nodes[1]->position, Eigen::Vector3d(3, 0, 0));
        const host_MeshData& data = mesh->meshes.at(0)->data_cpu;
        EXPECT_EQ(data.init_positions[2], Eigen::Vector3d(2, 1, 0));
        EXPECT_EQ(data.bone_offset[0].translation(), Eigen::Vector3d(-3, 0, 0));
        EXPECT_DOUBLE_EQ(data.totalArea, 2.0);
        EXPECT_DOUBLE_EQ(data.faces[1].area, 1.0);
        EXPECT_EQ(data.init_normals[0], Eigen::Vector3d(0, 0, 1));
        EXPECT_EQ(data.init_normals[1], Eigen::Vector3d(0, 0, 0));
    }
    EXPECT_EQ(load(std::int32_t{100}).first, "factor 1\n");
}

TEST(ImportedScene, WeightsAreNormalisedAndLooseVerticesFollowTheNode) {
    auto scene = test::emptyScene();
    addChild(*scene->mRootNode, "a");
    addChild(*scene->mRootNode, "b");
    aiNode* const holder = addChild(*scene->mRootNode, "holder", test::translation(0, 0, 5));
    aiMesh* const imported = addMesh(*scene, *holder, test::rectangle(1, 1));
    addBone(*imported, "a", {{0, 1}, {1, 0.5f}, {2, 3}});
    addBone(*imported, "b", {{1, 1.5f}, {2, 1}});
    SkeletalMesh mesh;
    testing::internal::CaptureStdout();
    mesh.loadScene(*scene, test::device());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "factor 1\nExists!");
    setVerbosity(0);
    testing::internal::CaptureStdout();
    mesh.loadScene(*scene, test::device());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    setVerbosity(1);
    const host_MeshData& data = mesh.meshes.at(0)->data_cpu;
    EXPECT_EQ(data.bone_affected, (std::vector<std::int32_t>{1, 1, 1, 0}));
    EXPECT_EQ(data.bone_weights_arr, (std::vector<double>{1, 0, 0.25, 0.75, 0.75, 0.25, 0, 0}));
    EXPECT_EQ(data.curr_positions[3], Eigen::Vector3d(0, 1, 5));
    EXPECT_EQ(data.curr_positions[2], Eigen::Vector3d(1, 1, 0));
}

TEST(ImportedScene, BoneOffsetsLoseTheirScale) {
    auto scene = test::emptyScene();
    addChild(*scene->mRootNode, "bone");
    aiMesh* const imported = addMesh(*scene, *scene->mRootNode, test::rectangle(1, 1));
    const std::vector<test::VertexWeight> all{{0, 1}, {1, 1}, {2, 1}, {3, 1}};
    // Half a turn about z with columns scaled by 2, 3 and 4; then the same, mirrored.
    aiMatrix4x4 scaled(-2, 0, 0, 7, 0, -3, 0, 8, 0, 0, 4, 9, 0, 0, 0, 1);
    addBone(*imported, "bone", all, scaled);
    scaled.a1 = 2;
    addBone(*imported, "bone", all, scaled);
    SkeletalMesh mesh;
    mesh.loadScene(*scene, test::device());
    Eigen::Matrix4d expected = Eigen::Matrix4d::Identity();
    expected.diagonal() << -1, -1, 1, 1;
    expected.col(3) << 7, 8, 9, 1;
    for (const Eigen::Isometry3d& offset : mesh.meshes.at(0)->data_cpu.bone_offset) {
        EXPECT_LT((offset.matrix() - expected).norm(), 1e-7) << offset.matrix();
    }
}

TEST(ImportedScene, ABoneWithoutNodeIsRefusedByName) {
    auto scene = test::emptyScene();
    aiMesh* const imported = addMesh(*scene, *scene->mRootNode, test::rectangle(1, 1));
    addBone(*imported, "ghost", {{0, 1}});
    SkeletalMesh mesh;
    mesh.filePath = "haunted.glb";
    testing::internal::CaptureStdout();
    const std::string message =
        messageOf<std::runtime_error>([&] { mesh.loadScene(*scene, test::device()); });
    EXPECT_NE(message.find("'haunted.glb'"), std::string::npos) << message;
    EXPECT_NE(message.find("'ghost'"), std::string::npos) << message;
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  "add bone [ghost] but not find in node hierachy\n"),
              std::string::npos);
}

TEST(ImportedScene, TransformsAboveTheRootJointAreReported) {
    auto scene = test::emptyScene();
    aiNode* const armature = addChild(*scene->mRootNode, "armature", test::translation(0, 0, 1));
    aiNode* const plain = addChild(*armature, "plain");
    addChild(*plain, "joint", test::translation(1, 0, 0));
    SkeletalMesh mesh;
    mesh.loadScene(*scene, test::device());
    testing::internal::CaptureStdout();
    mesh.warnOfTransformsAbove(mesh.nodes->find("joint"));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.find("[warning] node 'armature' above the root joint 'joint'"), 0u);
    EXPECT_EQ(printed.find('\n'), printed.size() - 1) << printed;
}

TEST(MeshFile, AnUnreadableFileLeavesTheObjectEmpty) {
    SkeletalMesh mesh;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(mesh.load("no/such/file.glb", test::device()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error parsing 'no/such/file.glb': 'Unable to open file \"no/such/file.glb\".'\n");
    EXPECT_TRUE(mesh.meshes.empty());
    EXPECT_EQ(mesh.nodes->size(), 0);
    mesh.update(true, true);
}

// A boned rectangle as a file, with bytes `from` replaced by `to`.
std::string loadDamaged(const std::string& from, const std::string& to) {
    auto scene = test::emptyScene();
    addChild(*scene->mRootNode, "bone");
    addBone(*addMesh(*scene, *scene->mRootNode, test::rectangle(1, 2)), "bone", {{3, 0.25f}});
    Assimp::Exporter exporter;
    const aiExportDataBlob* const blob = exporter.ExportToBlob(scene.get(), "assbin");
    std::string bytes(static_cast<const char*>(blob->data), blob->size);
    const std::size_t at = bytes.find(from);
    EXPECT_NE(at, std::string::npos);
    bytes.replace(at, to.size(), to);
    const std::string path = testing::TempDir() + "drelt_damaged.assbin";
    std::ofstream(path, std::ios::binary) << bytes;
    SkeletalMesh mesh;
    std::string message = messageOf<std::runtime_error>([&] { mesh.load(path, test::device()); });
    EXPECT_EQ(mesh.meshes.empty(), message != "no exception");
    return message;
}

TEST(MeshFile, VerticesThatCannotBeAreRefused) {
    using namespace std::string_literals;
    const auto expect = [](const std::string& text, const std::string& part) {
        EXPECT_NE(text.find(part), std::string::npos) << text;
    };
    const std::string corners = "\x00\x00\x02\x00\x03\x00"s, weighted = "\x03\0\0\0\0\0\x80\x3e"s;
    EXPECT_EQ(loadDamaged(corners, corners), "no exception");
    expect(loadDamaged(corners, "\x00\x00\x04\x00"s), "a face names vertex 4 of 4; export");
    expect(loadDamaged(weighted, "\xff\xff"s), "bone 'bone' names vertex 65535 of 4");
    const std::string two = "\0\0\0\x40"s;  // the height
    expect(loadDamaged(two, "\0\0\x80\x7f"s), "the position of vertex 2 is not finite");
}

std::string refusalOfScene(const std::function<void(aiScene&, aiNode&, aiBone&)>& spoil) {
    auto scene = test::emptyScene();
    aiNode* const node = addChild(*scene->mRootNode, "joint");
    aiMesh* const mesh = addMesh(*scene, *node, test::rectangle(1, 1));
    addBone(*mesh, "joint", {{0, 1}});
    spoil(*scene, *node, *mesh->mBones[0]);
    return messageOf<std::runtime_error>([&] {
        checkScene(*scene, "bad.fbx");
        unitScaleOf(*scene, "bad.fbx");
    });
}

TEST(MeshFile, NumbersThatNoBodyCanHaveAreRefusedByPlace) {
    const auto expect = [](const std::string& part, auto spoil) {
        const std::string text = refusalOfScene(spoil);
        EXPECT_NE(text.find(part), std::string::npos) << text;
        EXPECT_EQ(text != "no exception", text.find("the model 'bad.fbx'") == 0) << text;
    };
    expect("no exception", [](auto&, auto&, auto&) {});
    expect("the transform of node 'joint'", [](auto&, auto& n, auto&) {
        n.mTransformation = test::translation(std::numeric_limits<float>::infinity(), 0, 0);
    });
    expect("the inverse bind matrix of bone 'joint'",
           [](auto&, auto&, auto& bone) { bone.mOffsetMatrix.b2 = std::nanf(""); });
    expect("bone 'joint' has a weight",
           [](auto&, auto&, auto& bone) { bone.mWeights[0].mWeight = std::nanf(""); });
    expect("nests nodes more than 2000 deep", [](auto&, auto& n, auto&) {
        aiNode* deepest = &n;
        for (int i = 0; i < 2100; ++i) deepest = addChild(*deepest, "deep");
    });
    for (const double scale : {0.0, -1.0, 1e300, std::nan("")}) {
        expect("UnitScaleFactor", [scale](auto& scene, auto&, auto&) {
            scene.mMetaData = aiMetadata::Alloc(1);
            scene.mMetaData->Set(0, "UnitScaleFactor", scale);
        });
    }
}

// The importer ends the process on these files, so they must not reach it.
TEST(MeshFile, GltfFilesThatTheImporterDoesNotSurvive) {
    const std::string path = testing::TempDir() + "drelt_check.gltf";
    const auto refusal = [&](const std::string& text) {
        std::ofstream(path) << text;
        return messageOf<std::runtime_error>([&] { checkGltf(path); });
    };
    const std::string start = R"({"nodes": [{"mesh": 0, "skin": 0}], "accessors": [{"count": 1}],)";
    EXPECT_NE(refusal(start + R"("skins": [{"joints": [0]}]})").find("without inverseBindMatrices"),
              std::string::npos);
    EXPECT_NE(refusal(start + "\"\xe9\": 1, " + R"("skins": [{"joints": [0]}]})").find("without"),
              std::string::npos);
    const std::string two = R"("skins": [{"joints": [0, 1], "inverseBindMatrices": 0}]})";
    EXPECT_NE(refusal(start + two).find("2 joints and 1 inverseBindMatrices"), std::string::npos);
    EXPECT_NE(refusal(R"({"nodes": [{"children": [1]}, {"children": [0]}]})").find("own ancestors"),
              std::string::npos);
    EXPECT_NE(refusal(R"({"nodes": [{"children": [1, 1]}, {}]})").find("more than once"),
              std::string::npos);
    EXPECT_NE(refusal(std::string(100000, '[')).find("200 deep"), std::string::npos);
    // files that the importer can read or refuse itself
    const std::string one = R"("skins": [{"joints": [0], "inverseBindMatrices": 0}, {}]})";
    for (const std::string& text : {start + one, std::string("no JSON"), std::string()}) {
        EXPECT_EQ(refusal(text), "no exception") << text;
    }
    EXPECT_EQ(messageOf<std::runtime_error>([] { checkGltf("no/such/file.glb"); }), "no exception");
    std::remove(path.c_str());
}

TEST(MeshFile, TheBundledSphereStandsAtRestAndFreesItsMemory) {
    const std::size_t before = platform::deviceBytesInUse();
    {
        SkeletalMesh mesh;
        ASSERT_TRUE(mesh.load("assets/sphere.glb", test::device()));
        ASSERT_EQ(mesh.meshes.size(), 1u);
        EXPECT_EQ(mesh.nodes->parentName(mesh.nodes->find("bone_01")), "bone_00");
        mesh.update(true, true);
        const host_MeshData& data = mesh.meshes[0]->data_cpu;
        double worst = 0;
        for (std::size_t i = 0; i < data.init_positions.size(); ++i) {
            worst = std::max(worst, (data.curr_positions[i] - data.init_positions[i]).norm());
        }
        EXPECT_LT(worst, 1e-8);
        EXPECT_GT(platform::deviceBytesInUse(), before);
    }
    EXPECT_EQ(platform::deviceBytesInUse(), before);
}

}  // namespace
}  // namespace drelt
