// Reads the reference cases of tests/vectors. Each case is a folder with a manifest.json, which names
// scalars and arrays, and one little-endian file per array.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace drelt::test {

// One case. Arrays keep their names as in the manifest ("in_f", "out_rou"); they are C order, flat.
class VectorCase {
public:
    explicit VectorCase(const std::string& name) : folder_("tests/vectors/" + name) {
        std::ifstream file(folder_ + "/manifest.json");
        if (!file) throw std::runtime_error("no manifest in " + folder_);
        file >> manifest_;
    }

    double scalar(const std::string& name) const {
        return manifest_.at("scalars").at(name).get<double>();
    }
    int integer(const std::string& name) const {
        return manifest_.at("scalars").at(name).get<int>();
    }
    bool hasScalar(const std::string& name) const { return manifest_.at("scalars").contains(name); }
    bool has(const std::string& name) const {
        for (const auto& entry : manifest_.at("arrays")) {
            if (entry.at("name") == name) return true;
        }
        return false;
    }
    std::vector<int> shape(const std::string& name) const {
        return entryOf(name).at("shape").get<std::vector<int>>();
    }

    // An array in the type in which it is stored. Throws for any other T.
    template <class T>
    std::vector<T> array(const std::string& name) const {
        static_assert(std::is_same_v<T, float> || std::is_same_v<T, double> ||
                      std::is_same_v<T, std::int32_t>);
        const nlohmann::json& entry = entryOf(name);
        const std::string type = entry.at("dtype");
        const char* const wanted = std::is_same_v<T, float>    ? "float32"
                                   : std::is_same_v<T, double> ? "float64"
                                                               : "int32";
        if (type != wanted) throw std::runtime_error(name + " is " + type + ", not " + wanted);
        std::size_t count = 1;
        for (const auto& extent : entry.at("shape")) count *= extent.get<std::size_t>();
        std::vector<T> values(count);
        std::ifstream file(folder_ + "/" + entry.at("file").get<std::string>(), std::ios::binary);
        file.read(reinterpret_cast<char*>(values.data()),
                  static_cast<std::streamsize>(count * sizeof(T)));
        if (!file) throw std::runtime_error("short or missing file for " + name);
        return values;
    }

    // The scalars of the case, and the names of the arrays in order.
    const nlohmann::json& manifest() const { return manifest_; }

private:
    const nlohmann::json& entryOf(const std::string& name) const {
        for (const auto& entry : manifest_.at("arrays")) {
            if (entry.at("name") == name) return entry;
        }
        throw std::runtime_error("no array " + name + " in " + folder_);
    }

    std::string folder_;
    nlohmann::json manifest_;
};

// Largest magnitude of an array.
template <class T>
double largest(const std::vector<T>& values) {
    double most = 0.0;
    for (const T value : values) most = std::fmax(most, std::fabs(static_cast<double>(value)));
    return most;
}

// Holds if the arrays have the same length and differ nowhere by more than the absolute tolerance.
// A value that is not a number fails. The message gives the largest difference and its place.
template <class Expected, class Actual>
testing::AssertionResult compare(const std::vector<Expected>& expected,
                                 const std::vector<Actual>& actual, double tolerance) {
    if (expected.size() != actual.size()) {
        return testing::AssertionFailure()
               << "expected " << expected.size() << " values, got " << actual.size();
    }
    double worst = 0.0;
    std::size_t place = 0;
    std::size_t beyond = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const double difference =
            std::fabs(static_cast<double>(expected[i]) - static_cast<double>(actual[i]));
        if (!(difference <= tolerance)) ++beyond;
        if (!(difference <= worst)) {
            worst = difference;
            place = i;
            if (std::isnan(difference)) break;
        }
    }
    auto result = beyond == 0 ? testing::AssertionSuccess() : testing::AssertionFailure();
    return result << "largest difference " << worst << " (allowed " << tolerance << ") at " << place
                  << " of " << expected.size() << ", " << beyond << " beyond";
}

// The same, where the tolerance is a share of the largest expected magnitude.
template <class Expected, class Actual>
testing::AssertionResult compareScaled(const std::vector<Expected>& expected,
                                       const std::vector<Actual>& actual, double share) {
    return compare(expected, actual, share * largest(expected));
}

}  // namespace drelt::test
