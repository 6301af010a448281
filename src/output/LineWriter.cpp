#include "output/LineWriter.h"

#include <cstddef>
#include <stdexcept>

#include "output/OutputFile.h"

namespace drelt {
namespace {

constexpr std::size_t kSamplesPerPoint = 200;

long long size(std::size_t count) { return static_cast<long long>(count); }

bool save(const VtkText& text, const std::string& path) {
    OutputFile file(path);
    file.write(text.text());
    return file.close();
}

// A cell line: the number of points and their indices from `first` on.
void appendCell(VtkText& text, long long first, long long count) {
    text << count;
    for (long long i = first; i < first + count; ++i) text << " " << i;
    text << "\n";
}

void appendRows(VtkText& text, const std::vector<Eigen::Vector3d>& rows) {
    for (const Eigen::Vector3d& values : rows) text.row(values);
}

}  // namespace

bool writeLines(const std::vector<mlVTKLine>& lines, const std::string& path) {
    std::size_t points = 0;
    for (const mlVTKLine& line : lines) points += line.vertices.size();
    VtkText text("output  lines", "ASCII", "POLYDATA");
    text << "POINTS " << size(points) << " double\n";
    for (const mlVTKLine& line : lines) appendRows(text, line.vertices);
    text << "LINES " << size(lines.size()) << " " << size(points + lines.size()) << "\n";
    long long first = 0;
    for (const mlVTKLine& line : lines) {
        appendCell(text, first, size(line.vertices.size()));
        first += size(line.vertices.size());
    }
    return save(text, path);
}

bool writeTrajectory(const mlTrajectory<double, 3>& trajectory, const std::string& path) {
    const Spline<Eigen::Vector3d, float>& curve = trajectory.curve();
    const std::size_t points = trajectory.points.size();
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
    text << "POINTS " << size(count) << " double\n";
    appendRows(text, positions);
    text << "LINES 1 " << size(count + 1) << "\n";
    appendCell(text, 0, size(count));
    text << "POINT_DATA " << size(count) << "\n"
         << "VECTORS tagents double\n";
    appendRows(text, tangents);
    return save(text, path);
}

}  // namespace drelt
