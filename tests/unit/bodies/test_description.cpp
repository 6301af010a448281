// Joints and links derived from node trees, and the reader of description files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "bodies/rig.h"

namespace drelt {
namespace {

using nlohmann::json;
using test::makeRig;
using test::messageOf;
using test::RigNode;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr double kPi = 3.14159265358979323846;

std::vector<std::string> namesOf(const std::vector<std::shared_ptr<SkeletonJoint>>& joints) {
    std::vector<std::string> names;
    for (const auto& joint : joints) names.push_back(joint->name);
    return names;
}

TEST(Derivation, ChainByHandNumbers) {
    // the spine turns from x towards y, the tail is a child of the last bone, "lamp" is no bone's
    const SkeletonSystem system(makeRig({{"scene", -1, {0, 0, 0}},
                                         {"root", 0, {1, 2, 3}},
                                         {"lamp", 0, {9, 9, 9}},
                                         {"spine", 1, {0.4, 0, 0}},
                                         {"tail", 3, {0, 0.2, 0}}},
                                        1, 1),
                                test::device());
    // bone "root" alone: its node and its child are joints, the tail hangs on no bone
    EXPECT_EQ(namesOf(system.joints), (std::vector<std::string>{"root", "spine"}));

    auto mesh = makeRig({{"scene", -1, {0, 0, 0}},
                         {"root", 0, {1, 2, 3}},
                         {"spine", 1, {0.4, 0, 0}},
                         {"tail", 2, {0, 0.2, 0}}},
                        1, 2);
    const SkeletonSystem chain(mesh, test::device());
    ASSERT_EQ(namesOf(chain.joints), (std::vector<std::string>{"root", "spine", "tail"}));
    EXPECT_EQ(chain.rootJoint, chain.joints[0]);
    EXPECT_EQ(chain.joints[0]->parentName, "scene");
    EXPECT_EQ(chain.joints[2]->parent.lock(), chain.joints[1]);
    EXPECT_TRUE(chain.joints[2]->children.empty());
    ASSERT_EQ(chain.links.size(), 2u);
    EXPECT_EQ(chain.linksByName.at("[link]spine"), chain.links[1]);
    EXPECT_EQ(chain.linksByJoint.at("root"), chain.links[0]);

    const SkeletonLink& first = *chain.links[0];
    EXPECT_TRUE(first.centre.isApprox(Eigen::Vector3d(1.2, 2, 3), 1e-12));
    EXPECT_TRUE(first.transform.linear().isIdentity(1e-12));
    EXPECT_TRUE(first.size.isApprox(Eigen::Vector3d(0.4, 0.02, 0.02), 1e-12));
    EXPECT_EQ(first.mass, 1.0);
    EXPECT_EQ(first.radius, 0.014999999664723873);
    const SkeletonLink& second = *chain.links[1];
    EXPECT_TRUE(second.transform.translation().isApprox(Eigen::Vector3d(1.4, 2.1, 3), 1e-12));
    // a quarter turn about z carries x to y
    EXPECT_TRUE((second.transform.linear() * Eigen::Vector3d::UnitX())
                    .isApprox(Eigen::Vector3d::UnitY(), 1e-12));
    EXPECT_NEAR(second.eulerAngles.z(), kPi / 2, 1e-12);
}

TEST(Derivation, BonesBackwardsAndWithoutLength) {
    const SkeletonSystem system(makeRig({{"scene", -1, {0, 0, 0}},
                                         {"b0", 0, {0, 0, 0}},
                                         {"b1", 1, {-0.3, 0, 0}},
                                         {"tip", 2, {0, 0, 0}}},
                                        1, 2),
                                test::device());
    ASSERT_EQ(system.links.size(), 2u);
    const auto aboutY = [](double angle) {
        return Eigen::AngleAxisd(angle, Eigen::Vector3d::UnitY()).toRotationMatrix();
    };
    EXPECT_TRUE(system.links[0]->transform.linear().isApprox(aboutY(kPi), 1e-12));
    EXPECT_EQ(system.links[1]->size.x(), 0.0);
    EXPECT_TRUE(system.links[1]->transform.linear().isApprox(aboutY(kPi / 2), 1e-12));
}

TEST(Derivation, ForkGetsIntermediateLinks) {
    auto mesh = makeRig({{"scene", -1, {0, 0, 0}},
                         {"X", 0, {0, 0, 0}},
                         {"up", 1, {0.2, 0.1, 0}},
                         {"dn", 1, {0.2, -0.1, 0}},
                         {"upEnd", 2, {0.2, 0, 0}},
                         {"dnEnd", 3, {0.2, 0, 0}}},
                        1, 3);
    mesh->meshes.push_back(mesh->meshes.front());  // two meshes on the same bones split it once
    const SkeletonSystem system(mesh, test::device());
    ASSERT_EQ(system.links.size(), 5u);
    const SkeletonLink& fork = *system.linksByJoint.at("X");
    EXPECT_EQ(fork.name, "[link]X::X_intermediate_0");
    EXPECT_TRUE(fork.isIntermediate);
    EXPECT_EQ(fork.mass, 1e-6);
    EXPECT_EQ(fork.radius, 0.019999999552965164);
    EXPECT_EQ(fork.size.x(), 0.0);  // intermediate nodes stand on the fork
    const SkeletonLink& branch = *system.linksByName.at("[link]X_intermediate_1");
    EXPECT_FALSE(branch.isIntermediate);
    EXPECT_EQ(branch.mass, 1.0);
    EXPECT_EQ(branch.childJoints.front()->name, "dn");
    EXPECT_TRUE(branch.centre.isApprox(Eigen::Vector3d(0.1, -0.05, 0), 1e-12));
    EXPECT_EQ(system.linksByJoint.at("up")->name, "[link]up");
}

TEST(Derivation, MeshWithoutBonesOrFileGivesNoJoints) {
    const SkeletonSystem bare(makeRig({{"scene", -1, {0, 0, 0}}}, 0, 0), test::device());
    EXPECT_TRUE(bare.joints.empty());
    EXPECT_EQ(bare.rootJoint, nullptr);
    const SkeletonSystem missing("nowhere.glb", test::device());
    EXPECT_EQ(missing.mesh->filePath, "nowhere.glb");
    EXPECT_TRUE(missing.links.empty());
}

TEST(Derivation, RootsThatAreLeftOutAreNamed) {
    std::vector<RigNode> nodes{{"scene", -1, {0, 0, 0}}};
    for (int i = 0; i < 3; ++i)
        nodes.push_back({std::string(1, static_cast<char>('p' + i)), 0, {1, 0, 0}});
    testing::internal::CaptureStderr();
    const SkeletonSystem system(makeRig(nodes, 1, 3), test::device());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("'rig' has 3 root joints"), HasSubstr("'p' alone"),
                      HasSubstr("left out are 'q', 'r' and")));
}

TEST(Derivation, DevicesThatDoNotExistAreRefused) {
    for (const auto& call :
         std::vector<std::function<void()>>{[] { SkeletonSystem("assets/sphere.glb", 77); },
                                            [] { skeletonFromJson("assets/sphere.json", 77); }}) {
        EXPECT_THAT(messageOf<std::invalid_argument>(call), HasSubstr("device id 77"));
    }
}

// Reads a changed copy of the sphere's description.
class Reader : public testing::Test {
protected:
    void SetUp() override {
        std::ifstream("assets/sphere.json") >> file;
        file["model_file"] = std::filesystem::absolute("assets/sphere.glb").string();
    }
    void TearDown() override { std::remove(path.c_str()); }

    std::shared_ptr<SkeletonSystem> read() { return readText(file.dump()); }
    std::shared_ptr<SkeletonSystem> readText(const std::string& text) {
        std::ofstream(path) << text;
        return skeletonFromJson(path, test::device());
    }
    template <class Error>
    std::string failure() {
        return messageOf<Error>([this] { read(); });
    }
    json& joint() { return file["joints"]["bone_01"]; }
    json& link() { return file["links"]["[link]bone_00"]; }

    json file;
    std::string path = testing::TempDir() + "/drelt_description_" +
                       testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
};

TEST_F(Reader, FillsEveryField) {
    file["baseFrameName"] = "frame";
    file["baseLinkFwd"] = {0, 2, 0, 7};  // not normalised, extra elements ignored
    file["markers_placements"] = {{0.1, 0, 0}, {1, 2, 3}};
    file["joints"]["nobody"] = 1;
    joint() = {{"type", "planar"},
               {"actuator", "servo"},
               {"springStiffness", 3},
               {"useLimits", true},
               {"useDynamcis", true},
               {"dynamics", {{"damping", 0.01}, {"friction", 0.02}}},
               {"limit", {{"effort", 10}, {"velocity", 11}, {"lower", -0.7}, {"upper", 0.8}}},
               {"mimic", {{"joint", "bone_00"}, {"multiplier", 2.0}, {"offset", 0.5}}},
               {"axis", {1, 2, 3}}};
    link()["name"] = "torso";
    link()["mass"] = 0.5;
    link()["isIntermediate"] = true;
    link()["radius "] = 0.25;
    const auto system = read();
    EXPECT_EQ(system->baseFrameName, "frame");
    EXPECT_EQ(system->baseLinkFwd, Eigen::Vector3d(0, 2, 0));
    ASSERT_EQ(system->markers_placements.size(), 2u);
    EXPECT_EQ(system->markers_placements[1], Eigen::Vector3d(1, 2, 3));
    const SkeletonJoint& read = *system->jointsByName.at("bone_01");
    EXPECT_EQ(read.type, 6);
    EXPECT_EQ(read.actuator, 2);
    EXPECT_EQ(read.springStiffness, 3);
    EXPECT_TRUE(read.useLimits && read.useDynamcis);
    EXPECT_EQ(read.damping, 0.01);
    EXPECT_EQ(read.friction, 0.02);
    EXPECT_EQ(read.effort, 10);
    EXPECT_EQ(read.velocity, 11);
    EXPECT_EQ(read.lower, -0.7);
    EXPECT_EQ(read.upper, 0.8);
    EXPECT_EQ(read.mimicJoint, "bone_00");
    EXPECT_EQ(read.multiplier, 2);
    EXPECT_EQ(read.offset, 0.5);
    EXPECT_EQ(read.axis, Eigen::Vector3d(1, 2, 3));
    // a renamed link keeps its key
    const SkeletonLink& renamed = *system->linksByName.at("[link]bone_00");
    EXPECT_EQ(renamed.name, "torso");
    EXPECT_EQ(renamed.mass, 0.5);
    EXPECT_TRUE(renamed.isIntermediate);
    EXPECT_EQ(renamed.radius, 0.25);
}

TEST_F(Reader, WordsThatAreMissingOrUnknownKeepTheirDefaults) {
    joint().erase("type");
    joint()["actuator"] = "rocket";
    file["joints"]["bone_00"]["type"] = "invalid";
    file["joints"]["end"]["type"] = 3;
    testing::internal::CaptureStderr();
    const auto system = read();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr(path),
                      HasSubstr("'bone_01' has the unknown actuator \"rocket\" and "
                                "stays passive; known are 'force', 'passive'"),
                      HasSubstr("'end' has the unknown type 3 and stays revolute"),
                      Not(HasSubstr("null"))));
    EXPECT_EQ(system->jointsByName.at("bone_01")->type, 1);
    EXPECT_EQ(system->jointsByName.at("bone_01")->actuator, 1);
    EXPECT_EQ(system->jointsByName.at("bone_00")->type, 0);
    EXPECT_EQ(system->jointsByName.at("end")->type, 1);
    EXPECT_TRUE(system->markers_placements.empty());
}

TEST_F(Reader, FilesThatCannotBeParsed) {
    EXPECT_THAT(
        messageOf<json::parse_error>([] { skeletonFromJson("nowhere.json", test::device()); }),
        AllOf(HasSubstr("parse_error"), HasSubstr("in 'nowhere.json', which cannot be opened")));
    EXPECT_THAT(messageOf<json::parse_error>([this] { readText("{\"model_file\": "); }),
                AllOf(HasSubstr("parse_error"), HasSubstr("(in '" + path + "')")));
    EXPECT_THAT(messageOf<std::runtime_error>([] { skeletonFromJson("assets", test::device()); }),
                HasSubstr("(in 'assets')"));
}

TEST_F(Reader, ErrorsNameTheWantedTypeAndTheKey) {
    struct Case {
        std::function<void()> spoil;
        const char *text, *key;
    };
    const json whole = file;
    const Case cases[] = {
        {[&] { file.erase("model_file"); }, "302] type must be string, but is null", "model_file"},
        {[&] { file.erase("baseLinkName"); }, "302] type must be string, but is null",
         "baseLinkName"},
        {[&] { file["baseLinkUp"] = nullptr; }, "302] type must be number, but is null",
         "baseLinkUp"},
        {[&] { file["baseLinkUp"][1] = "up"; }, "302] type must be number, but is string",
         "baseLinkUp[1]"},
        {[&] { joint()["springStiffness"] = true; }, "302] type must be number, but is boolean",
         "joints.bone_01.springStiffness"},
        {[&] { joint().erase("useLimits"); }, "302] type must be boolean, but is null",
         "joints.bone_01.useLimits"},
        // a name without a member: its first required key is missing
        {[&] { file["joints"].erase("end"); }, "302] type must be number, but is null",
         "joints.end.springStiffness"},
        {[&] { file.erase("joints"); }, "302] type must be number, but is null",
         "joints.bone_00.springStiffness"},
        {[&] { file["links"].erase("[link]bone_01"); }, "302] type must be boolean, but is null",
         "links.[link]bone_01.isIntermediate"},
        {[&] {
             link().erase("radius ");
             link()["radius"] = 1;
         },
         "302] type must be number, but is null", "links.[link]bone_00.radius "},
        {[&] { file["links"] = 3; },
         "305] cannot use operator[] with a string argument with number", "links"},
        {[&] { joint()["axis"] = "y"; },
         "305] cannot use operator[] with a numeric argument with string", "joints.bone_01.axis"},
        {[&] { file["markers_placements"] = 0.1; },
         "305] cannot use operator[] with a numeric argument with number", "markers_placements"},
        {[&] { joint()["dynamics"] = 1; }, "304] cannot use at() with number",
         "joints.bone_01.dynamics"},
        {[&] { joint()["mimic"] = nullptr; }, "304] cannot use at() with null",
         "joints.bone_01.mimic"},
    };
    for (const Case& c : cases) {
        file = whole;
        c.spoil();
        EXPECT_THAT(failure<json::type_error>(),
                    AllOf(HasSubstr(c.text), HasSubstr("(in '" + path + "' at " + c.key + ")")));
    }
    file = whole;
    joint()["limit"].erase("effort");
    EXPECT_THAT(failure<json::out_of_range>(),
                AllOf(HasSubstr("403] key 'effort' not found"),
                      HasSubstr(" at joints.bone_01.limit.effort)")));
}

}  // namespace
}  // namespace drelt
