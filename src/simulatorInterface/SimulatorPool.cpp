#include "simulatorInterface/SimulatorPool.h"

#include <omp.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <exception>
#include <map>
#include <utility>

#include "Markers/Markers.h"
#include "platform/check.h"
#include "platform/runtime.h"
#include "simulatorInterface/InUse.h"

namespace drelt {
namespace {

std::string named(int world) { return "world " + std::to_string(world); }

std::string textOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown failure";
    }
}

// One text for all worlds that failed.
std::string describe(const std::vector<int>& failed,
                     const std::vector<std::exception_ptr>& failures) {
    std::string text;
    for (const int i : failed) text += named(i) + ": " + textOf(failures[i]) + "\n";
    return text +
           "The other worlds of the pool have completed their steps; these stay at the step that "
           "failed.";
}

// Each body's mesh belongs to its description, so worlds that are stepped at the same time cannot share one.
void requireOwnDescriptions(const SimulatorPool::Worlds& worlds) {
    std::map<const SkeletonSystem*, int> owners;
    for (int i = 0; i < static_cast<int>(worlds.size()); ++i) {
        const skWorld& world = *worlds[i]->world;
        for (int b = 0; b < world.getNumSkeletons(); ++b) {
            const auto owner = owners.emplace(world.getSkeleton(b)->description().get(), i).first;
            if (owner->second == i) continue;
            throw std::invalid_argument(
                "make_pool: " + named(owner->second) + " and " + named(i) +
                " have bodies of the same description object, so they share a "
                "mesh; load the description once for each world");
        }
    }
}

}  // namespace

// The right of one thread to use a pool, for the scope.
class SimulatorPool::Turn {
public:
    Turn(SimulatorPool& pool, const char* operation) : busy_(pool.busy_) {
        if (busy_.exchange(true)) {
            throw std::runtime_error(std::string(operation) +
                                     ": another thread is using this pool; wait until it has "
                                     "finished, or use one pool per thread");
        }
    }
    ~Turn() { busy_ = false; }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    std::atomic<bool>& busy_;
};

std::vector<SimulatorPool::BodyShape> SimulatorPool::shapesOf(const skWorld& world) {
    std::vector<BodyShape> shapes;
    for (int b = 0; b < world.getNumSkeletons(); ++b) {
        const skSystem& body = *world.getSkeleton(b);
        shapes.push_back({body.getPositions().size(), body.getPositions(false).size(),
                          body.getNumDofs(), body.getMarkers()->data_cpu.pressure.size()});
    }
    return shapes;
}

void SimulatorPool::check(const Worlds& worlds) {
    if (worlds.empty()) {
        throw std::invalid_argument("make_pool: got no simulators; give at least one");
    }
    for (std::size_t i = 0; i < worlds.size(); ++i) {
        const std::string name = "make_pool: simulator " + std::to_string(i);
        if (!worlds[i]) throw std::invalid_argument(name + " is None; give a simulator");
        if (std::find(worlds.begin(), worlds.begin() + static_cast<std::ptrdiff_t>(i), worlds[i]) !=
            worlds.begin() + static_cast<std::ptrdiff_t>(i)) {
            throw std::invalid_argument(name + " is in the list twice; give each simulator once");
        }
        if (!worlds[i]->solver) {
            throw std::runtime_error(name + " is not initialised; call its commitInit first");
        }
        if (worlds[i]->inPool()) {
            throw std::invalid_argument(name +
                                        " is in another pool; delete that pool first, or make "
                                        "another simulator");
        }
        if (worlds[i]->gpuId != worlds[0]->gpuId) {
            throw std::invalid_argument(name + " is on device " + std::to_string(worlds[i]->gpuId) +
                                        ", simulator 0 on device " +
                                        std::to_string(worlds[0]->gpuId) +
                                        "; make all on the same device");
        }
        const auto first = shapesOf(*worlds[0]->world), own = shapesOf(*worlds[i]->world);
        const bool equal = std::equal(own.begin(), own.end(), first.begin(), first.end(),
                                      [](const BodyShape& a, const BodyShape& b) {
                                          return a.dofs == b.dofs &&
                                                 a.dofsWithoutBase == b.dofsWithoutBase &&
                                                 a.actuated == b.actuated && a.markers == b.markers;
                                      });
        if (!equal) {
            throw std::invalid_argument(
                name +
                " has bodies that differ from those of simulator 0 in their "
                "number, degrees of freedom or markers; give worlds with "
                "equal bodies");
        }
    }
    requireOwnDescriptions(worlds);
}

SimulatorPool::SimulatorPool(Worlds worlds) : membership_(std::make_shared<char>()) {
    check(worlds);
    worlds_ = std::move(worlds);
    shapes_ = shapesOf(*worlds_.front()->world);
    for (const BodyShape& body : shapes_) commandsPerWorld_ += body.actuated;
    for (const auto& world : worlds_) {
        bodies_.push_back(world->world);
        world->joinPool(membership_);
    }
}

const std::shared_ptr<coupledLBM_sim3D>& SimulatorPool::world(int index) const {
    if (index >= 0 && index < size()) return worlds_[index];
    throw std::out_of_range("the pool holds " + std::to_string(size()) + " simulators; index " +
                            std::to_string(index) + " names none, give 0 to " +
                            std::to_string(size() - 1));
}

// The right to use all worlds, as long as the result lives.
std::vector<std::unique_ptr<InUse>> SimulatorPool::useWorlds(const char* operation) const {
    std::vector<std::unique_ptr<InUse>> uses;
    for (const auto& world : worlds_)
        uses.push_back(std::make_unique<InUse>(world->inUse, operation));
    return uses;
}

// A simulator whose second commit has failed takes another world.
void SimulatorPool::requireUnchanged() const {
    for (int i = 0; i < size(); ++i) {
        const auto& bodies = bodies_[i];
        if (worlds_[i]->world == bodies &&
            bodies->getNumSkeletons() == static_cast<int>(shapes_.size())) {
            continue;
        }
        throw std::runtime_error("simulator " + std::to_string(i) +
                                 " of the pool has got other bodies since the pool was made; make "
                                 "a new pool");
    }
}

void SimulatorPool::requireCommands(const PoolCommands& commands, int count) const {
    if (commands.rows != 1 && commands.rows != count) {
        throw std::invalid_argument("step: got commands for " + std::to_string(commands.rows) +
                                    " steps; give 1 row or " + std::to_string(count) +
                                    ", one for each step");
    }
    const std::size_t perWorld = static_cast<std::size_t>(commands.rows) * commandsPerWorld_;
    for (std::size_t i = 0; i < perWorld * worlds_.size(); ++i) {
        if (std::isfinite(commands.values[i])) continue;
        throw std::invalid_argument("step: the commands of world " + std::to_string(i / perWorld) +
                                    " contain " + std::to_string(commands.values[i]) +
                                    "; give finite numbers");
    }
}

// Bodies are computed by one thread, so steps without fluid gain nothing from more threads than worlds.
// With few worlds for many threads, all threads share the fluid of one world after the other. GPUs are
// selected for the process, so worlds there take turns.
bool SimulatorPool::worldsInParallel(couplingMode mode) const {
    checkCudaErrors(cudaSetDevice(worlds_.front()->gpuId));
    if (!platform::onHostDevice()) return false;
    return !advancesFluid(mode) || 2 * size() > omp_get_max_threads();
}

void SimulatorPool::stepWorld(int index, couplingMode mode, const PoolCommands* commands,
                              int count) const {
    coupledLBM_sim3D& simulator = *worlds_[index];
    const skWorld& world = *bodies_[index];
    for (int step = 0; step < count; ++step) {
        if (commands != nullptr) {
            const int row = index * commands->rows + (commands->rows == 1 ? 0 : step);
            const double* values =
                commands->values + static_cast<std::ptrdiff_t>(row) * commandsPerWorld_;
            for (int b = 0; b < world.getNumSkeletons(); ++b) {
                const int own = shapes_[b].actuated;
                if (own > 0) {
                    world.getSkeleton(b)->setCommands(
                        Eigen::Map<const Eigen::VectorXd>(values, own));
                }
                values += own;
            }
        }
        simulator.step(mode);
    }
}

void SimulatorPool::step(couplingMode mode, const PoolCommands* commands, int count) {
    const Turn turn(*this, "step");
    failedWorlds_.clear();
    requireCouplingMode(mode, "step");
    if (count < 1) {
        throw std::invalid_argument("step: got a count of " + std::to_string(count) +
                                    " steps; give 1 or more");
    }
    const auto uses = useWorlds("step of a pool");
    requireUnchanged();
    if (commands != nullptr) requireCommands(*commands, count);
    std::vector<std::exception_ptr> failures(worlds_.size());
    const auto run = [&](int i) {
        try {
            stepWorld(i, mode, commands, count);
        } catch (...) {
            failures[i] = std::current_exception();
        }
    };
    if (worldsInParallel(mode)) {
        // bodies are computed with the caller's rounding and denormals, as alone
        std::fenv_t arithmetic;
        std::fegetenv(&arithmetic);
        const int worlds = size();
        const int threads = std::min(worlds, omp_get_max_threads());
#pragma omp parallel num_threads(threads)
        {
            std::fesetenv(&arithmetic);
            omp_set_num_threads(1);  // for the launches of this thread, inside this region only
#pragma omp for schedule(dynamic, 1)
            for (int i = 0; i < worlds; ++i) run(i);
        }
    } else {
        for (int i = 0; i < size(); ++i) run(i);
    }
    for (int i = 0; i < size(); ++i) {
        if (failures[i]) failedWorlds_.push_back(i);
    }
    if (!failedWorlds_.empty()) throw std::runtime_error(describe(failedWorlds_, failures));
}

void SimulatorPool::requireBody(int body) const {
    if (body >= 0 && body < static_cast<int>(shapes_.size())) return;
    throw std::out_of_range("each world of the pool holds " + std::to_string(shapes_.size()) +
                            " bodies, counted from 0: there is none with index " +
                            std::to_string(body));
}

SimulatorPool::Rows SimulatorPool::gather(
    int body, const std::function<Eigen::VectorXd(const skSystem&)>& read) {
    const Turn turn(*this, "read-out");
    const auto uses = useWorlds("read-out of a pool");
    requireUnchanged();
    requireBody(body);
    Rows rows;
    for (int i = 0; i < size(); ++i) {
        const Eigen::VectorXd row = read(*bodies_[i]->getSkeleton(body));
        if (i == 0) rows.resize(size(), row.size());
        rows.row(i) = row.transpose();
    }
    return rows;
}

SimulatorPool::Rows SimulatorPool::positions(int body, bool includeBase) {
    return gather(body, [&](const skSystem& b) { return b.getPositions(includeBase); });
}

SimulatorPool::Rows SimulatorPool::velocities(int body, bool includeBase) {
    return gather(body, [&](const skSystem& b) { return b.getVelocities(includeBase); });
}

SimulatorPool::Rows SimulatorPool::centresOfMass(int body) {
    return gather(body, [](const skSystem& b) { return b.getCOM(); });
}

SimulatorPool::Rows SimulatorPool::centreVelocities(int body) {
    return gather(body, [](const skSystem& b) { return b.getCOMLinearVelocity(); });
}

SimulatorPool::Rows SimulatorPool::forwardAxes(int body) {
    return gather(body, [](const skSystem& b) { return b.getBaseLinkFwd(); });
}

SimulatorPool::Rows SimulatorPool::rightAxes(int body) {
    return gather(body, [](const skSystem& b) { return b.getBaseLinkRight(); });
}

SimulatorPool::Rows SimulatorPool::upAxes(int body) {
    return gather(body, [](const skSystem& b) { return b.getBaseLinkUp(); });
}

SimulatorPool::Rows SimulatorPool::markerDensities(int body) {
    return gather(body, [](const skSystem& b) -> Eigen::VectorXd {
        const auto& densities = b.getMarkers()->data_cpu.pressure;
        return Eigen::Map<const Eigen::VectorXf>(densities.data(),
                                                 static_cast<Eigen::Index>(densities.size()))
            .cast<double>();
    });
}

std::vector<int> SimulatorPool::failedWorlds() {
    const Turn turn(*this, "read-out");
    return failedWorlds_;
}

std::vector<int> SimulatorPool::iterations() {
    const Turn turn(*this, "read-out");
    std::vector<int> done;
    for (const auto& world : worlds_) done.push_back(world->getIterNum());
    return done;
}

}  // namespace drelt
