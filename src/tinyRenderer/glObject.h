// What a renderer draws.
#pragma once

#include <Eigen/Core>

namespace drelt {

class Shader;

// A drawable belongs to one renderer. All but construction and destruction need its context current.
class glObject {
public:
    virtual ~glObject() = default;
    glObject(const glObject&) = delete;
    glObject& operator=(const glObject&) = delete;

    // Once, before the first frame that shows it.
    virtual void setup() = 0;
    // In every frame, before anything is drawn.
    virtual void update() = 0;
    // Once, when the renderer ends.
    virtual void release() = 0;
    // Draws nothing with a shader that cannot draw.
    virtual void draw(const Shader& shader) = 0;

    // Whether it is drawn in one colour; else it is lit.
    bool isFlat() const { return flat_; }

protected:
    explicit glObject(bool flat = false) : flat_(flat) {}

    // Takes the shader and the model matrix into use; returns false where the shader cannot draw.
    bool begin(const Shader& shader) const;
    // Fills a vertex buffer with 3-vectors and ties it to an attribute of the bound vertex array.
    static void setupVectors(unsigned buffer, unsigned attribute, std::ptrdiff_t count,
                             const Eigen::Vector3d* vectors, unsigned usage);

    bool flat_;
    unsigned vertexArray_ = 0;
    unsigned vertexBuffer_ = 0;
    Eigen::Matrix4f model_ = Eigen::Matrix4f::Identity();  // model to world
};

}  // namespace drelt
