// Files of polylines: debug lines and fitted trajectories.
#include <cstddef>
#include <stdexcept>

#include "output/OutputFile.h"
#include "output/mlVTKWrtier.h"

namespace drelt {
namespace {

constexpr std::size_t kSamplesPerPoint = 200;

// A cell line: the number of points and their indices from `first` on.
void appendCell(VtkText& text, std::size_t first, std::size_t count) {
    text << count;
    for (std::size_t i = first; i < first + count; ++i) text << " " << i;
    text << "\n";
}

}  // namespace

bool mlVTKWrtier::writeLines(const std::vector<mlVTKLine>& lines, const std::string& path) {
    std::size_t points = 0;
    for (const mlVTKLine& line : lines) points += line.vertices.size();
    VtkText text("output  lines", "ASCII", "POLYDATA");
    text << "POINTS " << points << " double\n";
    for (const mlVTKLine& line : lines) text.rows(line.vertices);
    text << "LINES " << lines.size() << " " << points + lines.size() << "\n";
    std::size_t first = 0;
    for (const mlVTKLine& line : lines) {
        appendCell(text, first, line.vertices.size());
        first += line.vertices.size();
    }
    return text.save(path);
}

bool mlVTKWrtier::writeTrajectory(const mlTrajectory<double, 3>* trajectory,
                                  const std::string& path) {
    if (trajectory == nullptr) {
        throw std::invalid_argument("writeTrajectory: the trajectory is null; give a trajectory");
    }
    const Spline<Eigen::Vector3d, float>& curve = trajectory->curve();
    const std::size_t points = trajectory->points.size();
    if (points < mlTrajectory<double, 3>::kMinPoints) {
        throw std::invalid_argument("writeTrajectory: the trajectory now holds " +
                                    std::to_string(points) +
                                    " control points, and needs at least 4; give them with "
                                    "setPoints, then call fit");
    }
    const std::size_t count = kSamplesPerPoint * points;
    const float step = 1.0F / static_cast<float>(count);
    std::vector<Eigen::Vector3d> positions;
    std::vector<Eigen::Vector3d> tangents;
    for (std::size_t k = 0; k < count; ++k) {
        const auto sample = curve.getTangent(static_cast<float>(k) * step * curve.getMaxT());
        positions.push_back(sample.position);
        tangents.push_back(sample.tangent);
    }
    VtkText text("output  a mlTrajectory", "ASCII", "POLYDATA");
    text << "POINTS " << count << " double\n";
    text.rows(positions);
    text << "LINES 1 " << count + 1 << "\n";
    appendCell(text, 0, count);
    // sic: prescribed text
    text << "POINT_DATA " << count << "\n"
         << "VECTORS tagents double\n";
    text.rows(tangents);
    return text.save(path);
}

}  // namespace drelt
