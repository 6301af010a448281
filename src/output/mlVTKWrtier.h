// Legacy VTK files, version 3.0: what a run leaves for a viewer.
//
// The writers create missing folders, and return after the file was flushed and closed. A file that
// cannot be written does not stop the run: a warning on standard error names it, once for each folder.
#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "Markers/Markers.h"
#include "MeshLoad/MeshData.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"
#include "trajectory/mlTrajectory.h"

namespace dart::dynamics {
class Frame;
}

namespace drelt {

// A polyline through its vertices [m].
struct mlVTKLine {
    std::vector<Eigen::Vector3d> vertices;
};

class mlVTKWrtier {
public:
    // The fluid of one domain as binary structured points: velocity, density, layer type and damping
    // of every node from the host record, three components each. The velocity is the inertial one in
    // lattice units; the grid moves with `frame`. Returns 1.
    static int writeFluid(const mlFlow& flow, const mlUnitScale& scale, const std::string& path,
                          const dart::dynamics::Frame* frame);

    // One mesh as text: current positions [m] and normals, faces, texture coordinates. Returns
    // whether the file was written.
    static bool writeObject(const host_MeshData& mesh, const std::string& path);

    // The markers of one body as text: positions [m], density and momentum in lattice units. Returns
    // whether the file was written.
    static bool writeMarkers(const Markers_CPU& markers, const std::string& path);

    // The lines as text. Returns whether the file was written.
    static bool writeLines(const std::vector<mlVTKLine>& lines, const std::string& path);

    // The fitted curve as text: one polyline of 200 samples per control point at equal steps of the
    // parameter, with the curve's first derivatives. Returns whether the file was written. Throws as
    // mlTrajectory::curve does, and std::invalid_argument for null or if the trajectory now holds fewer
    // than four control points; then no file is touched.
    static bool writeTrajectory(const mlTrajectory<double, 3>* trajectory, const std::string& path);
};

}  // namespace drelt
