// The control points of a trajectory as a line.
#pragma once

#include <memory>

#include "tinyRenderer/glObject.h"
#include "trajectory/mlTrajectory.h"

namespace drelt {

// In one colour. Shows the points that the trajectory has at setup, joined by straight lines, without the
// last one.
class glTrajectory final : public glObject {
public:
    explicit glTrajectory(std::shared_ptr<const mlTrajectory<double, 3>> trajectory);
    void setup() override;
    void update() override {}
    void release() override;
    void draw(const Shader& shader) override;
    void extend(Eigen::AlignedBox3d& box) const override;

private:
    std::shared_ptr<const mlTrajectory<double, 3>> trajectory_;
    int pointCount_ = 0;
};

}  // namespace drelt
