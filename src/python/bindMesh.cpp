// Looks inside models, descriptions and bodies: the file as it stands, derived joints and links, the skin.
#include "python/bindMesh.h"

#include <pybind11/eigen.h>
#include <pybind11/stl.h>

#include <dart/dynamics/DegreeOfFreedom.hpp>
#include <dart/dynamics/Skeleton.hpp>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MeshLoad/RawScene.h"
#include "MeshLoad/SkeletalMesh.h"
#include "MeshLoad/VolumeMoments.h"
#include "SkeletonDynamics/BodyArrays.h"
#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/skJoint.h"
#include "SkeletonDynamics/skJointMgr.h"
#include "SkeletonDynamics/skSystem.h"

namespace py = pybind11;
using pybind11::literals::operator""_a;

namespace drelt {
namespace {

py::dict readMeshFile(const std::string& path) {
    const RawScene scene = readRawScene(path);
    py::list nodes, meshes, materials;
    for (const RawNode& node : scene.nodes) {
        nodes.append(py::dict("name"_a = py::bytes(node.name), "parent"_a = node.parent,
                              "transform"_a = node.transform, "meshes"_a = node.meshes));
    }
    for (const RawMesh& mesh : scene.meshes) {
        py::list bones;
        for (const RawBone& bone : mesh.bones) {
            bones.append(py::dict("name"_a = py::bytes(bone.name), "offset"_a = bone.offset,
                                  "vertices"_a = py::array_t<int>(py::cast(bone.vertices)),
                                  "weights"_a = py::array_t<double>(py::cast(bone.weights))));
        }
        meshes.append(py::dict("name"_a = py::bytes(mesh.name), "material"_a = mesh.material,
                               "vertices"_a = mesh.vertices, "normals"_a = mesh.normals,
                               "faces"_a = mesh.faces, "bones"_a = bones));
    }
    for (const RawMaterial& material : scene.materials) {
        materials.append(
            py::dict("name"_a = py::bytes(material.name), "colour"_a = material.colour));
    }
    py::dict metadata;
    for (const auto& [key, value] : scene.metadata) metadata[py::bytes(key)] = py::bytes(value);
    return py::dict("nodes"_a = nodes, "meshes"_a = meshes, "materials"_a = materials,
                    "metadata"_a = metadata);
}

py::list jointRecords(const SkeletonSystem& system) {
    py::list records;
    for (const auto& joint : system.joints) {
        const auto parent = joint->parent.lock();
        const auto link = system.linksByJoint.find(joint->name);
        records.append(py::dict(
            "name"_a = joint->name, "parent"_a = parent ? py::cast(parent->name) : py::none(),
            "transform"_a = joint->node->worldTransform.matrix(),
            "type"_a = kJointTypeWords[joint->type], "actuator"_a = kActuatorWords[joint->actuator],
            "axis"_a = joint->axis, "intermediate"_a = joint->isIntermediate,
            "link"_a =
                link == system.linksByJoint.end() ? py::none() : py::cast(link->second->name)));
    }
    return records;
}

py::list linkRecords(const SkeletonSystem& system) {
    std::map<const SkeletonLink*, std::string> keys;  // the description may rename links
    for (const auto& [key, link] : system.linksByName) keys[link.get()] = key;
    py::list records;
    for (const auto& link : system.links) {
        std::vector<std::string> children;
        for (const auto& child : link->childJoints) children.push_back(child->name);
        records.append(py::dict("key"_a = keys[link.get()], "name"_a = link->name,
                                "joint"_a = link->parentJoint->name, "children"_a = children,
                                "transform"_a = link->transform.matrix(), "mass"_a = link->mass,
                                "size"_a = link->size, "intermediate"_a = link->isIntermediate));
    }
    return records;
}

double areaOf(const BodyArrays::Rows& skin, const BodyArrays::IndexRows& faces) {
    double area = 0;
    for (Eigen::Index f = 0; f < faces.rows(); ++f) {
        const Eigen::Vector3d a = skin.row(faces(f, 0)), b = skin.row(faces(f, 1)),
                              c = skin.row(faces(f, 2));
        area += 0.5 * (b - a).cross(c - a).norm();
    }
    return area;
}

double volumeOf(const skSystem& body) {
    const BodyArrays::Rows skin = BodyArrays::skinVertices(body);
    const BodyArrays::IndexRows faces = BodyArrays::skinFaces(body);
    std::vector<Eigen::Vector3d> vertices;
    for (Eigen::Index v = 0; v < skin.rows(); ++v) vertices.emplace_back(skin.row(v));
    std::vector<FaceVertices> triangles;
    for (Eigen::Index f = 0; f < faces.rows(); ++f)
        triangles.push_back({faces(f, 0), faces(f, 1), faces(f, 2)});
    return volumeMoments(vertices, triangles).volume;
}

std::vector<std::string> dofNames(const skSystem& body) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < body.skeleton()->getNumDofs(); ++i)
        names.push_back(body.skeleton()->getDof(i)->getName());
    return names;
}

std::vector<std::string> jointNames(const skSystem& body) {
    std::vector<std::string> names;
    for (const auto& joint : body.joints().joints) names.push_back(joint->getName());
    return names;
}

// Adds a method to a class that another file has bound.
template <class Function>
void addMethod(const py::object& cls, const char* name, Function&& function, const char* doc) {
    cls.attr(name) =
        py::cpp_function(std::forward<Function>(function), py::name(name), py::is_method(cls), doc);
}

void bindBody(const py::object& body) {
    addMethod(body, "getJointNames", &jointNames,
              "Names of all joints, in the order of their degrees of freedom (DOFs).");
    addMethod(body, "getDofNames", &dofNames,
              "Names of all DOFs in the order of getPositions. A joint with one DOF gives it its\n"
              "own name; otherwise the name ends in _x, _y, _z, _rot_x and so on.");
    addMethod(
        body, "getDescription", [](const skSystem& self) { return self.description(); },
        "The description that the body was built from. Its getJoints tells where the joints are\n"
        "since the latest update().");
    addMethod(
        body, "getBoundingBox",
        [](const skSystem& self) {
            const BodyArrays::Rows skin = BodyArrays::skinVertices(self);
            Eigen::Matrix<double, 2, 3, Eigen::RowMajor> box;
            box.setZero();
            if (skin.rows() > 0) box << skin.colwise().minCoeff(), skin.colwise().maxCoeff();
            return box;
        },
        "Least and largest coordinates of the skin as getSkinVertices gives it, world [m], shape\n"
        "(2, 3).");
    addMethod(
        body, "getSurfaceArea",
        [](const skSystem& self) {
            return areaOf(BodyArrays::skinVertices(self), BodyArrays::skinFaces(self));
        },
        "Area of the skin as getSkinVertices gives it [m^2].");
    addMethod(body, "getVolume", &volumeOf,
              "Volume inside the closed part of the skin as getSkinVertices gives it [m^3]; 0 for\n"
              "an open sheet.");
}

}  // namespace

void bindMesh(py::module_& module) {
    module.def("readMeshFile", &readMeshFile, py::arg("path"),
               "Reads a model file of any format that Assimp reads, as it stands: a dict with\n"
               "'nodes' (name, parent, transform (4, 4) to the parent, meshes), 'meshes' (name,\n"
               "material, vertices (n, 3), normals (n, 3), faces (m, 3), bones: name, offset\n"
               "(4, 4), vertices, weights), 'materials' (name, colour (4,)) and 'metadata'. Names\n"
               "are bytes, lengths are the file's. Raises RuntimeError for a file that cannot be\n"
               "read and for a damaged model.");
    const py::object description = module.attr("SkeletonSystem");
    addMethod(description, "getJoints", &jointRecords,
              "The derived joints in the order of derivation, as dicts: name, parent (None at a\n"
              "root), transform (4, 4) of the joint's frame at rest, world [m], type, actuator,\n"
              "axis, intermediate (stands at a fork), link (name, None at the end of a bone).");
    addMethod(description, "getLinks", &linkRecords,
              "The derived links by their keys in the description file, as dicts: key, name,\n"
              "joint, children (names of joints), transform (4, 4) of the link's frame at rest,\n"
              "world [m], mass [kg], size (3,) [m], intermediate.");
    bindBody(module.attr("SkeletonDynamics"));
}

}  // namespace drelt
