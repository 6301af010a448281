// Volumes that triangles enclose, and their moments up to the second.
//
// B. Mirtich, J. Graphics Tools 1 (1996) 31, reduces such integrals to the surface. Here each triangle
// spans a tetrahedron with a fixed point, whose moments are polynomials of its corners; the sum is the
// same.
#pragma once

#include <Eigen/Geometry>
#include <array>
#include <cstdint>
#include <vector>

namespace drelt {

using FaceVertices =
    std::array<std::int32_t, 3>;  // indices of vertices; counter-clockwise from outside

struct VolumeMoments {
    double volume = 0;                                   // [m^3]
    Eigen::Vector3d centroid = Eigen::Vector3d::Zero();  // [m]
    // Integral of x x^T over the volume, x from the centroid [m^5].
    Eigen::Matrix3d second = Eigen::Matrix3d::Zero();

    // The same volume in other axes.
    VolumeMoments movedBy(const Eigen::Isometry3d& motion) const;
    // Integral of x^2 1 - x x^T: the moment of inertia about the centroid for a density of one [m^5].
    Eigen::Matrix3d inertia() const;
};

// The faces that enclose a volume: those that are left when faces with a free edge, which belongs to no
// other face, are removed one after the other. So a sheet of one layer goes, also where it is attached to
// a body, and a body with a hole goes as a whole. Vertices at the same place count as one. One entry per
// triangle.
std::vector<bool> closedFaces(const std::vector<Eigen::Vector3d>& vertices,
                              const std::vector<FaceVertices>& triangles);

// The volume inside the closed faces. Zero without any. Positive also if all faces look inwards.
VolumeMoments volumeMoments(const std::vector<Eigen::Vector3d>& vertices,
                            const std::vector<FaceVertices>& triangles);

// The same for parts of a skin: triangle i belongs to part labels[i], from 0 to parts - 1. Where parts
// meet, their common cut is closed by a fan of triangles around the mean of its vertices. Both sides use
// the same fan, so the volumes of the parts add up to the whole. A part may get a negative volume where a
// fan is not inside the skin.
std::vector<VolumeMoments> volumeMomentsOfParts(const std::vector<Eigen::Vector3d>& vertices,
                                                const std::vector<FaceVertices>& triangles,
                                                const std::vector<std::int32_t>& labels, int parts);

}  // namespace drelt
