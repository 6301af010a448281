#include "tinyRenderer/glShape.h"

#include <glad/gl.h>

#include <utility>

#include "tinyRenderer/Shader.h"

namespace drelt {

namespace {

const Eigen::Vector3f kFlat{0, 1, 0};       // what the renderer gives the flat shader
const Eigen::Vector3f kHighlight{1, 0, 0};  // and the lit one, with white for the rest

void extendBy(const std::vector<Eigen::Vector3d>& points, Eigen::AlignedBox3d& box) {
    for (const Eigen::Vector3d& point : points) box.extend(point);
}

void setMaterial(const Shader& shader, const Eigen::Vector3f& colour,
                 const Eigen::Vector3f& highlight) {
    shader.setVec3("material.ambient", colour);
    shader.setVec3("material.diffuse", colour);
    shader.setVec3("material.specular", highlight);
}

}  // namespace

glLines::glLines(std::vector<Eigen::Vector3d> points, const Eigen::Vector3f& colour, bool onTop)
    : glObject(true), points_(std::move(points)), colour_(colour), onTop_(onTop) {}

void glLines::setup() {
    glGenVertexArrays(1, &vertexArray_);
    glGenBuffers(1, &vertexBuffer_);
    glBindVertexArray(vertexArray_);
    setupVectors(vertexBuffer_, 0, static_cast<std::ptrdiff_t>(points_.size()), points_.data(),
                 GL_STATIC_DRAW);
    glBindVertexArray(0);
}

void glLines::release() {
    glDeleteVertexArrays(1, &vertexArray_);
    glDeleteBuffers(1, &vertexBuffer_);
}

void glLines::draw(const Shader& shader) {
    if (!begin(shader)) return;
    shader.setVec3("flatColor", colour_);
    if (onTop_) glDisable(GL_DEPTH_TEST);
    glBindVertexArray(vertexArray_);
    glDrawArrays(GL_LINES, 0, static_cast<GLsizei>(points_.size()));
    glBindVertexArray(0);
    if (onTop_) glEnable(GL_DEPTH_TEST);
    shader.setVec3("flatColor", kFlat);
}

void glLines::extend(Eigen::AlignedBox3d& box) const { extendBy(points_, box); }

glTriangles::glTriangles(std::vector<Eigen::Vector3d> points, std::vector<Eigen::Vector3d> normals,
                         const Eigen::Vector3f& colour)
    : points_(std::move(points)), normals_(std::move(normals)), colour_(colour) {}

void glTriangles::setup() {
    const auto count = static_cast<std::ptrdiff_t>(points_.size());
    glGenVertexArrays(1, &vertexArray_);
    glGenBuffers(1, &vertexBuffer_);
    glGenBuffers(1, &normalBuffer_);
    glBindVertexArray(vertexArray_);
    setupVectors(vertexBuffer_, 0, count, points_.data(), GL_STATIC_DRAW);
    setupVectors(normalBuffer_, 1, count, normals_.data(), GL_STATIC_DRAW);
    glBindVertexArray(0);
}

void glTriangles::release() {
    glDeleteVertexArrays(1, &vertexArray_);
    const GLuint buffers[] = {vertexBuffer_, normalBuffer_};
    glDeleteBuffers(2, buffers);
}

void glTriangles::draw(const Shader& shader) {
    if (!begin(shader)) return;
    setMaterial(shader, colour_, Eigen::Vector3f::Constant(0.2f));
    glBindVertexArray(vertexArray_);
    glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(points_.size()));
    glBindVertexArray(0);
    setMaterial(shader, Eigen::Vector3f::Ones(), kHighlight);
}

void glTriangles::extend(Eigen::AlignedBox3d& box) const { extendBy(points_, box); }

std::vector<Eigen::Vector3d> gridLines(const Eigen::Vector3d& centre, double height, double spacing,
                                       int cells) {
    std::vector<Eigen::Vector3d> points;
    const double reach = spacing * cells;
    for (int k = -cells; k <= cells; ++k) {
        const double at = spacing * k;
        points.emplace_back(centre.x() - reach, height, centre.z() + at);
        points.emplace_back(centre.x() + reach, height, centre.z() + at);
        points.emplace_back(centre.x() + at, height, centre.z() - reach);
        points.emplace_back(centre.x() + at, height, centre.z() + reach);
    }
    return points;
}

}  // namespace drelt
