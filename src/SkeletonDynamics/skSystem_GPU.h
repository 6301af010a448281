// The operators between samples and links: the forces on samples become one wrench per link, and the motion
// of links becomes sample velocities. SI units, double precision.
//
// A label is the index of a sample's link. Link 0 is the world, which has no samples.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <cstdio>

#include "SkeletonDynamics/LabelReduction.h"
#include "SkeletonDynamics/skLinkData.h"
#include "cslbm/mlimmersedbnd/mlLagrangeBoundary.h"
#include "platform/launch.h"
#include "platform/vector3.h"

namespace drelt {

// A moment [N m] and a force [N] about a link's origin, link coordinates.
using LinkWrench = Eigen::Matrix<double, 6, 1>;

namespace link {

using Vec = Vector3<double>;

// T is a column-major 4 x 4 transform. The products are written out, so that every compiler keeps the same
// order of operations.
DRELT_HOST_DEVICE Vec rotate(const double* T, Vec v) {
    return {T[0] * v.x + T[4] * v.y + T[8] * v.z, T[1] * v.x + T[5] * v.y + T[9] * v.z,
            T[2] * v.x + T[6] * v.y + T[10] * v.z};
}
DRELT_HOST_DEVICE Vec rotateBack(const double* T, Vec v) {
    return {T[0] * v.x + T[1] * v.y + T[2] * v.z, T[4] * v.x + T[5] * v.y + T[6] * v.z,
            T[8] * v.x + T[9] * v.y + T[10] * v.z};
}
DRELT_HOST_DEVICE Vec apply(const double* T, Vec v) { return rotate(T, v) + vector3(T + 12); }

DRELT_HOST_DEVICE Vec samplePosition(const mlLagrangeBoundary* boundary, std::int64_t i) {
    return {static_cast<double>(boundary->coordx[i]), static_cast<double>(boundary->coordy[i]),
            static_cast<double>(boundary->coordz[i])};
}

// The wrench on a link from the force density at sample i, times `scale`, then times the sample's area. The
// sample's force acts on the fluid; the link feels the reaction, hence the minus sign.
DRELT_HOST_DEVICE void sampleWrench(const skLinkData& link, const mlLagrangeBoundary* boundary,
                                    std::int64_t i, float scale, double* wrench) {
    const double s = static_cast<double>(scale);
    const double w = static_cast<double>(boundary->sampleArea);
    const Vec density{s * boundary->forcex[i] * w, s * boundary->forcey[i] * w,
                      s * boundary->forcez[i] * w};
    const Vec r = apply(link.inverse.data(), samplePosition(boundary, i));
    const Vec F = -rotateBack(link.transform.data(), density);
    const Vec M = cross(r, F);
    wrench[0] = M.x;
    wrench[1] = M.y;
    wrench[2] = M.z;
    wrench[3] = F.x;
    wrench[4] = F.y;
    wrench[5] = F.z;
}

}  // namespace link

// Forms the wrench of a sample in its link's frame. Reports a label that is the world's 0 or outside the
// links; a label outside the links gives a zero wrench.
DRELT_KERNEL void calExtForcesKernel(LaunchIndex at, skLinkData* links,
                                     mlLagrangeBoundary* boundary, int* labels,
                                     LinkWrench* wrenches, int linkCount, int sampleCount,
                                     float scale) {
    if (at.n >= sampleCount) return;
    const int k = labels[at.n];
    if (k >= linkCount || k < 1) printf("LinkIdx error!!\n");  // sic: prescribed text
    double* const wrench = wrenches[at.n].data();
    if (k >= linkCount || k < 0) {
        for (int c = 0; c < 6; ++c) wrench[c] = 0.0;
        return;
    }
    link::sampleWrench(links[k], boundary, at.n, scale, wrench);
}

// Writes the sum of a run of samples to the record of its link, unless a later run belongs to the same link.
// The key of a run is its link; key 0 marks an unused entry. A key outside the links is skipped.
DRELT_KERNEL void assignExtForceKernel(LaunchIndex at, skLinkData* links, int linkCount,
                                       LinkWrench* sums, int* keys) {
    if (at.n >= linkCount) return;
    const int k = keys[at.n];
    if (k <= 0 || k >= linkCount) return;
    for (std::int64_t later = at.n + 1; later < linkCount; ++later) {
        if (keys[later] == k) return;
    }
    const double* const sum = sums[at.n].data();
    for (int c = 0; c < 3; ++c) {
        links[k].torque.data()[c] = sum[c];
        links[k].force.data()[c] = sum[3 + c];
    }
}

namespace link {

// What the velocities of all samples of a link have in common.
struct VelocityTerms {
    const skLinkData* link;
    const skLinkData* reference;  // null if the reference is the world
    Vec turning, moving,
        origin;  // angular velocity, velocity and origin of the frame, in the link's axes
    bool still;  // the link is the frame
    bool frameMoves;
    bool turned;  // the link is not the reference
};

DRELT_HOST_DEVICE VelocityTerms velocityTerms(const skLinkData* links, int label, int frameIndex,
                                              int referenceIndex) {
    const skLinkData& L = links[label];
    const skLinkData& F = links[frameIndex];
    const skLinkData& W = links[referenceIndex];
    VelocityTerms terms{&L,
                        W.isWorld != 1.0 ? &W : nullptr,
                        {},
                        {},
                        {},
                        label == frameIndex,
                        F.isWorld != 1.0,
                        label != referenceIndex};
    if (terms.still || !terms.frameMoves) return terms;
    const double* const frame = F.transform.data();
    terms.turning = rotate(frame, vector3(F.velocity.data()));
    terms.moving = rotate(frame, vector3(F.velocity.data() + 3));
    terms.origin = vector3(frame + 12);
    if (L.isWorld != 1.0) {
        const double* const toLink = L.inverse.data();
        terms.turning = rotate(toLink, terms.turning);
        terms.moving = rotate(toLink, terms.moving);
        terms.origin = apply(toLink, terms.origin);
    }
    return terms;
}

DRELT_HOST_DEVICE void updateSampleVelocity(const VelocityTerms& terms,
                                            mlLagrangeBoundary* boundary, std::int64_t i) {
    const skLinkData& L = *terms.link;
    Vec u{0.0, 0.0, 0.0};
    if (!terms.still) {
        const Vec r = apply(L.inverse.data(), samplePosition(boundary, i));
        u = vector3(L.velocity.data() + 3) + cross(vector3(L.velocity.data()), r);
        if (terms.frameMoves) {
            u = u - (terms.moving + cross(terms.origin, terms.turning) + cross(terms.turning, r));
        }
    }
    if (terms.turned) {
        u = rotate(L.transform.data(), u);
        if (terms.reference != nullptr) u = rotate(terms.reference->inverse.data(), u);
    }
    boundary->ux[i] = static_cast<float>(u.x);
    boundary->uy[i] = static_cast<float>(u.y);
    boundary->uz[i] = static_cast<float>(u.z);
}

}  // namespace link

// Computes the velocity of the material point at a sample relative to the moving frame (link frameIndex), in
// the axes of link referenceIndex (the world's axes if that link is the world). Stored as float.
DRELT_KERNEL void updateSampleVelKernel(LaunchIndex at, mlLagrangeBoundary* boundary, int* labels,
                                        skLinkData* links, int frameIndex, int referenceIndex,
                                        int sampleCount) {
    if (at.n >= sampleCount) return;
    link::updateSampleVelocity(link::velocityTerms(links, labels[at.n], frameIndex, referenceIndex),
                               boundary, at.n);
}

// Reduces sample forces to link wrenches on the selected device. It keeps its buffers between steps.
class LinkForceReduction {
public:
    // Writes torque and force of every link that has samples; the others keep theirs. The samples of a link
    // must be neighbours: if a label has several runs, the last one counts. All pointers are device
    // pointers; `wrenches` has room for one wrench per sample. `scale` is the node spacing [m].
    void reduce(skLinkData* links, mlLagrangeBoundary* boundary, int* labels, LinkWrench* wrenches,
                int linkCount, int sampleCount, float scale);

private:
    LabelReduction<6> sums_;
};

// Launches updateSampleVelKernel over device arrays.
void updateSampleVel(mlLagrangeBoundary* boundary, int* labels, skLinkData* links, int frameIndex,
                     int referenceIndex, int sampleCount);

}  // namespace drelt
