// The renderer.
#include <pybind11/eigen.h>

#include <memory>
#include <string>

#include "SkeletonDynamics/skSystem.h"
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
        .def("addTrajectory", &tinyRenderer::addTrajectory, py::arg("trajectory"),
             "Adds the control points of a trajectory as a green line without the last point. The "
             "points\n"
             "are those at the next frame. Raises ValueError for None.");
}

}  // namespace drelt
