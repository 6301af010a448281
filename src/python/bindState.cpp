// Restart and state files.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <string>
#include <vector>

#include "python/bindings.h"
#include "python/simulatorCalls.h"
#include "trajectory/mlSimplePDControl_1D.h"

namespace py = pybind11;

namespace drelt {
namespace {

constexpr const char* kBytes = "bytes";
constexpr const char* kArray = "npy";  // NumPy's file format
constexpr const char* kJson = "json";

std::string arrayBytes(const py::object& array) {
    const py::object file = py::module_::import("io").attr("BytesIO")();
    py::module_::import("numpy").attr("save")(file, array, py::arg("allow_pickle") = false);
    return file.attr("getvalue")().cast<py::bytes>();
}

py::object arrayFrom(const py::bytes& bytes) {
    const py::object file = py::module_::import("io").attr("BytesIO")(bytes);
    const py::object array =
        py::module_::import("numpy").attr("load")(file, py::arg("allow_pickle") = false);
    // a NumPy number comes back as one
    return array.attr("ndim").cast<int>() == 0 ? array[py::tuple()] : array;
}

// Bytes of a value of `extra`, and what they are.
StateExtra packed(const std::string& key, const py::object& value) {
    const py::module_ numpy = py::module_::import("numpy");
    try {
        if (py::isinstance<py::bytes>(value)) return {key, kBytes, value.cast<std::string>()};
        if (py::isinstance(value, numpy.attr("ndarray")) ||
            py::isinstance(value, numpy.attr("generic"))) {
            return {key, kArray, arrayBytes(value)};
        }
        return {key, kJson, py::module_::import("json").attr("dumps")(value).cast<std::string>()};
    } catch (py::error_already_set& error) {
        if (!error.matches(PyExc_TypeError) && !error.matches(PyExc_ValueError)) throw;
        throw py::type_error("saveState: extra['" + key + "'] cannot be saved (" +
                             py::str(error.value()).cast<std::string>() +
                             "); give an array of numbers, bytes, or what JSON can hold");
    }
}

std::vector<StateExtra> packAll(const py::dict& extra) {
    std::vector<StateExtra> all;
    for (const auto& [key, value] : extra) {
        if (!py::isinstance<py::str>(key)) {
            throw py::type_error("saveState: the keys of extra must be strings; one is " +
                                 py::repr(key).cast<std::string>());
        }
        all.push_back(packed(key.cast<std::string>(), py::reinterpret_borrow<py::object>(value)));
    }
    return all;
}

py::dict unpackAll(const std::vector<StateExtra>& extras) {
    py::dict all;
    for (const StateExtra& extra : extras) {
        const py::bytes bytes(extra.bytes);
        const py::str key(extra.key);
        if (extra.kind == kBytes) {
            all[key] = bytes;
        } else if (extra.kind == kArray) {
            all[key] = arrayFrom(bytes);
        } else {
            all[key] = py::module_::import("json").attr("loads")(py::str(extra.bytes));
        }
    }
    return all;
}

void save(coupledLBM_sim3D& self, const std::filesystem::path& path, const py::object& extra) {
    const InUse use(self.inUse, "saveState");
    const std::vector<StateExtra> extras =
        extra.is_none() ? std::vector<StateExtra>() : packAll(extra.cast<py::dict>());
    const py::gil_scoped_release others;
    self.saveState(path.string(), extras);
}

py::dict load(coupledLBM_sim3D& self, const std::filesystem::path& path) {
    const InUse use(self.inUse, "loadState");
    std::vector<StateExtra> extras;
    {
        const py::gil_scoped_release others;
        extras = self.loadState(path.string());
    }
    return unpackAll(extras);
}

}  // namespace

void bindState(SimulatorClass& simulator) {
    simulator
        .def("restart", alone("restart", &coupledLBM_sim3D::restart),
             "Back to right after commitInit: fluid, bodies with the pose and velocities that they "
             "had,\n"
             "markers, gravity, current, counters. The run that follows equals one in a new "
             "process; on "
             "host\n"
             "threads, bit for bit. reset() in contrast keeps the density that was last saved. "
             "Raises\n"
             "RuntimeError before commitInit, and if bodies got other samples since.")
        .def("saveState", &save, py::arg("path"), py::arg("extra") = py::none(),
             "Writes all that the coming steps depend on into one file (HDF5, compressed): fluid, "
             "bodies\n"
             "with their commands, markers, counters, gravity, current. The file is written under\n"
             "another name beside it and renamed when it is on the disk, so a process that is "
             "killed\n"
             "leaves the last whole one. `extra` is a dict of what the script needs to go on: "
             "under each\n"
             "string an array of numbers, bytes, or what JSON can hold (PDControl1D.getState). "
             "Other\n"
             "threads go on meanwhile. Raises RuntimeError before commitInit and if the file "
             "cannot be\n"
             "written (a file that was there is unchanged), TypeError for an extra that cannot be "
             "saved.")
        .def(
            "loadState", &load, py::arg("path"),
            "Takes the state of a file that saveState wrote, and returns its extra (tuples come "
            "back as\n"
            "lists). Needs a simulator after commitInit, built as the one that was saved. On host\n"
            "threads the run goes on as the uninterrupted one does, bit for bit, with any number "
            "of\n"
            "threads. Reads and checks the whole file first: it needs memory for a second state. "
            "Raises\n"
            "RuntimeError before commitInit, for a file that cannot be read, is none, is damaged "
            "or has\n"
            "another format, and ValueError for one of another scene or schedule, with the first\n"
            "difference. Then nothing has changed.");
}

}  // namespace drelt
