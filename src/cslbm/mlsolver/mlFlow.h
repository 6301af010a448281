// The state of one fluid domain: a box of lattice nodes.
//
// Node (x, y, z) has the index n = x + nx*(y + ny*z); populations are direction-major, entry (i, n)
// at i*count + n. Left and Right are the faces x = 0 and nx-1, Down and Up y = 0 and ny-1, Forward
// and Back z = 0 and nz-1. Quantities are in lattice units unless a line says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace drelt {

// Class of a node. Set at initialisation; read by the alternative operators only.
enum MLLATTICENODE_FLAG : std::int32_t {
    ML_NODE_NONE = 0,   // excluded; initialisation leaves it as it is
    ML_NODE_FLUID = 1,  // ordinary fluid, the first class of every node
    ML_NODE_LEFT = 4,
    ML_NODE_RIGHT = 5,
    ML_NODE_FORWARD = 6,
    ML_NODE_BACK = 7,
    ML_NODE_DOWN = 8,
    ML_NODE_UP = 9,
    ML_NODE_SOLID = 10,  // solid; initialisation leaves it as it is
    ML_NODE_INLET = 11,  // prescribed velocity
};

// Place of a node in the absorbing layer. The layer's operators use central differences at PML_INTERIOR,
// none at PML_NONE, and one-sided differences at all others, which lie on the outermost plane.
enum PML_TYPE : std::int32_t {
    PML_EDGE = 0,        // in the layer, on two or three outer faces (corners of the box excepted)
    PML_INTERIOR = 1,    // in the layer, on no outer face
    PML_FACE_UP = 2,     // y = ny-1
    PML_FACE_DOWN = 3,   // y = 0
    PML_FACE_LEFT = 4,   // x = 0
    PML_FACE_RIGHT = 5,  // x = nx-1
    PML_FACE_BACK = 6,   // z = nz-1
    PML_FACE_FORWARD = 7,  // z = 0
    PML_CORNER = 8,        // one of the eight corners of the box, layer or not
    PML_NONE = 9,          // outside the layer: the physical domain
};

// Density of a node; an array of it has the layout of an array of float.
template <class T>
struct mlDensity {
    T value;
};

// Three components by value, for arguments of device operators.
template <class T>
struct mlVelocity3D {
    T x, y, z;
};

// Parameters of a domain. Copied to the device once; from then on only waveStep changes. The start in this
// record stays where the box was created; the start in the flow record follows the body.
struct MLFluidParam {
    float startx, starty, startz;                  // centre minus half the box [m]
    float endx, endy, endz;                        // position of the last node [m]
    std::int32_t samples_x, samples_y, samples_z;  // nx, ny, nz
    float width, height, depth;                    // box size along x, y, z [m]
    float dx;                                      // node spacing [m]
    std::int32_t reserved;                         // 1
    float waveStep;          // 0; the wave source counts its steps here, as an unsigned integer
    std::int32_t count32;    // count, truncated to 32 bits
    std::int32_t pml_width;  // thickness of the absorbing layer [nodes]
    float slip_ratio;        // 0 no-slip .. 1 free slip at the immersed surface
    float bodyAccelx, bodyAccely, bodyAccelz;  // constant body acceleration, 0
};

// The state record. One stands on the host, with arrays from allocateHostArray that freeHostArrays frees.
// One stands on the device, with the same layout and with arrays that the domain owns. It is copied to
// the device as one block; then the array pointers are replaced one by one.
struct mlFlow {
    float* f;                  // populations after streaming (27 x count)
    float* fPost;              // populations after collision (27 x count)
    float* fStore;             // spare populations of the alternative operators (27 x count)
    MLLATTICENODE_FLAG* flag;  // node class (count)
    float* ux;  // raw momentum from the moment pass until the frame forcing, velocity shifted by
    float* uy;  // half the force from then until the next moment pass (count each)
    float* uz;
    mlDensity<float>* rou;   // density (count)
    MLFluidParam* param;     // parameters (1)
    double* forcex;          // force density on the nodes (count each): summed by the spreading and
    double* forcey;          // the frame forcing, consumed by the collision, cleared by the moment
    double* forcez;          // pass
    float* planeBuffer;      // host scratch, one x-y plane (nx * ny); never on the device
    float* momentMatrix;     // host scratch (27 * 27); never on the device
    float* momentMatrixInv;  // host scratch (27 * 27); never on the device
    float* Sopt;             // high-order relaxation parameter, in viscosity units (count)
    PML_TYPE* PML_type;      // place in the absorbing layer (count)
    std::int64_t count;      // number of nodes, nx * ny * nz
    float* Q;                // layer: deviation from fEqBar, mean of two time levels (27 x count)
    float* cNQ;              // layer: derivative of Q along each direction (27 x count)
    float* fEqBar;           // layer: reference equilibrium, at rest with density 1 (27 x count)
    float* fEqTilde;         // layer: deviation of the equilibrium from fEqBar (27 x count)
    float* fEqTildeOld;      // layer: the same of the step before (27 x count)
    float* sigma;            // layer: damping strength per time step (count)
    float startx, starty, startz;  // position of node (0, 0, 0) [m]; follows the body
    float v0k;                     // kinematic viscosity
    float cs;                      // 1/sqrt(3); no operator reads it
    std::uint64_t reserved;        // 0
};

namespace detail {
void* zeroedPages(std::size_t count, std::size_t size);
}

// A host array of a record, all zero. A page of a large one takes memory when it is first written.
// Throws std::bad_alloc.
template <class T>
void allocateHostArray(T*& array, std::int64_t count) {
    array = static_cast<T*>(
        detail::zeroedPages(static_cast<std::size_t>(count > 0 ? count : 1), sizeof(T)));
}

// Frees the host arrays of a record and sets their pointers to null. Null pointers are skipped.
void freeHostArrays(mlFlow& flow);

}  // namespace drelt
