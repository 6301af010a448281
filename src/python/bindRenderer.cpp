// The renderer.
#include <pybind11/eigen.h>
#include <pybind11/numpy.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "SkeletonDynamics/skSystem.h"
#include "output/OutputFile.h"
#include "python/bindings.h"
#include "tinyRenderer/tinyRenderer.h"

namespace py = pybind11;

namespace drelt {
namespace {

constexpr float kNear = 0.1f;  // [m]
constexpr float kFar = 100;

std::shared_ptr<tinyRenderer> makeRenderer(int width, int height) {
    return std::make_shared<tinyRenderer>(width, height, kNear, kFar);
}

using Points = Eigen::Matrix<double, Eigen::Dynamic, 3, Eigen::RowMajor>;

std::vector<Eigen::Vector3d> rowsOf(const Points& points) {
    if (!points.allFinite())
        throw std::invalid_argument("a point or normal to draw is not finite; give numbers");
    std::vector<Eigen::Vector3d> rows;
    for (Eigen::Index i = 0; i < points.rows(); ++i) rows.emplace_back(points.row(i));
    return rows;
}

py::array_t<std::uint8_t> imageOf(const tinyRenderer& self, const std::string& purpose) {
    const std::vector<std::uint8_t> pixels = self.pixels(purpose);
    return py::array_t<std::uint8_t>({self.height(), self.width(), 3}, pixels.data());
}

std::string bigEndian(std::size_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
    return bytes;
}

// Python's zlib compresses, so that the renderer needs no further library.
void savePng(const tinyRenderer& self, const std::string& fileName) {
    const std::vector<std::uint8_t> pixels = self.pixels("'" + fileName + "' cannot be saved");
    const auto row = static_cast<std::size_t>(self.width()) * 3;
    std::string lines;
    lines.reserve(pixels.size() + static_cast<std::size_t>(self.height()));
    for (std::size_t at = 0; at < pixels.size(); at += row) {
        lines += '\0';  // each line without a filter
        lines.append(reinterpret_cast<const char*>(pixels.data()) + at, row);
    }
    const py::module_ zlib = py::module_::import("zlib");
    OutputFile file(fileName, OutputFile::MissingFolders::Keep);
    const auto chunk = [&](const std::string& body) {
        const auto sum = zlib.attr("crc32")(py::bytes(body)).cast<std::size_t>();
        file.write(bigEndian(body.size() - 4) + body + bigEndian(sum));
    };
    file.write("\x89PNG\r\n\x1a\n");
    const char kind[] = {8, 2, 0, 0, 0};  // bits, red green blue, no interlacing
    chunk("IHDR" + bigEndian(static_cast<std::size_t>(self.width())) +
          bigEndian(static_cast<std::size_t>(self.height())) + std::string(kind, sizeof(kind)));
    chunk("IDAT" + zlib.attr("compress")(py::bytes(lines)).cast<std::string>());
    chunk("IEND");
    file.close();
}

}  // namespace

void bindRenderer(py::module_& module) {
    py::class_<tinyRenderer, std::shared_ptr<tinyRenderer>> renderer(
        module, "tinyRenderer",
        "Draws a scene and saves frames as images. It uses a window if there is a display; "
        "without\n"
        "one it draws the same images. It shows what lies 0.1 to 100 m ahead of the camera.");

    module.def(
        "make_renderer", &makeRenderer, py::arg("width"), py::arg("height"), py::pos_only(),
        "Makes a renderer of images of this width and height [pixels]. Raises ValueError for a\n"
        "side that is not positive or above 16384.");

    renderer.def(py::init(&makeRenderer), py::arg("width"), py::arg("height"), "As make_renderer.")
        .def("render", &tinyRenderer::render,
             "Draws one frame. The first call prints whether it uses a window. If there is no "
             "OpenGL, it\n"
             "prints that, and no call draws anything.")
        .def("savePPM", &tinyRenderer::savePPM, py::arg("file_name"),
             "Writes the latest frame as a binary PPM. Its rows run from the bottom of the image "
             "to the top. A\n"
             "file that cannot be written gives one warning per folder on standard error. Raises "
             "RuntimeError\n"
             "with the reason if no frame has been drawn.")
        .def("savePNG", &savePng, py::arg("file_name"),
             "Writes the latest frame as a PNG, rows from top to bottom. A file that cannot be\n"
             "written gives one warning per folder on standard error. Raises RuntimeError with\n"
             "the reason if no frame has been drawn.")
        .def(
            "getImage", [](const tinyRenderer& self) { return imageOf(self, "there is no image"); },
            "The latest frame, rows from top to bottom, shape (height, width, 3), uint8. Raises\n"
            "RuntimeError with the reason if no frame has been drawn.")
        .def("setDepthRange", &tinyRenderer::setDepthRange, py::arg("near"), py::arg("far"),
             "Sets the distances of the near and far plane [m]; what lies outside is not shown.\n"
             "Raises ValueError unless 0 < near < far.")
        .def("setDepthFromScene", &tinyRenderer::setDepthFromScene, py::arg("enclose") = true,
             "With True, near and far plane enclose all that is shown, in every frame.")
        .def("setCamera", &tinyRenderer::setCamera, py::arg("position"), py::arg("target"),
             py::arg("worldup"),
             "Looks from position to target (3 each) [m], with the direction worldup (3) upwards.")
        .def("setLight", &tinyRenderer::setLight, py::arg("position"),
             py::arg("diffuse") = Eigen::Vector3f(1, 1, 1),
             py::arg("specular") = Eigen::Vector3f(1, 1, 1),
             "Sets the light's position (3) [m] and its colours (3 each): red, green and blue from "
             "0 to 1.\n"
             "The first frame takes the colours, every frame the position.")
        .def("addCube", &tinyRenderer::addCube,
             "Adds a cube with edges of 1 m along the axes, centred at the origin.")
        .def("addDynamics", &tinyRenderer::addDynamics, py::arg("dynamics"),
             "Adds the skin of a body. Raises ValueError for None.")
        .def(
            "addLines",
            [](tinyRenderer& self, const Points& points, const Eigen::Vector3f& colour,
               bool onTop) { self.addLines(rowsOf(points), colour, onTop); },
            py::arg("points"), py::arg("colour") = Eigen::Vector3f(1, 1, 1),
            py::arg("on_top") = false,
            "Adds lines between pairs of points (2 n, 3) [m] in a colour (3). With on_top they\n"
            "are drawn over what was added before. Raises ValueError for an odd number of points\n"
            "and for one that is not finite.")
        .def(
            "addTriangles",
            [](tinyRenderer& self, const Points& points, const Points& normals,
               const Eigen::Vector3f& colour) {
                self.addTriangles(rowsOf(points), rowsOf(normals), colour);
            },
            py::arg("points"), py::arg("normals"),
            py::arg("colour") = Eigen::Vector3f(0.8f, 0.8f, 0.8f),
            "Adds lit triangles in a colour (3): corners (3 n, 3) [m] and their normals (3 n, 3).\n"
            "Raises ValueError for other numbers of rows and for one that is not finite.")
        .def("addGrid", &tinyRenderer::addGrid, py::arg("centre") = Eigen::Vector3d(0, 0, 0),
             py::arg("height") = 0.0, py::arg("spacing") = 0.1, py::arg("cells") = 10,
             "Adds a square grid on the plane y = height around centre (3): cells of spacing [m]\n"
             "to each side. Raises ValueError for a spacing that is not positive and for cells\n"
             "outside 1 to 1000.")
        .def("addAxes", &tinyRenderer::addAxes, py::arg("origin") = Eigen::Vector3d(0, 0, 0),
             py::arg("length") = 0.1,
             "Adds axes of this length [m] from a point (3): x red, y green, z blue.")
        .def("addTrajectory", &tinyRenderer::addTrajectory, py::arg("trajectory"),
             "Adds the control points of a trajectory as a green line without the last point. The "
             "points\n"
             "are those at the next frame. Raises ValueError for None.");
}

}  // namespace drelt
