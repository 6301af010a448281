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
// The queries with an index search a range: it starts at the sample that the previous call found and
// covers look_forward samples. So a body keeps to the right branch where the path crosses itself,
// and the cost does not depend on the number of samples. A segment joins two neighbouring samples. The
// search finds the first segment of the range onto which the position projects. If there is none,
// it takes the nearer end of the range. The index never goes back.
//
// Progress is 0 at the start of the path and 1 at its end. No sample lies at the end.
class mlTPTrajectory : public mlTrajectory<double, 3> {
public:
    // Fills the table with sample_num poses at even steps of the curve's parameter: sample i lies at
    // i / sample_num of the parameter's range. Throws std::invalid_argument for a negative number,
    // and the exceptions of curve.
    void sample(int sample_num);
    int getSampleNum() const { return static_cast<int>(samples.size()); }

    // The index that the latest query with an index found; 0 before the first one. A new table does
    // not change it.
    int getLastIdx() const { return lastIdx_; }

    // The pose at progress t of the curve. Clamps t to 0 .. 1. Throws the exceptions of curve.
    mlTPTrajectoryPData getPose(double t) const;
    // The second derivative [m] at parameter t of the curve. Clamps t to 0 .. 1, so unlike getPose
    // it covers the first segment only. Throws the exceptions of curve.
    Eigen::Vector3d getCurvature(double t) const;

    // Searches look_forward samples from preSampleIdx for the sample that the body at `position` [m]
    // has reached, and returns the sample after it. Writes the index found to preSampleIdx and
    // getLastIdx. Throws std::out_of_range if there is no sample after it, and then changes nothing.
    mlTPTrajectoryPData getTargetPose(const Eigen::Vector3d& position, int& preSampleIdx,
                                      int look_forward);

    // Progress of the sample nearest to `position`; of equally near samples the first. Not a number
    // for an empty table. Scans the whole table and does not change getLastIdx.
    double getReferencePose(const Eigen::Vector3d& position) const;
    // Searches as getTargetPose does. Returns the progress of the sample that the body has reached,
    // plus the distance [m] from this sample to the body's projection, added as a plain number. Not a
    // number if the two samples of the segment coincide. Throws std::out_of_range for an empty table
    // or an index past its end, and then changes nothing.
    double getReferencePose(const Eigen::Vector3d& position, int posIdx, int look_forward = 10);

    std::vector<mlTPTrajectoryPData> samples;

private:
    // Result of a search: the index, and whether the position projects onto the segment that starts there.
    struct Reached {
        int index;
        bool onSegment;
    };

    Reached searchRange(const Eigen::Vector3d& position, int previous, int lookForward) const;
    void requireSamples(const char* operation) const;
    mlTPTrajectoryPData poseAt(float T) const;

    int lastIdx_ = 0;
};

}  // namespace drelt
