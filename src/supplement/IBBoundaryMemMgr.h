// The device mirror of one boundary record.
#pragma once

#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"

namespace drelt {

class StateVisitor;

// Owns the device record of a boundary with its sixteen arrays and copies them between host and device.
// A step copies nothing: it works on the device record mllaboundary_gpu, with the count of the host
// record. Order of calls: bindHostRecord, allocate, upload; then any number of uploads and downloads.
// A failing device call ends the process.
class IBBoundaryMemMgr {
public:
    explicit IBBoundaryMemMgr(int device = 0) : gpuDeviceId(device) {}
    // Frees the mirror; the host record belongs to the sampler.
    ~IBBoundaryMemMgr();
    IBBoundaryMemMgr(const IBBoundaryMemMgr&) = delete;
    IBBoundaryMemMgr& operator=(const IBBoundaryMemMgr&) = delete;

    // Sets the host record that is mirrored. The record must live until the mirror is gone or gets another.
    void bindHostRecord(mlLagrangeBoundary* record) { mllaboundary = record; }
    // Allocates the device record and its arrays for the count of the host record; frees earlier ones.
    void allocate();
    // Host to device: all arrays and the record. Its array pointers become device addresses.
    void upload();
    // Keeps the scales, writes nodes per length and length [m] into the host record, and uploads.
    // `velocity` is the reference velocity [m/s], `latticeVelocity` the same in lattice units.
    void setScale(float nodesPerLength, float length, float velocity, float latticeVelocity);
    // Device to host: ux.., coordx.., normalx.. and forcex.., and the device record into mllagbndHost.
    // Initial positions and densities are not copied.
    void download();
    // Allocates weights_dev for the count of the host record, unless it is there.
    void reserveWeights();
    void dropWeights();
    // Lists the device's arrays. Call download() after a load where the host reads them.
    void visitState(StateVisitor& state);
    // Frees the mirror, if there is one.
    void free();

    int gpuDeviceId;
    float* ux_dev = nullptr;
    float* uy_dev = nullptr;
    float* uz_dev = nullptr;
    mlDensity<float>* den_dev = nullptr;  // rou
    float* coordx_dev = nullptr;
    float* coordy_dev = nullptr;
    float* coordz_dev = nullptr;
    float* normalx_dev = nullptr;
    float* normaly_dev = nullptr;
    float* normalz_dev = nullptr;
    float* coordInitx_dev = nullptr;
    float* coordInity_dev = nullptr;
    float* coordInitz_dev = nullptr;
    double* forcex_dev = nullptr;
    double* forcey_dev = nullptr;
    double* forcez_dev = nullptr;
    // What the step weighs each sample with, over its area (mlNormaliseForces); null: 1 for all.
    double* weights_dev = nullptr;
    mlLagrangeBoundary* mllaboundary = nullptr;      // host record, not owned
    mlLagrangeBoundary* mllaboundary_gpu = nullptr;  // device record; null without a mirror
    mlLagrangeBoundary* mllagbndHost = nullptr;  // copy of the device record at the last download
    float N = 0.0f;
    float l0p = 0.0f;
    float u0p = 0.0f;
    float u0k = 0.0f;
};

}  // namespace drelt
