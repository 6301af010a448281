// Legacy VTK files, version 3.0: what a run leaves for a viewer.
//
// Missing folders are created. A file that cannot be written is passed over in silence, and the run
// goes on. A call returns after its file was flushed and closed.
#pragma once

#include <string>

#include "Markers/Markers.h"
#include "MeshLoad/MeshData.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlUnitScale.h"

namespace dart::dynamics {
class Frame;
}

namespace drelt {

class mlVTKWrtier {
public:
    // The fluid of one domain as binary structured points: velocity, density, layer type and damping
    // of every node from the host record, three components each. The velocity is the inertial one,
    // in lattice units: the grid's own motion is that of `frame`. Gives 1.
    static int writeFluid(const mlFlow& flow, const mlUnitScale& scale, const std::string& path,
                          const dart::dynamics::Frame* frame);

    // One mesh as text: current positions [m] and normals, faces, texture coordinates. Gives whether
    // the file was written.
    static bool writeObject(const host_MeshData& mesh, const std::string& path);

    // The markers of one body as text: positions [m], density and momentum in lattice units. Gives
    // whether the file was written.
    static bool writeMarkers(const Markers_CPU& markers, const std::string& path);
};

}  // namespace drelt
