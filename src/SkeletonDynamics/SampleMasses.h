// The operators of the semi-implicit coupling between samples and links. A sample's force is linear in its
// velocity, so it acts on its link like a point mass: these operators sum the point masses of each link, and
// add to the forces of the samples what the links' new velocities change. SI units, double precision.
#pragma once

#include <vector>

#include "SkeletonDynamics/LabelReduction.h"
#include "SkeletonDynamics/skSystem_GPU.h"
#include "cslbm/mlimmersedbnd/SampleGrid.h"

namespace drelt {

// Sums over point masses mu at the places r from a link's origin, in link coordinates: mu [kg]; mu times
// x, y, z [kg m]; mu times xx, yy, zz, yz, xz, xy [kg m^2].
using LinkMassSums = Eigen::Matrix<double, 10, 1>;

// What the velocities of a link's samples gain in a step: angular [rad/s], then linear at the link's origin
// [m/s], in link coordinates of the pose before the step.
using LinkVelocityGain = Eigen::Matrix<double, 6, 1>;

// Forms the ten terms of sample i: 0 for a sample outside the grid, and for a label outside the links. The
// point mass is density times area times dx, dx being the node spacing [m], times the sample's weight.
// `weights` may be null for 1.
DRELT_HOST_DEVICE void sampleMass(const skLinkData* links, const mlLagrangeBoundary* boundary,
                                  const int* labels, const double* weights, std::int64_t i,
                                  int linkCount, const SampleGrid& grid, float dx, double* sums) {
    for (int c = 0; c < 10; ++c) sums[c] = 0.0;
    const int k = labels[i];
    if (k < 1 || k >= linkCount || !grid.takes(boundary, i)) return;
    double mu = static_cast<double>(grid.rou0p) * static_cast<double>(boundary->rou[i].value) *
                static_cast<double>(boundary->sampleArea) * static_cast<double>(dx);
    if (weights != nullptr) mu *= weights[i];
    const link::Vec r = link::apply(links[k].inverse.data(), link::samplePosition(boundary, i));
    sums[0] = mu;
    sums[1] = mu * r.x;
    sums[2] = mu * r.y;
    sums[3] = mu * r.z;
    sums[4] = mu * r.x * r.x;
    sums[5] = mu * r.y * r.y;
    sums[6] = mu * r.z * r.z;
    sums[7] = mu * r.y * r.z;
    sums[8] = mu * r.x * r.z;
    sums[9] = mu * r.x * r.y;
}

DRELT_KERNEL void sampleMassKernel(LaunchIndex at, const skLinkData* links,
                                   const mlLagrangeBoundary* boundary, const int* labels,
                                   const double* weights, LinkMassSums* masses, int linkCount,
                                   int sampleCount, SampleGrid grid, float dx) {
    if (at.n >= sampleCount) return;
    sampleMass(links, boundary, labels, weights, at.n, linkCount, grid, dx, masses[at.n].data());
}

// Adds to the force density of a sample inside the grid its density times the gain of its velocity per time,
// times its weight.
// The records hold the poses before the step; dt is the time step [s].
DRELT_KERNEL void correctSampleForceKernel(LaunchIndex at, const skLinkData* links,
                                           mlLagrangeBoundary* boundary, const int* labels,
                                           const double* weights, const LinkVelocityGain* gains,
                                           int linkCount, int sampleCount, SampleGrid grid,
                                           float dt) {
    if (at.n >= sampleCount) return;
    const int k = labels[at.n];
    if (k < 1 || k >= linkCount || !grid.takes(boundary, at.n)) return;
    const double* const gain = gains[k].data();
    const link::Vec r = link::apply(links[k].inverse.data(), link::samplePosition(boundary, at.n));
    const link::Vec local = vector3(gain + 3) + cross(vector3(gain), r);
    const link::Vec velocity = link::rotate(links[k].transform.data(), local);
    const double density =
        static_cast<double>(grid.rou0p) * static_cast<double>(boundary->rou[at.n].value);
    double perTime = density / static_cast<double>(dt);
    if (weights != nullptr) perTime *= weights[at.n];
    boundary->forcex[at.n] += perTime * velocity.x;
    boundary->forcey[at.n] += perTime * velocity.y;
    boundary->forcez[at.n] += perTime * velocity.z;
}

// The device side of both operators. It keeps its buffers between steps. All pointers are device pointers.
class SampleMasses {
public:
    SampleMasses() = default;
    ~SampleMasses();
    SampleMasses(const SampleMasses&) = delete;
    SampleMasses& operator=(const SampleMasses&) = delete;

    // The sums of all links, in host memory; 0 for links without samples. The sums are those of one loop
    // over the samples for any number of threads.
    const std::vector<LinkMassSums>& sum(const skLinkData* links,
                                         const mlLagrangeBoundary* boundary, const int* labels,
                                         const double* weights, int linkCount, int sampleCount,
                                         const SampleGrid& grid, float dx);
    // Corrects the forces of all samples by one gain per link, given in host memory.
    void correct(const skLinkData* links, mlLagrangeBoundary* boundary, const int* labels,
                 const double* weights, const std::vector<LinkVelocityGain>& gains, int sampleCount,
                 const SampleGrid& grid, float dt);

private:
    void reserve(int sampleCount, int linkCount);
    void release();

    int sampleRoom_ = 0, linkRoom_ = 0;
    int device_ = 0;  // on which the next two lie
    LinkMassSums* masses_dev_ = nullptr;
    LinkVelocityGain* gains_dev_ = nullptr;
    LabelReduction<10> reduction_;
    std::vector<int> keys_;
    std::vector<LinkMassSums> runs_, sums_;
};

}  // namespace drelt
