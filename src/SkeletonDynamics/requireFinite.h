// A check of numbers that scripts pass: DART ends the process on numbers that are not finite.
#pragma once

#include <Eigen/Core>
#include <sstream>
#include <stdexcept>
#include <string>

namespace drelt {

// Largest number that is accepted, in SI units: products of several stay finite.
inline constexpr double kLargestNumber = 1e50;

inline bool usable(const Eigen::Ref<const Eigen::VectorXd>& values) {
    return (values.array().abs() <= kLargestNumber).all();
}

inline std::string listed(const Eigen::Ref<const Eigen::VectorXd>& values) {
    std::ostringstream text;
    text << "(" << values.transpose() << ")";
    return text.str();
}

// Throws std::invalid_argument, which names `what`, unless all values are finite and at most 1e50 in size.
inline void requireFinite(const Eigen::Ref<const Eigen::VectorXd>& values,
                          const std::string& what) {
    if (usable(values)) return;
    throw std::invalid_argument(what + ": got " + listed(values) +
                                "; give finite numbers, none above 1e50");
}

}  // namespace drelt
