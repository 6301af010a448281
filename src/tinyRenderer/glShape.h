// Lines and triangles in one colour each, at rest in the world.
#pragma once

#include <Eigen/Core>
#include <vector>

#include "tinyRenderer/glObject.h"

namespace drelt {

// Segments between pairs of points. On top, they are drawn over everything that was added before.
class glLines final : public glObject {
public:
    glLines(std::vector<Eigen::Vector3d> points, const Eigen::Vector3f& colour, bool onTop);
    void setup() override;
    void update() override {}
    void release() override;
    void draw(const Shader& shader) override;
    void extend(Eigen::AlignedBox3d& box) const override;

private:
    std::vector<Eigen::Vector3d> points_;
    Eigen::Vector3f colour_;
    bool onTop_;
};

// Lit triangles; three points and three normals for each.
class glTriangles final : public glObject {
public:
    glTriangles(std::vector<Eigen::Vector3d> points, std::vector<Eigen::Vector3d> normals,
                const Eigen::Vector3f& colour);
    void setup() override;
    void update() override {}
    void release() override;
    void draw(const Shader& shader) override;
    void extend(Eigen::AlignedBox3d& box) const override;

private:
    std::vector<Eigen::Vector3d> points_, normals_;
    Eigen::Vector3f colour_;
    unsigned normalBuffer_ = 0;
};

// Pairs of points of a square grid on the plane y = height around the centre: `cells` of `spacing` [m] each
// way.
std::vector<Eigen::Vector3d> gridLines(const Eigen::Vector3d& centre, double height, double spacing,
                                       int cells);

}  // namespace drelt
