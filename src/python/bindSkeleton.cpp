// Bodies: descriptions, live skeletons with their joints, links and markers, and the world.
#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <memory>
#include <string>
#include <utility>

#include "Markers/Markers.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/requireFinite.h"
#include "SkeletonDynamics/skJoint.h"
#include "SkeletonDynamics/skLink.h"
#include "SkeletonDynamics/skSystem.h"
#include "SkeletonDynamics/skWorld.h"
#include "python/bindings.h"

namespace py = pybind11;
using Eigen::Vector3d;

namespace drelt {
namespace {

std::shared_ptr<skSystem> makeSystem(const std::shared_ptr<SkeletonSystem>& skeleton, int sampleNum,
                                     int gpuId, const Vector3d& translation,
                                     const Vector3d& rotation, const Vector3d& scaling) {
    requireFinite(scaling, "the skeleton's scaling");
    return std::make_shared<skSystem>(skeleton, sampleNum, gpuId, translation, rotation);
}

void bindFactories(py::module_& module) {
    module.def("skeletonFromJson", &skeletonFromJson, py::arg("json_name"), py::arg("gpuId"),
               "Reads a skeleton description file (JSON) and the mesh that it names. A\n"
               "relative path of the mesh starts at the working directory. Raises RuntimeError\n"
               "for a file that cannot be read, for values that are missing or of the wrong\n"
               "type (with the JSON library's text, the file and the key) and for a damaged\n"
               "model, ValueError for a device that does not exist.");
    module.def(
        "make_skeletonSystem",
        [](const std::string& modelFile, int gpuId) {
            return std::make_shared<SkeletonSystem>(modelFile, gpuId);
        },
        py::arg("model_file"), py::arg("gpuId"), py::pos_only(),
        "New description from a model file and a device id. Raises ValueError for a\n"
        "device that does not exist, RuntimeError for a damaged model. An unreadable\n"
        "file gives an empty description.");
    module.def("make_skDynamics", &makeSystem, py::arg("Skeleton"), py::arg("sampleNum"),
               py::arg("gpuId"), py::arg("translation"), py::arg("rotation"), py::arg("scaling"),
               py::pos_only(),
               "New body from a description, number of samples, device id, translation [m],\n"
               "rotation [degrees] and scaling (without effect). Raises what SkeletonDynamics\n"
               "raises.");
    module.def(
        "make_skWorld", [](const Vector3d& gravity) { return std::make_shared<skWorld>(gravity); },
        py::arg("Gravity"), py::pos_only(), "New world with this gravity [m/s^2].");
}

void bindJoint(BodyClass<skJoint>& joint) {
    joint
        .def("getJointType", &skJoint::getJointType,
             "Joint type as in the description, such as 'revolute'.")
        .def("getName", &skJoint::getName, "Name of the joint's node.")
        .def("getNumDofs", &skJoint::getNumDofs, "Number of degrees of freedom (DOFs).")
        .def("setCommand", &skJoint::setCommand, py::arg("command"),
             "Commands of all DOFs for the next step. The actuator says what they mean\n"
             "(forces, velocities). All setters raise ValueError for a number that is not\n"
             "finite; those with a vector also raise it for another length.")
        .def("setForce", &skJoint::setForce, py::arg("force"),
             "Forces [N] or moments [N m] for the next step. They act only if the actuator\n"
             "is 'force'; otherwise a warning is printed once.")
        .def("setPositions", &skJoint::setPositions, py::arg("positions"), "[m] or [rad].")
        .def("setPosition", &skJoint::setPosition, py::arg("dof"), py::arg("position"),
             "One DOF. All setters of one DOF raise IndexError for a DOF that does not\n"
             "exist.")
        .def("getPositions", &skJoint::getPositions, "[m] or [rad], one per DOF.")
        .def("getVelocities", &skJoint::getVelocities, "[m/s] or [rad/s], one per DOF.")
        .def("setVelocity", &skJoint::setVelocity, py::arg("dof"), py::arg("velocity"), "One DOF.")
        .def("getAccelerations", &skJoint::getAccelerations, "[m/s^2] or [rad/s^2], one per DOF.")
        .def("setAcceleration", &skJoint::setAcceleration, py::arg("dof"), py::arg("acceleration"),
             "One DOF.");
}

void bindLink(BodyClass<skLink>& link) {
    link.def("getMass", &skLink::getMass, "[kg]. Raises RuntimeError for a link without a body.")
        .def("getName", &skLink::getName, "Name of the link.")
        .def("getAngularVelocity", &skLink::getAngularVelocity, "World axes [rad/s], shape (3,).")
        .def("getLinearVelocity", &skLink::getLinearVelocity, "World axes [m/s], shape (3,).")
        .def("getAngularAcceleration", &skLink::getAngularAcceleration,
             "World axes [rad/s^2], shape (3,).")
        .def("getLinearAcceleration", &skLink::getLinearAcceleration,
             "World axes [m/s^2], shape (3,).")
        .def("getPosition", &skLink::getPosition, "World position [m], shape (3,).")
        .def("getRotation", &skLink::getRotation, "Euler angles about x, y, z [rad], shape (3,).");
}

void bindMarkers(BodyClass<Markers>& markers) {
    const auto list = [](auto Markers_CPU::*values) {
        return [values](const Markers& self) { return self.data_cpu.*values; };
    };
    markers
        .def("getMarkersPos", list(&Markers_CPU::pos), "World positions [m], a list of shape (3,).")
        .def("getMarkersNormal", list(&Markers_CPU::normal),
             "Vertex normals, world axes, a list of shape (3,).")
        .def("getMarkersPressure", list(&Markers_CPU::pressure),
             "Fluid densities at the markers, lattice units; 1 is the fluid at rest.")
        .def("getMarkersVel", list(&Markers_CPU::velocity),
             "Fluid momenta at the markers, lattice units, a list of shape (3,).");
}

void bindPose(BodyClass<skSystem>& system) {
    system
        .def("setHead", &skSystem::setHead, py::arg("position"), py::arg("target_orientation"),
             "Turns the body so that its forward axis points along target_orientation, and\n"
             "moves its root to position [m]. This pose becomes the zero of the joints;\n"
             "joint positions other than zero are added to it, and reset() returns to it.\n"
             "Raises ValueError for a number that is not finite.")
        .def("sample", &skSystem::sample, py::arg("sampleNum"),
             "Places about sampleNum new samples. They stay in the rest pose until the next\n"
             "update(). Each call adds the mesh area to the total again, so a second call\n"
             "places half as many. Raises ValueError for a number that is negative or does\n"
             "not fit into memory.")
        .def("getBaseLinkFwd", &skSystem::getBaseLinkFwd, "Forward axis, world, shape (3,).")
        .def("getBaseLinkRight", &skSystem::getBaseLinkRight, "Right axis, world, shape (3,).")
        .def("getBaseLinkUp", &skSystem::getBaseLinkUp, "Up axis, world, shape (3,).")
        .def("getBaseLink", &skSystem::getBaseLink,
             "The link that defines the heading; None if the description names none.")
        .def("getLink", &skSystem::getLink, py::arg("name"), "None for an unknown name.")
        .def("getJoint", &skSystem::getJoint, py::arg("name"), "None for an unknown name.")
        .def("update", &skSystem::update,
             "Updates frame, mesh, markers and samples from the joint state.");
}

void bindState(BodyClass<skSystem>& system) {
    system.def("getNumDofs", &skSystem::getNumDofs, "Number of actuated DOFs.")
        .def("getForces", &skSystem::getForces, "Generalised forces of all DOFs [N, N m].")
        .def("getVelocities", &skSystem::getVelocities, py::arg("includeBase") = true,
             "[m/s, rad/s], shape (m,); without the DOFs of the first joint if includeBase\n"
             "is False.")
        .def("getPositions", &skSystem::getPositions, py::arg("includeBase") = true,
             "[m, rad], shape (m,); without the DOFs of the first joint if includeBase is\n"
             "False.")
        .def("getAccelerations", &skSystem::getAccelerations, "Of all DOFs [m/s^2, rad/s^2].")
        .def("getCOM", &skSystem::getCOM,
             "Centre of mass, world [m], shape (3,). Raises RuntimeError for a body without\n"
             "mass, as do the velocities of the centre of mass.")
        .def("getCOMLinearVelocity", &skSystem::getCOMLinearVelocity,
             "Velocity of the centre of mass, world [m/s], shape (3,).")
        .def("getCOMAngularVelocity", &skSystem::getCOMAngularVelocity,
             "Lower half of the spatial velocity of the centre of mass, world, shape (3,).\n"
             "In spite of the name this is the linear part [m/s].")
        .def("setForces", &skSystem::setForces, py::arg("forces"),
             "Generalised forces of all DOFs for the next step. They act on joints with the\n"
             "actuator 'force' only; for other joints, a force that is not zero prints a\n"
             "warning once per body. Raises ValueError for another length and for a number\n"
             "that is not finite.")
        .def("getCommands", &skSystem::getCommands, "Commands of the actuated DOFs.")
        .def("setCommands", &skSystem::setCommands, py::arg("commands"),
             "Commands of the actuated DOFs for the next step. Raises ValueError for another\n"
             "length and for a number that is not finite.")
        .def("getMarkers", &skSystem::getMarkers, "The probes on the body's skin.");
}

void bindWorld(BodyClass<skWorld>& world) {
    world.def(py::init<const Vector3d&>(), py::arg("Gravity") = Vector3d(0, 0, 0), "[m/s^2]")
        .def("addSkeleton", &skWorld::addSkeleton, py::arg("SkeletonDynamics"),
             "Adds a body. The fluid grid follows the first one. Raises ValueError for a\n"
             "body that is in a world already, RuntimeError after a simulator has committed\n"
             "this world.")
        .def("getSkeleton", &skWorld::getSkeleton, py::arg("index"),
             "Raises IndexError for an index without a body.")
        .def("setTimestep", &skWorld::setTimestep, py::arg("timestep"),
             "[s]. Each step of a simulator sets its own. Raises ValueError unless positive\n"
             "and finite.")
        .def("getTimestep", &skWorld::getTimestep, "[s]")
        .def("setGravity", &skWorld::setGravity, py::arg("gravity"),
             "[m/s^2], shape (3,). Raises ValueError for a number that is not finite.")
        .def("reset", &skWorld::reset,
             "Sets all joints to their first positions and velocities, and the time to zero.\n"
             "A pose given by setHead stays.")
        .def_property_readonly("time", &skWorld::getTime, "Simulated time [s].");
}

}  // namespace

void bindSkeleton(py::module_& module) {
    // All classes first, so that signatures name them.
    bindForceKinds(module);
    BodyClass<SkeletonSystem> description(
        module, "SkeletonSystem", "A mesh with the joints and links derived from its bones.");
    BodyClass<skJoint> joint(module, "SkeletonJoint",
                             "A joint of a body. Stays usable after the body is deleted.");
    BodyClass<skLink> link(module, "SkeletonLink",
                           "A link of a body. Stays usable after the body is deleted.");
    BodyClass<Markers> markers(module, "Markers",
                               "Probes on a body's skin. They read the fluid after each step.");
    BodyClass<skSystem> system(
        module, "SkeletonDynamics",
        "A live articulated body. Vectors over degrees of freedom (DOFs) are in\n"
        "the order of its joints.");
    BodyClass<skWorld> world(module, "DartWorld", "The bodies of a simulation.");

    bindFactories(module);
    description.def(py::init<const std::string&, int>(), py::arg("model_file"), py::arg("gpuId"),
                    "The same as make_skeletonSystem.");
    bindJoint(joint);
    bindLink(link);
    bindMarkers(markers);
    system.def(py::init(&makeSystem), py::arg("Skeleton"), py::arg("sampleNum") = 5000,
               py::arg("gpuId") = 0, py::arg("translation") = Vector3d(0, 0, 0),
               py::arg("rotation") = Vector3d(1, 1, 1), py::arg("scaling") = Vector3d(1, 1, 1),
               "Builds the body of a description and places it: translation [m] and rotation\n"
               "[degrees; note the default] are added to the root joint's pose; scaling has no\n"
               "effect. Raises RuntimeError for a mesh without joints and for a joint that\n"
               "DART cannot solve for. Raises ValueError for a base link, base frame or mimic\n"
               "master that does not exist, a device that does not exist or is not the\n"
               "description's, numbers in the description that no body can have, a negative\n"
               "number of samples, and a vector that is not finite.");
    bindPose(system);
    bindState(system);
    bindForces(link, system);
    bindWorld(world);
}

}  // namespace drelt
