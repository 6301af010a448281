// Reader of description files.
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "SkeletonDynamics/SkeletonDescription.h"

namespace drelt {

namespace {

using nlohmann::json;

// Reads from the last element down; json's own errors name what is missing or unfit.
void readVector(json& value, Eigen::Vector3d& to) {
    for (int k = 2; k >= 0; --k) to[k] = value[k].get<double>();
}

// Index of the word that a value equals; an unknown or missing word leaves `index` as it is.
void readWord(const json& value, const char* const* words, int count, std::int32_t& index) {
    for (int i = 0; i < count; ++i) {
        if (value == words[i]) {
            index = i;
            return;
        }
    }
}

// The json values are not const on purpose: reading a missing member creates a null, on which the
// conversion then fails with the text that names the wanted type.
void readJoint(json& member, SkeletonJoint& joint) {
    readWord(member["type"], kJointTypeWords, kJointTypeCount, joint.type);
    readWord(member["actuator"], kActuatorWords, kActuatorCount, joint.actuator);
    joint.springStiffness = member["springStiffness"].get<double>();
    joint.useLimits = member["useLimits"].get<bool>();
    joint.useDynamcis = member["useDynamcis"].get<bool>();
    json& dynamics = member["dynamics"];
    joint.damping = dynamics.at("damping").get<double>();
    joint.friction = dynamics.at("friction").get<double>();
    json& limit = member["limit"];
    joint.effort = limit.at("effort").get<double>();
    joint.velocity = limit.at("velocity").get<double>();
    joint.lower = limit.at("lower").get<double>();
    joint.upper = limit.at("upper").get<double>();
    if (member.contains("mimic")) {
        json& mimic = member["mimic"];
        joint.mimicJoint = mimic.at("joint").get<std::string>();
        joint.multiplier = mimic.at("multiplier").get<double>();
        joint.offset = mimic.at("offset").get<double>();
    }
    readVector(member["axis"], joint.axis);
}

void readLink(json& member, SkeletonLink& link) {
    link.isIntermediate = member["isIntermediate"].get<bool>();
    link.mass = member["mass"].get<double>();
    link.name = member["name"].get<std::string>();
    readVector(member["size"], link.size);
    link.radius = member["radius "].get<double>();  // the key ends in a blank
}

void readDescription(json& file, SkeletonSystem& system) {
    system.baseLinkName = file["baseLinkName"].get<std::string>();
    system.baseFrameName = file["baseFrameName"].get<std::string>();
    readVector(file["baseLinkFwd"], system.baseLinkFwd);
    readVector(file["baseLinkRight"], system.baseLinkRight);
    readVector(file["baseLinkUp"], system.baseLinkUp);
    for (const auto& joint : system.joints) readJoint(file["joints"][joint->name], *joint);
    for (const auto& link : system.links) {
        const std::string derivedName = link->name;
        readLink(file["links"][derivedName], *link);
    }
    json& placements = file["markers_placements"];
    system.markers_placements.resize(placements.size());
    for (std::size_t i = 0; i < system.markers_placements.size(); ++i) {
        readVector(placements[i], system.markers_placements[i]);
    }
}

}  // namespace

std::shared_ptr<SkeletonSystem> skeletonFromJson(const std::string& jsonFile, int device) {
    std::ifstream stream(jsonFile);
    if (!stream) std::printf("[warning] cannot open the description '%s'\n", jsonFile.c_str());
    json file = json::parse(stream);
    const auto modelFile = file["model_file"].get<std::string>();
    auto system = std::make_shared<SkeletonSystem>(modelFile, device);
    readDescription(file, *system);
    return system;
}

}  // namespace drelt
