// Sampling a path, and following a body along it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "support/vectors.h"
#include "trajectory/mlTPTrajectory.h"
#include "trajectory/path_fixture.h"

namespace drelt::test {
namespace {

// A fitted path along x. The curve runs from x = 1 to x = count - 2. With seven points and ten
// samples, the samples lie at x = 1, 1.4, ..., 4.6.
mlTPTrajectory straightPath(int count, int samples) {
    mlTPTrajectory path;
    give(path, pointsAlong(count, [](double i) { return Vec3(i, 0, 0); }));
    path.fit();
    path.sample(samples);
    return path;
}

mlTPTrajectory referencePath(const VectorCase& given) {
    mlTPTrajectory path;
    give(path, toPoints(given.array<double>("in_points")));
    path.fit();
    path.sample(given.integer("sample_num"));
    return path;
}

TEST(PoseTrajectory, PosesAgreeWithReference) {
    const VectorCase given("poses");
    const mlTPTrajectory path = referencePath(given);
    std::vector<double> positions, orientations, posePositions, poseOrientations, curvatures;
    for (const mlTPTrajectoryPData& pose : path.samples) {
        append(positions, pose.getPosition());
        append(orientations, pose.getOrientation());
        EXPECT_EQ(pose.data, pose.getPosition());
    }
    for (const double t : given.array<double>("in_t")) {
        const mlTPTrajectoryPData pose = path.getPose(t);
        append(posePositions, pose.getPosition());
        append(poseOrientations, pose.getOrientation());
        append(curvatures, path.getCurvature(t));
    }
    EXPECT_TRUE(compareScaled(given.array<double>("out_positions"), positions, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_orientations"), orientations, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_pose_position"), posePositions, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_pose_orientation"), poseOrientations, 1e-6));
    EXPECT_TRUE(compareScaled(given.array<double>("out_curvature"), curvatures, 1e-6));
}

TEST(PoseTrajectory, QueriesAgreeWithReference) {
    const VectorCase given("poses");
    mlTPTrajectory path = referencePath(given);
    const auto queries = toPoints(given.array<double>("in_query"));
    const auto previous = given.array<std::int32_t>("in_previous");
    const auto lookForward = given.array<std::int32_t>("in_look_forward");
    const auto target = given.array<std::int32_t>("out_target_index");
    std::vector<double> reference, scan;
    for (std::size_t i = 0; i < queries.size(); ++i) {
        int index = previous[i];
        const mlTPTrajectoryPData pose = path.getTargetPose(queries[i], index, lookForward[i]);
        EXPECT_EQ(index, target[i] - 1) << "query " << i;
        EXPECT_EQ(path.getLastIdx(), index) << "query " << i;
        EXPECT_EQ(pose.data, path.samples[target[i]].data) << "query " << i;
        reference.push_back(path.getReferencePose(queries[i], previous[i], lookForward[i]));
        EXPECT_EQ(path.getLastIdx(), index) << "query " << i;
        scan.push_back(path.getReferencePose(queries[i]));
    }
    EXPECT_TRUE(compareScaled(given.array<double>("out_reference"), reference, 1e-6));
    EXPECT_TRUE(compare(given.array<double>("out_reference_scan"), scan, 0.0));
}

TEST(PoseTrajectory, SamplesLeaveOutTheEnd) {
    mlTPTrajectory path = straightPath(5, 4);
    ASSERT_EQ(path.getSampleNum(), 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(path.samples[i].getPosition().x(), 1.0 + 0.5 * i, 1e-6);
        EXPECT_TRUE(path.samples[i].getOrientation().isApprox(Vec3::UnitX(), 1e-6));
    }
    path.sample(0);
    EXPECT_EQ(path.getSampleNum(), 0);
    EXPECT_TRUE(std::isnan(path.getReferencePose(Vec3::Zero())));
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { path.sample(-3); }),
              "sample: the number of samples must not be negative, got -3");

    // A path whose points coincide has a position but no direction.
    give(path, std::vector<Vec3>(4, Vec3(1, 2, 3)));
    path.fit();
    EXPECT_EQ(path.getPose(0.5).getOrientation(), Vec3::Zero());
    EXPECT_TRUE(path.getPose(0.5).getPosition().isApprox(Vec3(1, 2, 3), 1e-6));
}

TEST(PoseTrajectory, PoseAndCurvatureClampDifferently) {
    mlTPTrajectory path;
    // The second derivative is 6 (T + 1).
    give(path, pointsAlong(6, [](double i) { return Vec3(i * i * i, 0, 0); }));
    path.fit();
    EXPECT_EQ(path.getPose(2.0).data, path.getPose(1.0).data);
    EXPECT_EQ(path.getPose(-1.0).data, path.getPose(0.0).data);
    EXPECT_EQ(path.getPose(std::nan("")).data, path.getPose(0.0).data);
    EXPECT_NEAR(path.getPose(1.0).data.x(), 4.0 * 4.0 * 4.0 + 4.0, 1e-5);  // T = 3
    EXPECT_NEAR(path.getCurvature(0.5).x(), 9.0, 1e-5);
    EXPECT_NEAR(path.getCurvature(2.0).x(), 12.0, 1e-5);  // T = 1, not 3
    EXPECT_NEAR(path.getCurvature(-2.0).x(), 6.0, 1e-5);
}

TEST(PoseTrajectory, SearchStaysInItsRange) {
    mlTPTrajectory path = straightPath(7, 10);
    const auto reached = [&](double x, int previous, int lookForward) {
        const mlTPTrajectoryPData target =
            path.getTargetPose(Vec3(x, 0.3, 0), previous, lookForward);
        EXPECT_NEAR(target.data.x(), 1.0 + 0.4 * (previous + 1), 1e-5);
        EXPECT_EQ(path.getLastIdx(), previous);
        return previous;
    };
    EXPECT_EQ(reached(2.5, 0, 9), 3);           // between 2.2 and 2.6
    EXPECT_EQ(reached(2.5, 3, 1), 3);           // in the only segment of the range
    EXPECT_EQ(reached(2.5, 1, 2), 3);           // just ahead of the range: takes its end
    EXPECT_EQ(reached(4.4, 1, 2), 3);           // far ahead: advances to the end of the range
    EXPECT_EQ(reached(1.1, 4, 3), 4);           // behind: stays
    EXPECT_EQ(reached(1.1, 4, -3), 4);          // the end of the range is before its start
    EXPECT_EQ(reached(1.5, -2, 4), 1);          // a range from -2 to 2 starts at 0
    EXPECT_EQ(reached(1.5, -9, 4), 0);          // a range before the table holds its first sample
    EXPECT_EQ(reached(3.5, 2, 1000000000), 6);  // the range ends with the table
    EXPECT_EQ(reached(3.5, 2, std::numeric_limits<int>::max()), 6);
}

TEST(PoseTrajectory, BodyOnASampleBelongsToBothSegments) {
    mlTPTrajectory path = straightPath(7, 10);
    const Vec3 onSample = path.samples[3].data;
    int index = 0;
    path.getTargetPose(onSample, index, 9);
    EXPECT_EQ(index, 2);  // the range holds both segments: takes the first
    index = 3;
    path.getTargetPose(onSample, index, 6);
    EXPECT_EQ(index, 3);
}

TEST(PoseTrajectory, CrossingPathIsFollowedInOrder) {
    // A figure of eight: the path crosses itself in the middle.
    mlTPTrajectory path;
    give(path, pointsAlong(40, [](double i) {
             const double angle = 0.3 * i;
             return Vec3(std::sin(2 * angle), std::sin(angle), 0);
         }));
    path.fit();
    path.sample(400);
    // A body on the curve keeps to its branch at the crossing.
    int index = 0;
    for (int i = 1; i < 398; ++i) {
        const Vec3 body = 0.5 * (path.samples[i].data + path.samples[i + 1].data);
        path.getTargetPose(body, index, 10);
        EXPECT_EQ(index, i);
    }
}

TEST(PoseTrajectory, ReferenceAddsThePlainDistance) {
    mlTPTrajectory path = straightPath(7, 10);
    // Between samples 3 at 2.2 and 4 at 2.6; the distance is not divided by the number of samples.
    EXPECT_NEAR(path.getReferencePose(Vec3(2.5, 7, 0), 2), 0.3 + 0.3, 1e-5);
    EXPECT_EQ(path.getLastIdx(), 3);
    EXPECT_EQ(path.getReferencePose(Vec3(2.5, 7, 0), 1, 0), 0.1);  // empty range
    EXPECT_EQ(path.getReferencePose(Vec3(4.4, 0, 0), 1, 3), 0.4);  // takes the end of the range
    EXPECT_EQ(path.getReferencePose(Vec3(9, 0, 0), 9), 0.9);       // the last sample
    EXPECT_EQ(path.getLastIdx(), 9);
    // The default range is ten samples: from 5 it ends at sample 15.
    mlTPTrajectory fine = straightPath(7, 40);
    EXPECT_EQ(fine.getReferencePose(Vec3(4.4, 0, 0), 5), 15.0 / 40.0);

    // The scan takes the first of equally near samples and does not change the index.
    EXPECT_EQ(path.getReferencePose(Vec3(2.3, 0, 0)), 0.3);
    give(path, std::vector<Vec3>(5, Vec3(1, 1, 1)));
    path.fit();
    path.sample(8);
    EXPECT_EQ(path.getReferencePose(Vec3::Zero()), 0.0);
    EXPECT_EQ(path.getLastIdx(), 9);  // a new table does not change it either
}

TEST(PoseTrajectory, QueriesPastTheTableRaiseAndChangeNothing) {
    mlTPTrajectory path = straightPath(7, 10);
    int index = 2;
    path.getTargetPose(Vec3(2.0, 0, 0), index, 3);
    ASSERT_EQ(index, 2);
    const std::string pastEnd =
        "getTargetPose: the body has reached index 9, but the last of the 10 samples has the index "
        "9, so there is no target ahead; stop following the path before its end";
    EXPECT_EQ(messageOf<std::out_of_range>([&] { path.getTargetPose(Vec3(9, 0, 0), index, 20); }),
              pastEnd);
    EXPECT_EQ(index, 2);
    int last = 9;
    EXPECT_EQ(messageOf<std::out_of_range>([&] { path.getTargetPose(Vec3(0, 0, 0), last, 1); }),
              pastEnd);
    last = 5000;
    EXPECT_THROW(path.getTargetPose(Vec3(0, 0, 0), last, 1), std::out_of_range);
    EXPECT_EQ(
        messageOf<std::out_of_range>([&] { path.getReferencePose(Vec3::Zero(), 10); }),
        "getReferencePose: index 10 is past the last of the 10 samples; give one from 0 to 9, "
        "such as getLastIdx");
    EXPECT_EQ(path.getLastIdx(), 2);
}

TEST(PoseTrajectory, NothingWorksBeforeItsStep) {
    mlTPTrajectory path;
    int index = 0;
    const std::string noSamples =
        ": the trajectory has no samples; call fit, then sample with a positive number";
    EXPECT_EQ(messageOf<std::out_of_range>([&] { path.getTargetPose(Vec3::Zero(), index, 5); }),
              "getTargetPose" + noSamples);
    EXPECT_EQ(messageOf<std::out_of_range>([&] { path.getReferencePose(Vec3::Zero(), 0); }),
              "getReferencePose" + noSamples);
    EXPECT_THROW(path.sample(4), std::logic_error);
    EXPECT_THROW(path.getPose(0.5), std::logic_error);
    EXPECT_THROW(path.getCurvature(0.5), std::logic_error);

    path = straightPath(7, 10);
    give(path, {Vec3::Zero(), Vec3::UnitX(), Vec3::UnitY()});
    path.fit();
    EXPECT_THROW(path.sample(4), std::invalid_argument);
    EXPECT_THROW(path.getPose(0.5), std::invalid_argument);
    EXPECT_THROW(path.getCurvature(0.5), std::invalid_argument);
    EXPECT_EQ(path.getSampleNum(), 10);  // the table of the previous curve
}

}  // namespace
}  // namespace drelt::test
