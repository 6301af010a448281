// Trajectories, debug lines and their files, and the controller.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>
#include <vector>

#include "output/mlVTKWrtier.h"
#include "python/bindings.h"
#include "trajectory/mlSimplePDControl_1D.h"
#include "trajectory/mlTPTrajectory.h"
#include "trajectory/mlTrajectory.h"

namespace py = pybind11;

namespace drelt {
namespace {

using Point = mlTrajectoryPointData<double, 3>;
using Trajectory = mlTrajectory<double, 3>;

using PointClass = py::class_<Point, std::shared_ptr<Point>>;
using PosePointClass = py::class_<mlTPTrajectoryPData, Point, std::shared_ptr<mlTPTrajectoryPData>>;
using TrajectoryClass = py::class_<Trajectory, std::shared_ptr<Trajectory>>;
using PoseTrajectoryClass = py::class_<mlTPTrajectory, Trajectory, std::shared_ptr<mlTPTrajectory>>;
using ControllerClass = py::class_<mlSimplePDControl_1D, std::shared_ptr<mlSimplePDControl_1D>>;

void bindFactories(py::module_& module) {
    module.def(
        "make_trajectory", [] { return std::make_shared<mlTPTrajectory>(); },
        "New poseTrajectory without points.");
    module.def(
        "make_tpPoint", [] { return std::make_shared<mlTPTrajectoryPData>(); },
        "New pose point, all zero.");
    module.def(
        "make_controller",
        [](double Kp, double Kd, double timestep) {
            return std::make_shared<mlSimplePDControl_1D>(Kp, Kd, timestep);
        },
        "New controller from Kp, Kd and a time step [s].");
}

void bindPoints(PointClass& point, PosePointClass& posePoint) {
    point.def(py::init<>(), "A point at the origin.")
        .def_readwrite("data", &Point::data,
                       "Position (3) [m]. Reading gives a copy: assign a whole vector.");

    posePoint.def(py::init<>(), "A pose point, all zero.")
        .def("getPosition", &mlTPTrajectoryPData::getPosition, py::return_value_policy::copy,
             "Place on the path (3) [m].")
        .def("getOrientation", &mlTPTrajectoryPData::getOrientation, py::return_value_policy::copy,
             "Unit tangent (3) of the path; zero where the curve stands still.");
}

void bindCurve(TrajectoryClass& trajectory) {
    trajectory.def(py::init<>(), "A trajectory without points.")
        .def("setPoints", &Trajectory::setPoints, py::arg("points"),
             "Sets the control points: the data of a list of trajectoryPoint3d. The curve changes "
             "only\n"
             "at the next fit.")
        .def("fit", &Trajectory::fit,
             "Lays a uniform cubic B-spline along the control points. It takes four points or more "
             "to\n"
             "evaluate the curve then.");
}

void bindPoses(PoseTrajectoryClass& trajectory) {
    trajectory.def(py::init<>(), "A trajectory without points and samples.")
        .def("sample", &mlTPTrajectory::sample, py::arg("sample_num"),
             "Takes sample_num poses at even steps of the curve's parameter, the end left out. "
             "Raises\n"
             "RuntimeError before fit, ValueError for a negative number or a curve of fewer than "
             "four\n"
             "points.")
        .def("getLastIdx", &mlTPTrajectory::getLastIdx,
             "Index of the sample that the latest getTargetPose or getReferencePose with an index\n"
             "found; pass it to the next one.")
        .def(
            "getTargetPose",
            [](mlTPTrajectory& self, const Eigen::Vector3d& position, int preSampleIdx,
               int look_forward) {
                return self.getTargetPose(position, preSampleIdx, look_forward);
            },
            py::arg("position"), py::arg("preSampleIdx"), py::arg("look_forward"),
            "The sample after the one that a body at position (3) [m] has reached, searched from\n"
            "preSampleIdx over look_forward samples; never back. getLastIdx gives the index "
            "reached.\n"
            "Raises IndexError without samples and at the last one.")
        .def("getSampleNum", &mlTPTrajectory::getSampleNum, "Number of samples.")
        .def(
            "getPose", &mlTPTrajectory::getPose, py::arg("t"),
            "The pose at progress t, 0 the start and 1 the end of the curve; t is clamped. Raises\n"
            "RuntimeError before fit, ValueError for a curve of fewer than four points.")
        .def("getCurvature", &mlTPTrajectory::getCurvature, py::arg("t"),
             "The second derivative (3) [m] at parameter t of the curve's first segment, t being\n"
             "clamped to 0 .. 1. Raises as getPose.")
        .def("getReferencePose",
             py::overload_cast<const Eigen::Vector3d&>(&mlTPTrajectory::getReferencePose,
                                                       py::const_),
             py::arg("position"), "Get Pose t using spline")
        .def("getReferencePose",
             py::overload_cast<const Eigen::Vector3d&, int, int>(&mlTPTrajectory::getReferencePose),
             py::arg("position"), py::arg("posIdx"), py::arg("look_forward") = 10,
             "Get Pose t using samples within lookforward range");
}

void bindController(ControllerClass& controller) {
    controller
        .def(py::init<double, double, double>(), py::arg("Kp"), py::arg("Kd"), py::arg("timestep"),
             "As make_controller.")
        .def("feedback", &mlSimplePDControl_1D::feedback, py::arg("value"), py::arg("timestep"),
             "The output for a value measured timestep seconds after the one before. The first "
             "call\n"
             "takes its difference from 0.")
        .def("set_value", &mlSimplePDControl_1D::set_value, py::arg("desired_value"),
             "Sets the desired value.")
        .def("set_dvalue", &mlSimplePDControl_1D::set_dvalue, py::arg("desired_dvalue") = 0.0,
             "Sets the desired value too: the desired rate is always 0.")
        .def("reset", &mlSimplePDControl_1D::reset,
             "Forgets the measurements and the desired value; the gains stay.");
}

}  // namespace

void bindTrajectory(py::module_& module) {
    PointClass point(module, "trajectoryPoint3d", "One control point of a trajectory.");
    PosePointClass posePoint(
        module, "trajectoryPosePoint3d",
        "A place on a path and the direction of the path there; data is the place.");
    TrajectoryClass trajectory(module, "trajectory3d",
                               "A path in space along control points. Order of use: setPoints, "
                               "fit, then draw or write it.");
    PoseTrajectoryClass poseTrajectory(
        module, "poseTrajectory",
        "A path to follow. Order of use: setPoints, fit, sample, then the queries.\n"
        "getReferencePose gives the progress of a body at position (3) [m], from 0 to 1: without "
        "an\n"
        "index that of the nearest of all samples (nan if there are none); with the index posIdx "
        "of\n"
        "the call before, that of the sample reached within look_forward samples, plus the "
        "distance\n"
        "[m] from it to the body's projection. It raises IndexError without samples and for an "
        "index\n"
        "past the last one.");
    py::class_<mlVTKLine, std::shared_ptr<mlVTKLine>> line(module, "debugLine",
                                                           "A polyline for VTKWriter.");
    py::class_<mlVTKWrtier, std::shared_ptr<mlVTKWrtier>> writer(
        module, "VTKWriter",
        "Writes legacy VTK files as text. Missing folders are created. A file that cannot be "
        "written\n"
        "gives False, and one warning per folder on standard error.");
    ControllerClass controller(
        module, "PDControl1D",
        "Proportional-derivative controller: Kp (desired - value) - Kd rate, the rate being the\n"
        "difference to the value of the call before over the time step. Units are the script's.");

    bindFactories(module);
    bindPoints(point, posePoint);
    bindCurve(trajectory);
    bindPoses(poseTrajectory);
    line.def(py::init<>(), "A line without vertices.")
        .def_readwrite("vertices", &mlVTKLine::vertices,
                       "List of positions (3) [m]. Reading gives a copy: assign a whole list.");
    writer
        .def_static("writeLines", &mlVTKWrtier::writeLines, py::arg("lines"), py::arg("file_path"),
                    "Writes a list of debugLine. Gives whether the file was written.")
        .def_static(
            "writeTrajectory", &mlVTKWrtier::writeTrajectory, py::arg("trajectory").none(false),
            py::arg("file_path"),
            "Writes the fitted curve with its first derivatives, 200 samples a control point.\n"
            "Gives whether the file was written. Raises RuntimeError before fit, ValueError for\n"
            "fewer than four control points; no file is touched then.");
    bindController(controller);
}

}  // namespace drelt
