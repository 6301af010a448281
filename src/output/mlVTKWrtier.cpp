#include "output/mlVTKWrtier.h"

#include "output/OutputFile.h"

namespace drelt {
bool mlVTKWrtier::writeObject(const host_MeshData& mesh, const std::string& path) {
    VtkText text("output  a model", "ASCII", "POLYDATA");
    text << "POINTS " << mesh.curr_positions.size() << " float\n";
    text.rows(mesh.curr_positions);
    text << "POLYGONS " << mesh.faces.size() << " " << 4 * mesh.faces.size() << "\n";
    for (const MeshFace& face : mesh.faces) {
        text << "3 " << face.vertexIds[0] << " " << face.vertexIds[1] << " " << face.vertexIds[2]
             << "\n";
    }
    text << "POINT_DATA " << mesh.curr_normals.size() << "\n";
    text << "NORMALS cell_normals float\n";
    text.rows(mesh.curr_normals);
    text << "TEXTURE_COORDINATES cell_uvs 2 float\n";
    text.rows(mesh.texCoords);
    return text.save(path);
}

bool mlVTKWrtier::writeMarkers(const Markers_CPU& markers, const std::string& path) {
    const std::size_t count = markers.pos.size();
    VtkText text("output  markers ", "ASCII", "POLYDATA");
    text << "POINTS " << count << " double\n";
    text.rows(markers.pos);
    text << "VERTICES " << count << " " << 2 * count << "\n";
    for (std::size_t i = 0; i < count; ++i) text << "1 " << i << "\n";
    text << "POINT_DATA " << count << "\n";
    text << "SCALARS pressure float\n"
         << "LOOKUP_TABLE default\n";
    text.rows(markers.pressure);
    text << "VECTORS normal double\n";
    text.rows(markers.normal);
    text << "VECTORS velocity double\n";
    text.rows(markers.velocity);
    return text.save(path);
}

}  // namespace drelt
