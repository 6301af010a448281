// Samples and skin of a body as arrays. SI units, world axes. Reading changes nothing.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

namespace drelt {

class skSystem;

namespace BodyArrays {

// One row per item.
using Rows = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;
using IndexRows = Eigen::Matrix<std::int32_t, Eigen::Dynamic, 3, Eigen::RowMajor>;
using Indices = Eigen::Matrix<std::int32_t, Eigen::Dynamic, 1>;

// The samples as the coupling has them: where the last update put them. The empirical model updates no
// samples.
Rows samplePositions(const skSystem& body);  // [m]
// Velocity of the material point at each sample [m/s], from the present motion of its link.
Rows sampleVelocities(const skSystem& body);
// Force of each sample on the fluid in the last step with fluid [N]; 0 before the first one.
Rows sampleForces(const skSystem& body);
// Indices into linkNames.
Indices sampleLinks(const skSystem& body);
// The area that each sample stands for [m^2]; 0 without samples.
double sampleArea(const skSystem& body);

// The skin in the present pose; meshes follow each other, and faces count vertices through all of them.
Rows skinVertices(const skSystem& body);  // [m]
IndexRows skinFaces(const skSystem& body);
// Indices into linkNames.
Indices skinFaceLinks(const skSystem& body);

// Names of all links: first the world, last the frame that the grid may follow.
std::vector<std::string> linkNames(const skSystem& body);

}  // namespace BodyArrays
}  // namespace drelt
