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
    // Lets samples stand `distance` [m] inside the skin, or half the local thickness where that is less
    // (see SampleInset.h), from the next update on. Samples that are generated later keep it. 0 puts
    // them back on the skin. Their areas and normals stay those of the skin. Throws
    // std::invalid_argument for a distance that is negative or not finite.
    void setRetraction(double distance);
    double retraction() const { return retraction_; }

    // A coupling to a grid with this node spacing [m] begins: no sample has a force yet.
    void beginCoupling(double spacing);
    double spacing() const { return spacing_; }  // 0 before a coupling
    // Sets the forces of all samples to 0, as before the first step.
    void clearForces();

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
    // How far each sample stands inside the skin [m]; empty without a retraction.
    const std::vector<float>& insets() const { return insets_; }

private:
    SkeletalMesh* mesh_;
    IBBoundaryMemMgr mgr_;
    mlLagrangeBoundary* boundary_ = nullptr;
    double retraction_ = 0;  // [m]
    double spacing_ = 0;     // of the nodes [m]
    std::vector<float> insets_;
    float* insets_dev_ = nullptr;  // null while insets_ is empty

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
    void uploadInsets();
};

}  // namespace drelt
