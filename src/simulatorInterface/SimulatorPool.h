// Steps independent simulators, called worlds, on the machine's threads.
#pragma once

#include <Eigen/Core>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulatorInterface/InUse.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt {

// Commands of a step: row-major [world][row][actuated DOF], the DOFs of all bodies one after the other. With
// one row per world it holds for all steps, otherwise each step has its row.
struct PoolCommands {
    const double* values;
    int rows;
};

// The worlds are committed simulators with equal bodies. Between the pool's steps each can be used by
// itself. One thread at a time may use a pool; a second one gets std::runtime_error.
class SimulatorPool {
public:
    // One row per world.
    using Rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    using Worlds = std::vector<std::shared_ptr<coupledLBM_sim3D>>;

    // Throws std::invalid_argument for no simulators, null, a simulator that is there twice or is in another
    // pool, another device than the first one's, bodies that differ from the first one's in number, DOFs or
    // markers, and for two worlds whose bodies share a description: they would share a mesh. Throws
    // std::runtime_error for a simulator that is not committed. Nothing changes then.
    explicit SimulatorPool(Worlds worlds);

    int size() const { return static_cast<int>(worlds_.size()); }
    // Throws std::out_of_range for an index without a world.
    const std::shared_ptr<coupledLBM_sim3D>& world(int index) const;
    // Actuated DOFs of all bodies of a world.
    int commandsPerWorld() const { return commandsPerWorld_; }

    // `count` steps of all worlds, each as coupledLBM_sim3D::step. Every world gets the same bits as alone,
    // for any number of threads. Null commands leave those that the bodies have, for the first step.
    //
    // Throws std::invalid_argument, before anything changes, for a number that is no mode, a count below 1,
    // commands that are not finite, and rows that are neither 1 nor `count`. A world that cannot be stepped
    // stays at the step that failed, as by itself; the others complete all steps, then this throws
    // std::runtime_error with the texts of all that failed.
    void step(couplingMode mode, const PoolCommands* commands, int count);

    // Read-outs of one body per world; see skSystem. They throw std::out_of_range for a body that does
    // not exist.
    Rows positions(int body, bool includeBase);
    Rows velocities(int body, bool includeBase);
    Rows centresOfMass(int body);
    Rows centreVelocities(int body);
    Rows forwardAxes(int body);
    Rows rightAxes(int body);
    Rows upAxes(int body);
    // Densities at the markers, lattice units.
    Rows markerDensities(int body);
    // Steps done by each world.
    std::vector<int> iterations();
    // The worlds that the latest step could not complete.
    std::vector<int> failedWorlds();

private:
    // What all worlds have in common.
    struct BodyShape {
        Eigen::Index dofs, dofsWithoutBase;
        int actuated;
        std::size_t markers;
    };
    class Turn;

    static std::vector<BodyShape> shapesOf(const skWorld& world);
    static void check(const Worlds& worlds);
    std::vector<std::unique_ptr<InUse>> useWorlds(const char* operation) const;
    void requireUnchanged() const;
    void requireCommands(const PoolCommands& commands, int count) const;
    bool worldsInParallel(couplingMode mode) const;
    void stepWorld(int index, couplingMode mode, const PoolCommands* commands, int count) const;
    void requireBody(int body) const;
    Rows gather(int body, const std::function<Eigen::VectorXd(const skSystem&)>& read);

    Worlds worlds_;
    std::vector<std::shared_ptr<skWorld>> bodies_;
    std::vector<BodyShape> shapes_;
    int commandsPerWorld_ = 0;
    std::vector<int> failedWorlds_;
    std::shared_ptr<const void> membership_;  // the simulators know by it that they are in a pool
    std::atomic<bool> busy_{false};
};

}  // namespace drelt
