// Weighted sample elimination: an even subset of a dense set of points on a surface (Yuksel, Sample
// elimination for generating Poisson disk sample sets, Computer Graphics Forum 34, 2015).
#pragma once

#include <Eigen/Core>
#include <vector>

namespace drelt {

// Picks `wanted` points, or all if there are fewer, and returns their indices in progressive order: every
// prefix is an even set. `area` is the area of the surface with the points, in squared units of the points;
// if it is not positive, 1 is used. The result does not depend on the number of threads.
std::vector<int> eliminateSamples(const std::vector<Eigen::Vector3d>& points, int wanted,
                                  double area);

}  // namespace drelt
