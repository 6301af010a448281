// The device mirror of one boundary record.
#pragma once

#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"

namespace drelt {

// Owns the device record of a boundary with its sixteen arrays and moves them between the sides. In
// a step nothing crosses: the device side is the live one, and its readers take mllaboundary_gpu
// and the host record's count. Order of calls: bindHostRecord, allocate, upload; then any number of
// uploads and downloads. Calls of the device are checked: a failure ends the process.
class IBBoundaryMemMgr {
public:
    explicit IBBoundaryMemMgr(int device = 0) : gpuDeviceId(device) {}
    // Frees the mirror; the host record belongs to the sampler.
    ~IBBoundaryMemMgr();
    IBBoundaryMemMgr(const IBBoundaryMemMgr&) = delete;
    IBBoundaryMemMgr& operator=(const IBBoundaryMemMgr&) = delete;

    // Takes the host record that the mirror follows; it must outlive the mirror or be replaced here.
    void bindHostRecord(mlLagrangeBoundary* record) { mllaboundary = record; }
    // Makes the device record and arrays for the bound record's count, in place of earlier ones.
    void allocate();
    // Host to device: all arrays and the record, whose array pointers are device addresses after it.
    void upload();
    // Keeps the scales, writes nodes per length and length [m] into the bound record, and uploads.
    // `velocity` is the reference velocity [m/s], `latticeVelocity` the same in lattice units.
    void setScale(float nodesPerLength, float length, float velocity, float latticeVelocity);
    // Device to host: ux.., coordx.., normalx.. and forcex..; the device record goes to mllagbndHost.
    // Initial positions and densities of the host stay as they are.
    void download();
    // Frees the mirror; nothing happens without one.
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
    mlLagrangeBoundary* mllaboundary = nullptr;      // host record, not owned
    mlLagrangeBoundary* mllaboundary_gpu = nullptr;  // device record; null without a mirror
    mlLagrangeBoundary* mllagbndHost = nullptr;  // image of the device record at the last download
    float N = 0.0f;
    float l0p = 0.0f;
    float u0p = 0.0f;
    float u0k = 0.0f;
};

}  // namespace drelt
