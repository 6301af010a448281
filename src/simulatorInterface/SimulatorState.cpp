// Going back to a state: restart, and files that hold one.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "SkeletonDynamics/skSystem.h"
#include "cslbm/domain/HostState.h"
#include "platform/runtime.h"
#include "simulatorInterface/coupledLBM_sim3D.h"
#include "supplement/StateStore.h"

namespace drelt {
namespace {

std::string number(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.9g", value);
    return buffer;
}

template <class Number>
std::string three(Number x, Number y, Number z) {
    return number(x) + " " + number(y) + " " + number(z);
}

std::string nameOf(const FluidDomain& domain) {
    if (domain.schedule() == Schedule::Operators) return "operators";
    return platform::hostReachesDevice() ? "production on host threads" : "production on a device";
}

// The names of the choices are those of their enumerations, by number.
std::vector<std::string> describeFluid(const mlFlow& flow, const mlSinglePhaseSolverNew& solver) {
    const MLFluidParam& grid = *flow.param;
    const mlUnitScale& scale = solver.scale;
    return {
        "nodes = " + three(grid.samples_x, grid.samples_y, grid.samples_z),
        "node spacing [m] = " + number(grid.dx),
        "box [m] = " + three(grid.width, grid.height, grid.depth),
        "layer [nodes] = " + std::to_string(grid.pml_width),
        "damping of the layer = " + number(solver.sigmaMax),
        "slip ratio = " + number(grid.slip_ratio),
        "body acceleration = " + three(grid.bodyAccelx, grid.bodyAccely, grid.bodyAccelz),
        "lattice viscosity = " + number(flow.v0k),
        "time step [s] = " + number(scale.dt),
        "reference velocity [m/s] = " + number(scale.u0px),
        "reference velocity [lattice] = " + number(scale.u0k),
        "reference density [kg/m^3] = " + number(scale.rou0p),
        "collision = " + std::to_string(static_cast<int>(solver.collisionOperator)),
        "boundaries = " + std::to_string(static_cast<int>(solver.boundaryFamily)),
        "open planes = " + std::to_string(static_cast<int>(solver.openPlanes)),
        "coupling = " + std::to_string(static_cast<int>(solver.coupling)),
        "weights = " + std::to_string(static_cast<int>(solver.weights)),
        "points of the delta function = " + std::to_string(solver.ibKernelSelector),
    };
}

// Host arrays that are only at times something else than their first value.
template <class T>
const T* unlessZero(const T* array, std::size_t count) {
    return std::all_of(array, array + count, [](T value) { return value == 0; }) ? nullptr : array;
}

// The classes that initialisation keeps: those of inner nodes, and of nodes that are excluded or solid.
std::map<std::int64_t, MLLATTICENODE_FLAG> unusualClasses(const mlFlow& flow) {
    const MLFluidParam& grid = *flow.param;
    const auto onFace = [](int at, int nodes) { return at == 0 || at == nodes - 1; };
    const auto unusual = [&](std::int64_t n, int x, int y, int z) {
        const bool face =
            onFace(x, grid.samples_x) || onFace(y, grid.samples_y) || onFace(z, grid.samples_z);
        return face ? keepsItsState(flow.flag[n]) : flow.flag[n] != ML_NODE_FLUID;
    };
    std::map<std::int64_t, MLLATTICENODE_FLAG> found;
    if (countNodesWhere(grid, unusual) == 0) return found;
    std::int64_t n = 0;
    for (int z = 0; z < grid.samples_z; ++z) {
        for (int y = 0; y < grid.samples_y; ++y) {
            for (int x = 0; x < grid.samples_x; ++x, ++n) {
                if (unusual(n, x, y, z)) found[n] = flow.flag[n];
            }
        }
    }
    return found;
}

// A host array that a state may lack, in which case it is zero.
void visitForce(StateVisitor& state, const std::string& name, double* array, std::size_t count) {
    state.optionalArray<double>(name, unlessZero(array, count), count, false,
                                [=](const double* from) {
                                    if (from != nullptr) {
                                        std::copy_n(from, count, array);
                                    } else if (unlessZero(array, count) != nullptr) {
                                        std::fill_n(array, count, 0.0);
                                    }
                                });
}

// A host array that matters only before an upload.
template <class T>
void visitForUpload(StateVisitor& state, const std::string& name, T* array, std::size_t count,
                    bool uploads) {
    state.optionalArray<T>(name, uploads ? array : nullptr, count, false, [=](const T* from) {
        if (from != nullptr) std::copy_n(from, count, array);
    });
}

std::string valueOf(const std::string& line) {
    const auto at = line.find(" = ");
    return at == std::string::npos ? line : line.substr(at + 3);
}

// The first difference of two descriptions, as a sentence; empty if there is none.
std::string difference(const std::vector<std::string>& file, const std::vector<std::string>& here) {
    const auto [a, b] = std::mismatch(file.begin(), file.end(), here.begin(), here.end());
    if (a == file.end() && b == here.end()) return {};
    if (a == file.end()) return "it ends before '" + *b + "'";
    if (b == here.end()) return "it has more: '" + *a + "'";
    const std::string name = a->substr(0, a->find(" = "));
    if (name == b->substr(0, b->find(" = "))) {
        return "'" + name + "' is " + valueOf(*a) + " in the file and " + valueOf(*b) + " here";
    }
    return "the file has '" + *a + "' where this scene has '" + *b + "'";
}

}  // namespace

// Lines "name = value", the same for all simulators that can take each other's state.
std::vector<std::string> coupledLBM_sim3D::describeScene() const {
    std::vector<std::string> lines;
    const auto add = [&](const std::string& group, const std::vector<std::string>& more) {
        for (const std::string& line : more) lines.push_back(std::string(group).append(line));
    };
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        const std::string group = "fluid " + std::to_string(i) + ": ";
        add(group, {"schedule = " + nameOf(solver->domain(static_cast<int>(i)))});
        add(group, describeFluid(*lbmvec[i], *solver));
        if (!world->isFixed()) continue;
        const simParams& p = *params.front();
        add(group, {"centre of the box [m] = " + three(p.x0, p.y0, p.z0)});
    }
    add("", {"bodies = " + std::to_string(world->getNumSkeletons())});
    for (int i = 0; i < world->getNumSkeletons(); ++i) {
        add("body " + std::to_string(i) + ": ", world->getSkeleton(i)->identity());
    }
    return lines;
}

// What a restart takes from its snapshot: all but the fluid on the device, which commitInit's own functions
// start anew.
void coupledLBM_sim3D::visitSolver(StateVisitor& state) {
    state.value("steps", iterNum);
    state.value("syncState", syncState);
    state.array("current", solver->current.data(), 3);
    state.value("farDensity", solver->farDensity);
    state.group("world", [&] { world->visitState(state); });
}

// The host's part of the fluid: what the next upload or reset takes from it.
void coupledLBM_sim3D::visitHostRecords(StateVisitor& state) {
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        mlFlow& flow = *lbmvec[i];
        const auto count = static_cast<std::size_t>(flow.count);
        const bool uploads = syncState == HostNewer;
        const bool populations =
            uploads && solver->domain(static_cast<int>(i)).readsHostPopulations();
        state.group("host" + std::to_string(i), [&] {
            state.array("origin", &flow.startx, 3);
            state.array("flag", flow.flag, count);
            state.array("rou", &flow.rou->value, count);
            visitForce(state, "forcex", flow.forcex, count);
            visitForce(state, "forcey", flow.forcey, count);
            visitForce(state, "forcez", flow.forcez, count);
            visitForUpload(state, "ux", flow.ux, count, uploads);
            visitForUpload(state, "uy", flow.uy, count, uploads);
            visitForUpload(state, "uz", flow.uz, count, uploads);
            visitForUpload(state, "f", flow.f, 27 * count, populations);
            visitForUpload(state, "fPost", flow.fPost, 27 * count, populations);
        });
    }
}

void coupledLBM_sim3D::visitState(StateVisitor& state) {
    visitSolver(state);
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        state.group("fluid" + std::to_string(i),
                    [&] { solver->domain(static_cast<int>(i)).visitState(state); });
    }
    visitHostRecords(state);
}

void coupledLBM_sim3D::rememberCommit(const Vector3<float>& velocity) {
    commit_ = {};
    commit_.scene = describeScene();
    commit_.velocity = velocity;
    StateSaver saver;
    visitSolver(saver);
    commit_.state = saver.take();
    for (const mlFlow* const flow : lbmvec) {
        commit_.classes.push_back(unusualClasses(*flow));
        const auto count = static_cast<std::size_t>(flow->count);
        for (const double* force : {flow->forcex, flow->forcey, flow->forcez}) {
            const double* const any = unlessZero(force, count);
            commit_.forces.emplace_back(any, any == nullptr ? any : any + count);
        }
    }
}

void coupledLBM_sim3D::restoreHostRecords() {
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        mlFlow& flow = *lbmvec[i];
        std::fill_n(flow.flag, flow.count, ML_NODE_FLUID);
        for (const auto& [node, flag] : commit_.classes[i]) flow.flag[node] = flag;
        const std::vector<double>* kept = &commit_.forces[3 * i];
        for (double* const force : {flow.forcex, flow.forcey, flow.forcez}) {
            if (kept->empty()) {
                clearWritten(force, flow.count);
            } else {
                std::copy(kept->begin(), kept->end(), force);
            }
            ++kept;
        }
    }
}

void coupledLBM_sim3D::restart() {
    requireSolver("restart");
    const std::string changed = difference(commit_.scene, describeScene());
    if (!changed.empty()) {
        throw std::runtime_error("restart: the scene has changed since commitInit (" + changed +
                                 "); call commitInit, which starts from the scene as it is");
    }
    StateLoader loader(commit_.state);
    visitSolver(loader);
    world->stateLoaded();
    if (!world->isFixed()) centreOnBody();
    restoreHostRecords();
    startFluid(commit_.velocity);
    watch_.start();
    watch_.look(*world, *lbmvec.front(), 0);
}

void coupledLBM_sim3D::saveState(const std::string& path, const std::vector<StateExtra>& extras) {
    requireSolver("saveState");
    writeStateFile(path, describeScene(), extras,
                   [this](StateVisitor& state) { visitState(state); });
}

std::vector<StateExtra> coupledLBM_sim3D::loadState(const std::string& path) {
    requireSolver("loadState");
    StateFileContent content = readStateFile(path);
    const std::string other = difference(content.scene, describeScene());
    if (!other.empty()) {
        throw std::invalid_argument("loadState: '" + path + "' is of another scene: " + other +
                                    "; build the scene as it was, nothing was changed");
    }
    StateChecker checker(content.arrays);
    visitState(checker);
    if (!checker.mismatch().empty()) {
        throw std::invalid_argument("loadState: the state in '" + path +
                                    "' does not fit this simulator: " + checker.mismatch() +
                                    "; build the scene as it was, nothing was changed");
    }
    StateLoader loader(content.arrays, true);
    visitSolver(loader);
    world->stateLoaded();
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        FluidDomain& domain = solver->domain(static_cast<int>(i));
        loader.group("fluid" + std::to_string(i), [&] { domain.visitState(loader); });
        domain.stateLoaded(syncState == HostNewer);
        // the host's copies of what the device has, which no file needs
        if (syncState == HostCurrent) domain.syncToHost(*lbmvec[i]);
    }
    visitHostRecords(loader);
    return std::move(content.extras);
}

}  // namespace drelt
