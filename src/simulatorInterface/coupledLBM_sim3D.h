// The simulator that a script drives: owns the host side of the fluid and the solver, keeps host and
// device copies in step with what is asked, counts steps and writes frames.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SkeletonDynamics/skWorld.h"
#include "cslbm/mlsolver/couplingMode.h"
#include "cslbm/mlsolver/mlFlow.h"
#include "cslbm/mlsolver/mlSinglePhaseSolverNew.h"
#include "simulatorInterface/simParams.h"

namespace drelt {

// What saveScene writes; a set of bits.
enum SCENE_SAVE_FLAG : int {
    BODY = 1,
    FLUID = 2,
};

// Order of use: construct, attachWorld, commitInit, then step and save. Calls out of order raise
// std::runtime_error and change nothing.
class coupledLBM_sim3D {
public:
    // Which copy of the flow is current.
    enum SyncState : std::int32_t {
        HostCurrent = 0,  // the host arrays are as new as the device's
        DeviceNewer = 1,  // a fluid step has run, or nothing was read yet
        HostNewer = 2,    // reset: the next fluid step uploads
    };

    // Builds the flow record of the box that `param` describes and normalises `param`, which stays
    // shared with the caller. Raises std::invalid_argument for null and for a box that cannot be,
    // std::runtime_error where its arrays do not fit into memory.
    coupledLBM_sim3D(std::shared_ptr<simParams> param, int gpuId);
    // The same parameters and device with a flow record of its own; flow data are not copied.
    coupledLBM_sim3D(const coupledLBM_sim3D& other);
    coupledLBM_sim3D& operator=(const coupledLBM_sim3D&) = delete;
    ~coupledLBM_sim3D();

    // Sets the bodies, shared with the caller; before commitInit only.
    void attachWorld(std::shared_ptr<skWorld> bodies);
    // Creates the solver, writes the initial equilibrium, centres the grid on the moving frame and
    // brings everything to the device. Needs a world with at least one body, on the same device; bodies
    // cannot be added to the world after it. A second call starts the fluid anew. Raises, and changes
    // nothing, std::invalid_argument unless reference velocities, time step and the fluid's numbers can be,
    // std::runtime_error where memory does not suffice for what the choices below ask for.
    void commitInit();
    // One time step of fluid and bodies, after which the markers are read. Raises std::runtime_error
    // where a body or the force on it diverges; see skWorld.
    void step(couplingMode couple_mode);
    // Back to the start of fluid and bodies; allocations stay. The density is the last one downloaded.
    void reset();

    // Three further operations on the flow; they need commitInit. Where they change it they first bring
    // the flow to the host if a fluid step has run since, and the next fluid step takes the change up.
    //
    // A velocity in units of the reference velocity: each component divided by u0k.
    std::array<double, 3> toReferenceVelocity(float x, float y, float z);
    // Makes the node of a domain at `position` [m] an inlet with `velocity` times u0k. Raises
    // std::out_of_range for a position outside the box or a domain that does not exist, and
    // std::invalid_argument for a velocity that is not finite; nothing is changed then.
    void markInlet(int domain, const mlVelocity3D<float>& position,
                   const mlVelocity3D<float>& velocity);
    // Brings the inlets of a domain to rest as plain fluid and sets all node classes anew from the
    // physical positions, nodes of a face's class at rest too. Raises std::out_of_range for a domain
    // that does not exist.
    void clearInlets(int domain);

    int getIterNum() const { return iterNum; }
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
    // (operators or production) comes first. Where the production schedule cannot serve a
    // domain (excluded or solid nodes, a box with no node between its open planes) or one of the choices
    // below is not the default, commitInit takes the operators.
    Schedule schedule = Schedule::Production;
    // The collision and the boundaries of a step, as of the next commitInit.
    CollisionOperator collisionOperator = CollisionOperator::HighorderFitted;
    BoundaryFamily boundaryFamily = BoundaryFamily::NonEquilibriumExtrapolation;
    // Root of the output tree, with a separator at its end, and its folders.
    std::string mainDataFolderPath = "./data/vis_data/";
    std::string objectsFolderName = "Objects";
    std::string fluidFolderName = "Fluid";
    std::shared_ptr<mlSinglePhaseSolverNew> solver;  // null until commitInit
    std::int32_t iterNum = 0;                        // completed steps, of every mode
    std::vector<mlFlow*> lbmvec;                     // host records, owned
    std::vector<std::shared_ptr<simParams>> params;  // shared with the script
    std::int32_t syncState = DeviceNewer;
    std::shared_ptr<skWorld> world;

private:
    void createFlows();
    void checkBodies() const;
    void checkTimeStep() const;
    void checkFluid() const;
    void requireSolver(const char* operation) const;
    mlFlow& requireDomain(const char* operation, int domain) const;
    std::shared_ptr<mlSinglePhaseSolverNew> createSolver() const;
    void checkMemory(const mlSinglePhaseSolverNew& next) const;
    void initialise();
    void sampleMarkers();
    void centreOnBody();
    void bringToHost();
    void bringOriginsToHost();

    bool populationsWritten_ = false;  // the host's, by a commit
};

}  // namespace drelt
