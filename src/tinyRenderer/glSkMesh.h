// The skin of a body.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <vector>

#include "tinyRenderer/glObject.h"

namespace drelt {

class MeshData;
class SkeletalMesh;

// Lit. Shows the pose that the mesh's nodes have at each frame, which is the body's as of its latest
// step. The numbers of vertices and triangles are those at construction.
class glSkMesh final : public glObject {
public:
    explicit glSkMesh(std::shared_ptr<SkeletalMesh> mesh);
    ~glSkMesh() override;
    void setup() override;
    // Brings the mesh's skin to the host, and from there to OpenGL where it has moved.
    void update() override;
    void release() override;
    void draw(const Shader& shader) override;

private:
    struct Part;

    std::shared_ptr<SkeletalMesh> mesh_;
    std::vector<Part> parts_;
};

}  // namespace drelt
