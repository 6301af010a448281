// Legacy VTK files of polylines: debug lines and fitted trajectories. See mlVTKWrtier.h for what
// happens to missing folders and to files that cannot be written.
#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "trajectory/mlTrajectory.h"

namespace drelt {

// A polyline through its vertices [m].
struct mlVTKLine {
    std::vector<Eigen::Vector3d> vertices;
};

// The lines as text. Gives whether the file was written.
bool writeLines(const std::vector<mlVTKLine>& lines, const std::string& path);

// The fitted curve of a trajectory as text: one polyline of 200 samples a control point at even
// steps of the parameter from the start on, with the curve's first derivatives. Gives whether the
// file was written. Raises as mlTrajectory::curve does, and std::invalid_argument where the
// trajectory holds fewer than four control points by now; no file is touched then.
bool writeTrajectory(const mlTrajectory<double, 3>& trajectory, const std::string& path);

}  // namespace drelt
