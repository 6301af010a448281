// Weighted sample elimination: an even subset of a dense set of points on a surface (Yuksel, Sample
// elimination for generating Poisson disk sample sets, Computer Graphics Forum 34, 2015).
#pragma once

#include <Eigen/Core>
#include <vector>

namespace drelt {

// Picks `wanted` of the points, or all where there are fewer, and returns their indices in
// progressive order: every prefix is an even set itself. `area` is the area of the surface that the
// points lie on, in squared units of the points; 1 is taken where it is not positive. The result
// does not depend on the number of threads.
std::vector<int> eliminateSamples(const std::vector<Eigen::Vector3d>& points, int wanted,
                                  double area);

}  // namespace drelt
