// The skin of a body.
#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <vector>

#include "tinyRenderer/glObject.h"

namespace drelt {

class MeshData;
class SkeletalMesh;

// Lit. Each frame shows the pose of the mesh's nodes, which is that of the body after its latest step. The
// numbers of vertices and triangles are those at construction.
class glSkMesh final : public glObject {
public:
    explicit glSkMesh(std::shared_ptr<SkeletalMesh> mesh);
    ~glSkMesh() override;
    void setup() override;
    // Copies the skin to the host, and to OpenGL if it has moved.
    void update() override;
    void release() override;
    void draw(const Shader& shader) override;
    void extend(Eigen::AlignedBox3d& box) const override;

private:
    struct Part;

    std::shared_ptr<SkeletalMesh> mesh_;
    std::vector<Part> parts_;
};

}  // namespace drelt
