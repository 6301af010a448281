// Reader of description files.
#include <fstream>
#include <ios>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "SkeletonDynamics/SkeletonDescription.h"
#include "platform/check.h"
#include "platform/messages.h"

namespace drelt {

namespace {

using nlohmann::json;

// The library quotes bytes of the file, which need not be UTF-8.
std::string asText(const std::string& bytes) {
    constexpr auto replace = json::error_handler_t::replace;
    return json::parse(json(bytes).dump(-1, ' ', false, replace)).get<std::string>();
}

// An error of the JSON library with the place added to its text.
template <class Error>
class Located : public Error {
public:
    Located(const Error& error, const std::string& place)
        : Error(error), text_(asText(error.what()) + " (" + place + ")") {}
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

// Runs `read` and adds the place to the errors of the JSON library and of the stream.
template <class Read>
auto located(const std::string& place, Read&& read) {
    try {
        return read();
    } catch (const json::parse_error& error) {
        throw Located<json::parse_error>(error, place);
    } catch (const json::type_error& error) {
        throw Located<json::type_error>(error, place);
    } catch (const json::out_of_range& error) {
        throw Located<json::out_of_range>(error, place);
    } catch (const std::ios_base::failure& error) {  // a folder, or a disk that fails
        throw std::runtime_error(std::string(error.what()) + " (" + place + ")");
    }
}

// A value of the file that knows its path in it, as "joints.bone_03.axis". Values are not const on
// purpose: operator[] creates a null for a missing member, and the conversion of that null fails with
// the text that names the wanted type.
class Value {
public:
    Value(json& value, std::string file, std::string path = "")
        : value_(&value), file_(std::move(file)), path_(std::move(path)) {}

    Value operator[](const std::string& key) const {
        json& found = located(place(path_), [&]() -> Reference { return {(*value_)[key]}; }).value;
        return {found, file_, below(key)};
    }
    Value operator[](std::size_t index) const {
        json& found =
            located(place(path_), [&]() -> Reference { return {(*value_)[index]}; }).value;
        // a null becomes an array here: then the vector is missing, and not its element
        const std::string element = "[" + std::to_string(index) + "]";
        return {found, file_, found.is_null() ? path_ : path_ + element};
    }
    // A missing member is an error here.
    Value at(const std::string& key) const {
        const std::string& named = value_->is_object() ? below(key) : path_;
        json& found = located(place(named), [&]() -> Reference { return {value_->at(key)}; }).value;
        return {found, file_, below(key)};
    }
    template <class T>
    T get() const {
        return located(place(path_), [&] { return value_->get<T>(); });
    }
    void read(Eigen::Vector3d& to) const {
        for (int k = 2; k >= 0; --k) to[k] = (*this)[static_cast<std::size_t>(k)].get<double>();
    }
    bool contains(const char* key) const { return value_->contains(key); }
    const json& raw() const { return *value_; }
    const std::string& file() const { return file_; }

private:
    struct Reference {
        json& value;
    };
    std::string below(const std::string& key) const {
        return path_.empty() ? key : path_ + "." + key;
    }
    std::string place(const std::string& path) const {
        return "in '" + file_ + "'" + (path.empty() ? "" : " at " + path);
    }

    json* value_;
    std::string file_, path_;
};

// Index of the word that a value equals. A missing word leaves `index` as it is, an unknown one too,
// with a warning.
void readWord(const Value& value, const std::string& key, const std::string& joint,
              const char* const* words, int count, std::int32_t& index) {
    const json word = value[key].raw();
    std::string known;
    for (int i = 0; i < count; ++i) {
        if (word == words[i]) {
            index = i;
            return;
        }
        known += (i == 0 ? "'" : ", '") + std::string(words[i]) + "'";
    }
    if (word.is_null()) return;
    warn("'" + value.file() + "': joint '" + joint + "' has the unknown " + key + " " +
         word.dump() + " and stays " + words[index] + "; known are " + known);
}

void readJoint(const Value& member, SkeletonJoint& joint) {
    readWord(member, "type", joint.name, kJointTypeWords, kJointTypeCount, joint.type);
    readWord(member, "actuator", joint.name, kActuatorWords, kActuatorCount, joint.actuator);
    joint.springStiffness = member["springStiffness"].get<double>();
    joint.useLimits = member["useLimits"].get<bool>();
    joint.useDynamcis = member["useDynamcis"].get<bool>();
    const Value dynamics = member["dynamics"];
    joint.damping = dynamics.at("damping").get<double>();
    joint.friction = dynamics.at("friction").get<double>();
    const Value limit = member["limit"];
    joint.effort = limit.at("effort").get<double>();
    joint.velocity = limit.at("velocity").get<double>();
    joint.lower = limit.at("lower").get<double>();
    joint.upper = limit.at("upper").get<double>();
    if (member.contains("mimic")) {
        const Value mimic = member["mimic"];
        joint.mimicJoint = mimic.at("joint").get<std::string>();
        joint.multiplier = mimic.at("multiplier").get<double>();
        joint.offset = mimic.at("offset").get<double>();
    }
    member["axis"].read(joint.axis);
}

void readLink(const Value& member, SkeletonLink& link) {
    link.isIntermediate = member["isIntermediate"].get<bool>();
    link.mass = member["mass"].get<double>();
    link.name = member["name"].get<std::string>();
    member["size"].read(link.size);
    link.radius = member["radius "].get<double>();  // the key ends in a blank
}

void readDescription(const Value& file, SkeletonSystem& system) {
    system.baseLinkName = file["baseLinkName"].get<std::string>();
    system.baseFrameName = file["baseFrameName"].get<std::string>();
    file["baseLinkFwd"].read(system.baseLinkFwd);
    file["baseLinkRight"].read(system.baseLinkRight);
    file["baseLinkUp"].read(system.baseLinkUp);
    for (const auto& joint : system.joints) readJoint(file["joints"][joint->name], *joint);
    for (const auto& link : system.links) {
        const std::string derivedName = link->name;
        readLink(file["links"][derivedName], *link);
    }
    const Value placements = file["markers_placements"];
    system.markers_placements.resize(placements.raw().size());
    for (std::size_t i = 0; i < system.markers_placements.size(); ++i) {
        placements[i].read(system.markers_placements[i]);
    }
}

}  // namespace

std::shared_ptr<SkeletonSystem> skeletonFromJson(const std::string& jsonFile, int device) {
    platform::requireDevice(device, "skeletonFromJson");
    std::ifstream stream(jsonFile);
    const std::string place =
        "in '" + jsonFile + "'" + (stream ? "" : ", which cannot be opened; check name and folder");
    json content = located(place, [&] { return json::parse(stream); });
    const Value file(content, jsonFile);
    const auto modelFile = file["model_file"].get<std::string>();
    auto system = std::make_shared<SkeletonSystem>(modelFile, device);
    readDescription(file, *system);
    return system;
}

}  // namespace drelt
