#include "output/mlVTKWrtier.h"

#include "output/OutputFile.h"

namespace drelt {
namespace {

long long size(std::size_t count) { return static_cast<long long>(count); }

template <class Rows>
void appendRows(VtkText& text, const Rows& rows) {
    for (const auto& values : rows) text.row(values);
}

bool save(const VtkText& text, const std::string& path) {
    OutputFile file(path);
    file.write(text.text());
    return file.close();
}

}  // namespace

bool mlVTKWrtier::writeObject(const host_MeshData& mesh, const std::string& path) {
    VtkText text("output  a model", "ASCII", "POLYDATA");
    text << "POINTS " << size(mesh.curr_positions.size()) << " float\n";
    appendRows(text, mesh.curr_positions);
    text << "POLYGONS " << size(mesh.faces.size()) << " " << size(4 * mesh.faces.size()) << "\n";
    for (const MeshFace& face : mesh.faces) {
        text << "3 " << face.vertexIds[0] << " " << face.vertexIds[1] << " " << face.vertexIds[2]
             << "\n";
    }
    text << "POINT_DATA " << size(mesh.curr_normals.size()) << "\n";
    text << "NORMALS cell_normals float\n";
    appendRows(text, mesh.curr_normals);
    text << "TEXTURE_COORDINATES cell_uvs 2 float\n";
    appendRows(text, mesh.texCoords);
    return save(text, path);
}

bool mlVTKWrtier::writeMarkers(const Markers_CPU& markers, const std::string& path) {
    const long long count = size(markers.pos.size());
    VtkText text("output  markers ", "ASCII", "POLYDATA");
    text << "POINTS " << count << " double\n";
    appendRows(text, markers.pos);
    text << "VERTICES " << count << " " << 2 * count << "\n";
    for (long long i = 0; i < count; ++i) text << "1 " << i << "\n";
    text << "POINT_DATA " << count << "\n";
    text << "SCALARS pressure float\n"
         << "LOOKUP_TABLE default\n";
    appendRows(text, markers.pressure);
    text << "VECTORS normal double\n";
    appendRows(text, markers.normal);
    text << "VECTORS velocity double\n";
    appendRows(text, markers.velocity);
    return save(text, path);
}

}  // namespace drelt
