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
        "Draws a scene, a frame a call, and saves frames as images: in a window where there is a\n"
        "display, without one elsewhere. Only what lies 0.1 to 100 m ahead of the camera is seen.");

    module.def("make_renderer", &makeRenderer, py::arg("width"), py::arg("height"), py::pos_only(),
               "New renderer of images of this width and height [pixels]. Raises ValueError for a\n"
               "side that is not positive or above 16384.");

    renderer.def(py::init(&makeRenderer), py::arg("width"), py::arg("height"), "As make_renderer.")
        .def("render", &tinyRenderer::render,
             "Draws one frame. The first call says in a printed line whether it draws in a window; "
             "where\n"
             "no OpenGL can be had it says that, and nothing is drawn then or later.")
        .def(
            "savePPM", &tinyRenderer::savePPM, py::arg("file_name"),
            "Writes the frame drawn last as a binary PPM, the rows from the bottom of the image to "
            "its\n"
            "top. A file that cannot be opened is passed over. Raises RuntimeError where no frame "
            "has\n"
            "been drawn, with the reason.")
        .def("setCamera", &tinyRenderer::setCamera, py::arg("position"), py::arg("target"),
             py::arg("worldup"),
             "Looks from position to target (3 each) [m], with the direction worldup (3) upwards.")
        .def("setLight", &tinyRenderer::setLight, py::arg("position"),
             py::arg("diffuse") = Eigen::Vector3f(1, 1, 1),
             py::arg("specular") = Eigen::Vector3f(1, 1, 1),
             "Sets the light's position (3) [m] and its colours (3 each), red, green and blue from "
             "0 to\n"
             "1. The colours are taken at the first frame, the position at every one.")
        .def("addCube", &tinyRenderer::addCube,
             "Adds a cube with edges of 1 m along the axes around the origin.")
        .def("addDynamics", &tinyRenderer::addDynamics, py::arg("dynamics"),
             "Adds the skin of a body. Raises ValueError for None.")
        .def("addTrajectory", &tinyRenderer::addTrajectory, py::arg("trajectory"),
             "Adds the control points of a trajectory as a green line, the last point left out. "
             "The\n"
             "points are those at the next frame. Raises ValueError for None.");
}

}  // namespace drelt
