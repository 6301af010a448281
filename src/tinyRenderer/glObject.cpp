#include "tinyRenderer/glObject.h"

#include <glad/gl.h>

#include "tinyRenderer/Shader.h"

namespace drelt {

bool glObject::begin(const Shader& shader) const {
    if (!shader.use()) return false;
    shader.setMat4("model", model_);
    return true;
}

void glObject::setupVectors(unsigned buffer, unsigned attribute, std::ptrdiff_t count,
                            const Eigen::Vector3d* vectors, unsigned usage) {
    constexpr auto size = static_cast<GLsizei>(sizeof(Eigen::Vector3d));
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glBufferData(GL_ARRAY_BUFFER, count * size, vectors, usage);
    glVertexAttribPointer(attribute, 3, GL_DOUBLE, GL_FALSE, size, nullptr);
    glEnableVertexAttribArray(attribute);
}

}  // namespace drelt
