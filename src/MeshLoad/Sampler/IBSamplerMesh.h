// The samples of a skinned mesh: blue-noise points tied to triangles, which follow the skin.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "MeshLoad/MeshFace.h"
#include "MeshLoad/Sampler/IBSampler.h"
#include "MeshLoad/SkeletalMesh.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "supplement/IBBoundaryMemMgr.h"

namespace drelt {

class IBSamplerMesh : public IBSampler<SkeletalMesh> {
public:
    // The mesh must outlive the sampler. A null mesh gives no samples.
    IBSamplerMesh(SkeletalMesh* mesh, int device);
    ~IBSamplerMesh() override;

    // Places about sampleNum samples on the mesh at rest, sorts them by the links of their faces and
    // uploads them. Deterministic: restarts the C library's random generator. Prints a warning if fewer
    // than 90% are placed: triangles much smaller than the area of a sample get none. Throws as
    // requireSampleCount.
    void generateSamples(int sampleNum) override;
    // Throws std::invalid_argument for a number of samples that is negative or does not fit into memory.
    static void requireSampleCount(int sampleNum);

    void updateOnHost() override;    // normals are not normalised
    void updateOnDevice() override;  // normals have unit length
    void allocateDevice() override;
    void freeDevice() override;
    void copyToDevice() override;
    void copyToHost() override;
    // Updates the samples from the mesh's current pose. fetch copies device results to the host.
    void update(bool onDevice, bool fetch) override;

    // The device mirror of the boundary.
    IBBoundaryMemMgr& boundaryMgr() { return mgr_; }
    // The host boundary, null before samples are generated.
    mlLagrangeBoundary* boundary() { return boundary_; }
    int sampleCount() const { return static_cast<int>(samples.size()); }

private:
    SkeletalMesh* mesh_;
    IBBoundaryMemMgr mgr_;
    mlLagrangeBoundary* boundary_ = nullptr;

public:
    bool hostDirty = false;
    bool deviceDirty = false;
    float totalArea = 0;  // grows by the mesh's area at each sampling [m^2]
    std::vector<MeshSample> samples;
    std::vector<int> sampleLinks;  // links of the samples, never decreasing
    std::vector<Eigen::Matrix<double, 6, 1>> sampleWrenches;  // moment, force of each sample
    MeshSample* samples_dev = nullptr;
    Eigen::Matrix<double, 6, 1>* sampleWrenches_dev = nullptr;
    int* sampleLinks_dev = nullptr;

private:
    void placeSamples(int sampleNum);
    void createBoundary(float sampleArea);
    void freeBoundary();
};

}  // namespace drelt
