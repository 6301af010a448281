#include "trajectory/mlTPTrajectory.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace drelt {
namespace {

// Gives 0 also for a t that is not a number.
double clampUnit(double t) {
    if (t > 1.0) return 1.0;
    return t > 0.0 ? t : 0.0;
}

}  // namespace

mlTPTrajectoryPData mlTPTrajectory::poseAt(float T) const {
    const auto [position, tangent] = curve().getTangent(T);
    mlTPTrajectoryPData pose;
    pose.data = position;
    pose.orientation = tangent.normalized();  // leaves zero as it is
    pose.position = position;
    return pose;
}

void mlTPTrajectory::sample(int sample_num) {
    if (sample_num < 0) {
        throw std::invalid_argument("sample: the number of samples must not be negative, got " +
                                    std::to_string(sample_num));
    }
    const double maxT = curve().getMaxT();
    const double step = 1.0F / static_cast<float>(sample_num);
    std::vector<mlTPTrajectoryPData> table;
    table.reserve(sample_num);
    for (int i = 0; i < sample_num; ++i) {
        const double u = step * i;
        table.push_back(poseAt(static_cast<float>(maxT * u)));
    }
    samples = std::move(table);
}

mlTPTrajectoryPData mlTPTrajectory::getPose(double t) const {
    return poseAt(static_cast<float>(curve().getMaxT() * clampUnit(t)));
}

Eigen::Vector3d mlTPTrajectory::getCurvature(double t) const {
    return curve().getCurvature(static_cast<float>(clampUnit(t))).curvature;
}

auto mlTPTrajectory::searchRange(const Eigen::Vector3d& position, int previous,
                                 int lookForward) const -> Reached {
    const int last = getSampleNum() - 1;
    const int start = std::clamp(previous, 0, last);
    const int end =
        static_cast<int>(std::clamp<std::int64_t>(std::int64_t{previous} + lookForward, 0, last));
    for (int i = start; i < end; ++i) {
        const Eigen::Vector3d& a = samples[i].position;
        const Eigen::Vector3d& b = samples[i + 1].position;
        const Eigen::Vector3d back = a - b;
        if ((position - a).dot(back) * (position - b).dot(back) <= 0.0) {
            return {std::max(previous, i), true};
        }
    }
    const double toStart = (position - samples[start].position).norm();
    const double toEnd = (position - samples[end].position).norm();
    return {std::max(previous, toEnd > toStart ? start : end), false};
}

void mlTPTrajectory::requireSamples(const char* operation) const {
    if (samples.empty()) {
        throw std::out_of_range(std::string(operation) +
                                ": the trajectory has no samples; call fit, then sample with a "
                                "positive number");
    }
}

mlTPTrajectoryPData mlTPTrajectory::getTargetPose(const Eigen::Vector3d& position,
                                                  int& preSampleIdx, int look_forward) {
    requireSamples("getTargetPose");
    const int index = searchRange(position, preSampleIdx, look_forward).index;
    if (index >= getSampleNum() - 1) {
        throw std::out_of_range(
            "getTargetPose: the body has reached index " + std::to_string(index) +
            ", but the last of the " + std::to_string(getSampleNum()) + " samples has the index " +
            std::to_string(getSampleNum() - 1) +
            ", so there is no target ahead; stop following the path before its end");
    }
    preSampleIdx = lastIdx_ = index;
    return samples[index + 1];
}

double mlTPTrajectory::getReferencePose(const Eigen::Vector3d& position) const {
    double shortest = 9999999999.0;
    int best = 0;
    for (int i = 0; i < getSampleNum(); ++i) {
        const double distance = (position - samples[i].position).norm();
        if (distance < shortest) {
            shortest = distance;
            best = i;
        }
    }
    return static_cast<double>(best) / getSampleNum();
}

double mlTPTrajectory::getReferencePose(const Eigen::Vector3d& position, int posIdx,
                                        int look_forward) {
    requireSamples("getReferencePose");
    if (posIdx >= getSampleNum()) {
        throw std::out_of_range("getReferencePose: index " + std::to_string(posIdx) +
                                " is past the last of the " + std::to_string(getSampleNum()) +
                                " samples; give one from 0 to " +
                                std::to_string(getSampleNum() - 1) + ", such as getLastIdx");
    }
    const auto [index, onSegment] = searchRange(position, posIdx, look_forward);
    lastIdx_ = index;
    const double progress = static_cast<double>(index) / getSampleNum();
    if (!onSegment) return progress;
    const Eigen::Vector3d& a = samples[index].position;
    const Eigen::Vector3d back = a - samples[index + 1].position;
    return progress + std::abs((position - a).dot(back)) / back.norm();
}

}  // namespace drelt
