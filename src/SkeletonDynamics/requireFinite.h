// A check on what scripts hand over: DART ends the process on numbers that are not finite.
#pragma once

#include <Eigen/Core>
#include <sstream>
#include <stdexcept>
#include <string>

namespace drelt {

// Raises std::invalid_argument that names `what` unless all of its values are finite.
inline void requireFinite(const Eigen::Ref<const Eigen::VectorXd>& values,
                          const std::string& what) {
    if (values.allFinite()) return;
    std::ostringstream given;
    given << values.transpose();
    throw std::invalid_argument(what + ": got (" + given.str() + "); give finite numbers");
}

}  // namespace drelt
