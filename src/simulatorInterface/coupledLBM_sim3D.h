// The simulator that a script drives: owns the host records of the fluid and the solver, synchronises host
// and device copies, counts steps and writes frames.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/skWorld.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"
#include "platform/vector3.h"
#include "simulatorInterface/BodyWatch.h"
#include "simulatorInterface/StateFile.h"
#include "simulatorInterface/simParams.h"

namespace drelt {

// What saveScene writes; a set of bits.
enum SCENE_SAVE_FLAG : int {
    BODY = 1,
    FLUID = 2,
};

// Order of use: construct, attachWorld, commitInit, then step and save. Calls out of order throw
// std::runtime_error and change nothing.
class coupledLBM_sim3D {
public:
    // Which copy of the flow is current.
    enum SyncState : std::int32_t {
        HostCurrent = 0,  // the host arrays are as new as the device's
        DeviceNewer = 1,  // a fluid step has run, or nothing was read yet
        HostNewer = 2,    // a reset or a host edit: the next fluid step uploads
    };

    // Builds the flow record of the box that `param` describes and normalises `param`, which stays
    // shared with the caller. Throws std::invalid_argument for null, for a device id that names no
    // device and for a box that is impossible, std::runtime_error if its arrays do not fit into memory.
    coupledLBM_sim3D(std::shared_ptr<simParams> param, int gpuId);
    // The same parameters and device with a flow record of its own; flow data are not copied.
    coupledLBM_sim3D(const coupledLBM_sim3D& other);
    coupledLBM_sim3D& operator=(const coupledLBM_sim3D&) = delete;
    ~coupledLBM_sim3D();

    // Sets the bodies, shared with the caller; before commitInit only.
    void attachWorld(std::shared_ptr<skWorld> bodies);
    // Creates the solver, writes the initial equilibrium, centres the grid on the moving frame and
    // uploads everything. Needs a world with at least one body, on the same device. Locks the world until
    // this simulator is destroyed or a commit fails. A second call starts the fluid anew.
    //
    // Throws std::invalid_argument and leaves the simulator unchanged if a reference velocity, the time
    // step, the node spacing, a fluid property or an option is out of range, in the parameters or in the
    // flow record that was made from them. Throws std::runtime_error, also without a change, if the world belongs to
    // another simulator, or if memory does not suffice for the choices below. Warns of parameters that
    // were edited after the flow record was made: the record keeps the old ones.
    void commitInit();
    // One time step of fluid and bodies, after which the markers are read. Throws std::invalid_argument
    // for a number that is no mode, and std::runtime_error if a body or the force on it diverges (see
    // skWorld), and, before anything changes, for options that differ from those of the commit. Warns of bodies outside the fluid box; see BodyWatch.
    void step(couplingMode couple_mode);
    // Back to the start of fluid and bodies; allocations stay. The density is the last one downloaded.
    void reset();

    // Back to right after commitInit: the run that follows equals one in a new process, on host threads bit
    // for bit. Throws std::runtime_error before commitInit, and if bodies got other samples since.
    void restart();
    // Writes all that the coming steps depend on into one file, and reads it back. A run that goes on from a
    // file equals the uninterrupted one, on host threads bit for bit with any number of threads. `extras` is
    // the script's own. Loading needs a committed simulator of the same scene. Both throw std::runtime_error
    // before commitInit and for a file that cannot be written or read (see StateFile.h), loading also
    // std::invalid_argument for another scene; nothing has changed then.
    void saveState(const std::string& path, const std::vector<StateExtra>& extras = {});
    std::vector<StateExtra> loadState(const std::string& path);

    // The velocity of the fluid far away [m/s], world axes, that characteristic planes hold. It acts from
    // the next step on; a reset starts with it, a commit takes that of the parameters. Throws
    // std::invalid_argument, before anything changes, if the numbers are not finite, for a current that
    // copied planes would lose, and for one above Mach 0.3 of the lattice. Both throw std::runtime_error
    // before commitInit.
    void setCurrent(const Eigen::Vector3d& velocity);
    Eigen::Vector3d getCurrent() const;

    // Three more operations on the flow; they need commitInit. Those that change it work on the latest
    // flow, brought to the host, and the next fluid step uploads the change.
    //
    // A velocity in units of the reference velocity: each component divided by u0k.
    std::array<double, 3> toReferenceVelocity(float x, float y, float z);
    // Makes the node of a domain at `position` [m] an inlet with `velocity` times u0k. Throws
    // std::out_of_range for a position outside the box or a domain that does not exist, and
    // std::invalid_argument for a velocity that is not finite; nothing changes then.
    void markInlet(int domain, const mlVelocity3D<float>& position,
                   const mlVelocity3D<float>& velocity);
    // Makes the inlets of a domain plain fluid at rest and sets all node classes anew from the physical
    // positions; nodes that get the class of a face come to rest too. Throws std::out_of_range for a
    // domain that does not exist.
    void clearInlets(int domain);

    int getIterNum() const { return iterNum; }
    // Membership in a pool of simulators: it lasts as long as the given object.
    void joinPool(const std::shared_ptr<const void>& membership) { pool_ = membership; }
    bool inPool() const { return !pool_.expired(); }
    // Steps between two frames; see simParams.
    int getIterPerSave(int frame_rate);
    // Prints scales and grid on standard output.
    void log();

    // Writes frame `frame` under generated names; save_flags is a set of SCENE_SAVE_FLAG.
    void saveScene(int frame, int save_flags);
    // Writes meshes and markers of all bodies into the objects folder.
    void saveObjectsData(const std::string& object_name);
    // Writes the fluid of all domains into the fluid folder.
    void saveFluidData(const std::string& fluid_name);

    int gpuId = 0;
    // How steps are computed, as of the next commitInit; the environment variable DRELT_SCHEDULE
    // (operators or production) overrides it. commitInit takes the operators, and says why, if the
    // production schedule cannot compute a domain (see ProductionDomain::obstacle) or if one of the
    // choices below is not the default.
    Schedule schedule = Schedule::Production;
    // The collision and the boundaries of a step, as of the next commitInit.
    CollisionOperator collisionOperator = CollisionOperator::HighorderFitted;
    BoundaryFamily boundaryFamily = BoundaryFamily::NonEquilibriumExtrapolation;
    // Root of the output tree, which ends in a separator, and its folders.
    std::string mainDataFolderPath = "./data/vis_data/";
    std::string objectsFolderName = "Objects";
    std::string fluidFolderName = "Fluid";
    std::shared_ptr<mlSinglePhaseSolverNew> solver;  // null until commitInit
    std::int32_t iterNum = 0;                        // completed steps, of every mode
    std::vector<mlFlow*> lbmvec;                     // host records, owned here
    std::vector<std::shared_ptr<simParams>> params;  // shared with the script
    std::int32_t syncState = DeviceNewer;
    std::shared_ptr<skWorld> world;
    // The operation that is under way, or null; see InUse. The operations themselves do not set it.
    std::atomic<const char*> inUse{nullptr};

private:
    void createFlows();
    void checkWorld() const;
    void checkTimeStep() const;
    void checkSpacing() const;
    void checkFluid() const;
    void checkOptions() const;
    void checkRetraction() const;
    void requireOptionsOfCommit() const;
    double retractionInMetres() const;
    void takeOptions(mlSinglePhaseSolverNew& next) const;
    void retractSamples();
    Vector3<float> startVelocity();
    void warnOfEdits() const;
    void requireSolver(const char* operation) const;
    mlFlow& requireDomain(const char* operation, int domain) const;
    std::shared_ptr<mlSinglePhaseSolverNew> createSolver() const;
    void checkMemory(const mlSinglePhaseSolverNew& next) const;
    void initialise();
    void releaseWorld();
    void advance(couplingMode couple_mode);
    void sampleMarkers();
    void centreOnBody();
    void bringToHost();
    void bringOriginsToHost();
    void startFluid(const Vector3<float>& velocity);
    void rememberCommit(const Vector3<float>& velocity);
    void restoreHostRecords();
    std::vector<std::string> describeScene() const;
    void visitState(StateVisitor& state);
    void visitSolver(StateVisitor& state);
    void visitHostRecords(StateVisitor& state);

    // What restart goes back to, besides what the parameters say.
    struct Commit {
        std::vector<std::string> scene;
        StateStore state;                  // of bodies and counters
        Vector3<float> velocity{0, 0, 0};  // that the fluid starts with [lattice units]
        // Classes of nodes that initialisation does not give, and forces on the host; none in most runs.
        std::vector<std::map<std::int64_t, MLLATTICENODE_FLAG>> classes;
        std::vector<std::vector<double>> forces;
    };
    Commit commit_;
    simParams committed_;              // the parameters as the commit took them
    bool populationsWritten_ = false;  // in the host records, by a commit
    bool locksWorld_ = false;
    std::weak_ptr<const void> pool_;
    BodyWatch watch_;
};

}  // namespace drelt
