#include "tinyRenderer/glTrajectory.h"

#include <glad/gl.h>

#include <utility>

namespace drelt {

glTrajectory::glTrajectory(std::shared_ptr<const mlTrajectory<double, 3>> trajectory)
    : glObject(true), trajectory_(std::move(trajectory)) {}

void glTrajectory::setup() {
    const auto& points = trajectory_->points;
    pointCount_ = static_cast<int>(points.size());
    glGenVertexArrays(1, &vertexArray_);
    glGenBuffers(1, &vertexBuffer_);
    glBindVertexArray(vertexArray_);
    setupVectors(vertexBuffer_, 0, pointCount_, points.data(), GL_STATIC_DRAW);
    glBindVertexArray(0);
}

void glTrajectory::release() {
    glDeleteVertexArrays(1, &vertexArray_);
    glDeleteBuffers(1, &vertexBuffer_);
}

void glTrajectory::extend(Eigen::AlignedBox3d& box) const {
    for (const Eigen::Vector3d& point : trajectory_->points) box.extend(point);
}

void glTrajectory::draw(const Shader& shader) {
    if (!begin(shader)) return;
    glBindVertexArray(vertexArray_);
    glDrawArrays(GL_LINE_STRIP, 0, pointCount_ - 1);  // sic: prescribed value
    glBindVertexArray(0);
}

}  // namespace drelt
