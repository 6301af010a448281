#include "tinyRenderer/glSkMesh.h"

#include <glad/gl.h>

#include <algorithm>
#include <utility>

#include "MeshLoad/MeshData.h"
#include "MeshLoad/SkeletalMesh.h"

namespace drelt {

// One of the model's meshes; importers split a skin by material.
struct glSkMesh::Part {
    explicit Part(std::shared_ptr<MeshData> shown)
        : mesh(std::move(shown)),
          vertexCount(static_cast<GLsizei>(mesh->data_cpu.curr_positions.size())),
          indexCount(static_cast<GLsizei>(mesh->data_cpu.triangleIndices.size())) {}

    void setup();
    void upload();
    bool hasMoved() const;

    std::shared_ptr<MeshData> mesh;
    GLsizei vertexCount;
    GLsizei indexCount;
    GLuint vertexArray = 0;
    GLuint indexBuffer = 0;
    GLuint positionBuffer = 0;
    GLuint normalBuffer = 0;
    // The transforms at the latest upload: that of the node, then those of the bones.
    std::vector<Eigen::Isometry3d> uploaded;

private:
    void uploadVectors(GLuint buffer, const std::vector<Eigen::Vector3d>& vectors) const;
};

void glSkMesh::Part::setup() {
    const host_MeshData& data = mesh->data_cpu;
    glGenVertexArrays(1, &vertexArray);
    glGenBuffers(1, &positionBuffer);
    glGenBuffers(1, &normalBuffer);
    glGenBuffers(1, &indexBuffer);
    glBindVertexArray(vertexArray);
    // the update before every frame uploads the vertices
    setupVectors(positionBuffer, 0, vertexCount, nullptr, GL_DYNAMIC_DRAW);
    setupVectors(normalBuffer, 1, vertexCount, nullptr, GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indexBuffer);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, indexCount * GLsizeiptr{sizeof(std::uint32_t)},
                 data.triangleIndices.data(), GL_STATIC_DRAW);
    glBindVertexArray(0);
    uploaded.clear();
}

// The rest pose never changes, so the skin moves only if a transform has changed.
bool glSkMesh::Part::hasMoved() const {
    const host_MeshData& data = mesh->data_cpu;
    if (uploaded.size() != data.bone_transforms.size() + 1) return true;
    const auto differ = [](const Eigen::Isometry3d& a, const Eigen::Isometry3d& b) {
        return a.matrix() != b.matrix();
    };
    if (differ(uploaded.front(), data.node_transform)) return true;
    return !std::equal(data.bone_transforms.begin(), data.bone_transforms.end(),
                       uploaded.begin() + 1,
                       [&](const auto& a, const auto& b) { return !differ(a, b); });
}

void glSkMesh::Part::upload() {
    const host_MeshData& data = mesh->data_cpu;
    uploadVectors(positionBuffer, data.curr_positions);
    uploadVectors(normalBuffer, data.curr_normals);
    uploaded.assign(1, data.node_transform);
    uploaded.insert(uploaded.end(), data.bone_transforms.begin(), data.bone_transforms.end());
}

void glSkMesh::Part::uploadVectors(GLuint buffer,
                                   const std::vector<Eigen::Vector3d>& vectors) const {
    const auto count = std::min(static_cast<GLsizeiptr>(vectors.size()), GLsizeiptr{vertexCount});
    glBindBuffer(GL_ARRAY_BUFFER, buffer);
    glBufferSubData(GL_ARRAY_BUFFER, 0, count * GLsizeiptr{sizeof(Eigen::Vector3d)},
                    vectors.data());
}

glSkMesh::glSkMesh(std::shared_ptr<SkeletalMesh> mesh) : mesh_(std::move(mesh)) {
    parts_.reserve(mesh_->meshes.size());
    for (const auto& part : mesh_->meshes) parts_.emplace_back(part);
}

glSkMesh::~glSkMesh() = default;

void glSkMesh::setup() {
    for (Part& part : parts_) part.setup();
}

void glSkMesh::update() {
    mesh_->update(true, true);
    for (Part& part : parts_) {
        if (part.hasMoved()) part.upload();
    }
}

void glSkMesh::release() {
    for (const Part& part : parts_) {
        glDeleteVertexArrays(1, &part.vertexArray);
        const GLuint buffers[] = {part.indexBuffer, part.positionBuffer, part.normalBuffer};
        glDeleteBuffers(3, buffers);
    }
}

void glSkMesh::extend(Eigen::AlignedBox3d& box) const {
    for (const auto& part : mesh_->meshes) {
        for (const Eigen::Vector3d& point : part->data_cpu.curr_positions) box.extend(point);
    }
}

void glSkMesh::draw(const Shader& shader) {
    if (!begin(shader)) return;
    for (const Part& part : parts_) {
        glBindVertexArray(part.vertexArray);
        glDrawElements(GL_TRIANGLES, part.indexCount, GL_UNSIGNED_INT, nullptr);
    }
    glBindVertexArray(0);
}

}  // namespace drelt
