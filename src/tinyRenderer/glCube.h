// The unit cube around the origin.
#pragma once

#include "tinyRenderer/glObject.h"

namespace drelt {

// Edges of 1 m along the axes; lit.
class glCube final : public glObject {
public:
    glCube() = default;
    void setup() override;
    void update() override {}
    void release() override;
    void draw(const Shader& shader) override;
    void extend(Eigen::AlignedBox3d& box) const override;
};

}  // namespace drelt
