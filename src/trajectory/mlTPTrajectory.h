// A path sampled into poses, along which a body's progress is followed.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "trajectory/mlTrajectory.h"

namespace drelt {

// A place on the path [m] and the direction of the path there; `data` is the place again.
struct mlTPTrajectoryPData : mlTrajectoryPointData<double, 3> {
    const Eigen::Vector3d& getPosition() const { return position; }
    // Unit tangent of the curve; zero where the curve stands still.
    const Eigen::Vector3d& getOrientation() const { return orientation; }

    Eigen::Vector3d orientation = Eigen::Vector3d::Zero();
    Eigen::Vector3d position = Eigen::Vector3d::Zero();
};

// Order of use: setPoints, fit, sample, then the queries.
//
// The indexed queries look for the body only between the sample of the call before and a number of
// samples after it, so that a path that crosses itself is followed in its order, at a cost that does
// not depend on the number of samples. In that range the body belongs to the first segment between
// two samples onto which its position projects; if there is none, to the nearer end of the range. The
// index never goes back.
//
// Progress is 0 at the start of the path and 1 at its end, which no sample reaches.
class mlTPTrajectory : public mlTrajectory<double, 3> {
public:
    // Takes sample_num poses at even steps of the curve's parameter: sample i is at i / sample_num of
    // the range. Raises std::invalid_argument for a negative number, and as curve does.
    void sample(int sample_num);
    int getSampleNum() const { return static_cast<int>(samples_.size()); }
    const std::vector<mlTPTrajectoryPData>& samples() const { return samples_; }

    // The index that the latest indexed query found; 0 before the first one. A new table keeps it.
    int getLastIdx() const { return lastIdx_; }

    // The pose at progress t of the curve, t being clamped to 0 .. 1. Raises as curve does.
    mlTPTrajectoryPData getPose(double t) const;
    // The second derivative [m] at parameter t of the curve, t being clamped to 0 .. 1: within the
    // first segment, unlike in getPose. Raises as curve does.
    Eigen::Vector3d getCurvature(double t) const;

    // The sample after the one that the body at `position` [m] has reached, searched from
    // preSampleIdx over look_forward samples. The index reached goes to preSampleIdx and getLastIdx.
    // Raises std::out_of_range where there is no such sample, and changes nothing then.
    mlTPTrajectoryPData getTargetPose(const Eigen::Vector3d& position, int& preSampleIdx,
                                      int look_forward);

    // Progress of the sample nearest to `position`, the first of equals; not a number for an empty
    // table. Scans the whole table, and leaves getLastIdx.
    double getReferencePose(const Eigen::Vector3d& position) const;
    // Progress of the sample that the body at `position` has reached, searched as in getTargetPose,
    // plus the distance [m] from there to the body's projection, as a plain number. Not a number where
    // the two samples of the segment coincide. Raises std::out_of_range for an empty table or an
    // index past its end, and changes nothing then.
    double getReferencePose(const Eigen::Vector3d& position, int posIdx, int look_forward = 10);

private:
    // Where a search ended: the index reached, and whether a segment that starts there was found.
    struct Reached {
        int index;
        bool onSegment;
    };

    Reached searchRange(const Eigen::Vector3d& position, int previous, int lookForward) const;
    void requireSamples(const char* operation) const;
    mlTPTrajectoryPData poseAt(float T) const;

    std::vector<mlTPTrajectoryPData> samples_;
    int lastIdx_ = 0;
};

}  // namespace drelt
