#include "tinyRenderer/glCube.h"

#include <glad/gl.h>

namespace drelt {

namespace {

constexpr int kVertices = 36;
constexpr int kFloats = 6;  // per vertex: position and normal

// Two triangles per face.
// clang-format off
constexpr float kCube[kVertices * kFloats] = {
    // back
    -0.5f, -0.5f, -0.5f, 0, 0, -1,
    0.5f, -0.5f, -0.5f, 0, 0, -1,
    0.5f, 0.5f, -0.5f, 0, 0, -1,
    0.5f, 0.5f, -0.5f, 0, 0, -1,
    -0.5f, 0.5f, -0.5f, 0, 0, -1,
    -0.5f, -0.5f, -0.5f, 0, 0, -1,
    // front
    -0.5f, -0.5f, 0.5f, 0, 0, 1,
    0.5f, -0.5f, 0.5f, 0, 0, 1,
    0.5f, 0.5f, 0.5f, 0, 0, 1,
    0.5f, 0.5f, 0.5f, 0, 0, 1,
    -0.5f, 0.5f, 0.5f, 0, 0, 1,
    -0.5f, -0.5f, 0.5f, 0, 0, 1,
    // left
    -0.5f, 0.5f, 0.5f, -1, 0, 0,
    -0.5f, 0.5f, -0.5f, -1, 0, 0,
    -0.5f, -0.5f, -0.5f, -1, 0, 0,
    -0.5f, -0.5f, -0.5f, -1, 0, 0,
    -0.5f, -0.5f, 0.5f, -1, 0, 0,
    -0.5f, 0.5f, 0.5f, -1, 0, 0,
    // right
    0.5f, 0.5f, 0.5f, 1, 0, 0,
    0.5f, 0.5f, -0.5f, 1, 0, 0,
    0.5f, -0.5f, -0.5f, 1, 0, 0,
    0.5f, -0.5f, -0.5f, 1, 0, 0,
    0.5f, -0.5f, 0.5f, 1, 0, 0,
    0.5f, 0.5f, 0.5f, 1, 0, 0,
    // bottom
    -0.5f, -0.5f, -0.5f, 0, -1, 0,
    0.5f, -0.5f, -0.5f, 0, -1, 0,
    0.5f, -0.5f, 0.5f, 0, -1, 0,
    0.5f, -0.5f, 0.5f, 0, -1, 0,
    -0.5f, -0.5f, 0.5f, 0, -1, 0,
    -0.5f, -0.5f, -0.5f, 0, -1, 0,
    // top
    -0.5f, 0.5f, -0.5f, 0, 1, 0,
    0.5f, 0.5f, -0.5f, 0, 1, 0,
    0.5f, 0.5f, 0.5f, 0, 1, 0,
    0.5f, 0.5f, 0.5f, 0, 1, 0,
    -0.5f, 0.5f, 0.5f, 0, 1, 0,
    -0.5f, 0.5f, -0.5f, 0, 1, 0,
};
// clang-format on

}  // namespace

void glCube::setup() {
    constexpr auto stride = static_cast<GLsizei>(kFloats * sizeof(float));
    glGenVertexArrays(1, &vertexArray_);
    glGenBuffers(1, &vertexBuffer_);
    glBindVertexArray(vertexArray_);
    glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer_);
    glBufferData(GL_ARRAY_BUFFER, sizeof(kCube), kCube, GL_STATIC_DRAW);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride, nullptr);
    glEnableVertexAttribArray(0);
    // OpenGL takes the offset of the normal as a pointer
    const void* const normal = static_cast<const char*>(nullptr) + 3 * sizeof(float);
    glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, stride, normal);
    glEnableVertexAttribArray(1);
    glBindVertexArray(0);
}

void glCube::release() {
    glDeleteVertexArrays(1, &vertexArray_);
    glDeleteBuffers(1, &vertexBuffer_);
}

void glCube::extend(Eigen::AlignedBox3d& box) const {
    box.extend(Eigen::Vector3d::Constant(-0.5)).extend(Eigen::Vector3d::Constant(0.5));
}

void glCube::draw(const Shader& shader) {
    if (!begin(shader)) return;
    glBindVertexArray(vertexArray_);
    glDrawArrays(GL_TRIANGLES, 0, kVertices);
    glBindVertexArray(0);
}

}  // namespace drelt
