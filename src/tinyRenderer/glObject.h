// The base of all drawables.
#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

namespace drelt {

class Shader;

// A drawable belongs to one renderer. Except for construction and destruction, the renderer's context must
// be current.
class glObject {
public:
    virtual ~glObject() = default;
    glObject(const glObject&) = delete;
    glObject& operator=(const glObject&) = delete;

    // Called once, before the first frame that shows the drawable.
    virtual void setup() = 0;
    // Called in every frame before anything is drawn.
    virtual void update() = 0;
    // Called once, when the renderer ends.
    virtual void release() = 0;
    // Draws nothing if the shader cannot draw.
    virtual void draw(const Shader& shader) = 0;

    // Extends a box by what it shows [m], world. Called in every frame after update, if at all.
    virtual void extend(Eigen::AlignedBox3d& box) const = 0;

    // Whether it is drawn in one colour; otherwise it is lit.
    bool isFlat() const { return flat_; }

protected:
    explicit glObject(bool flat = false) : flat_(flat) {}

    // Makes the shader current and sets the model matrix; returns false if the shader cannot draw.
    bool begin(const Shader& shader) const;
    // Fills a vertex buffer with 3-vectors and binds it to an attribute of the bound vertex array.
    static void setupVectors(unsigned buffer, unsigned attribute, std::ptrdiff_t count,
                             const Eigen::Vector3d* vectors, unsigned usage);

    bool flat_;
    unsigned vertexArray_ = 0;
    unsigned vertexBuffer_ = 0;
    Eigen::Matrix4f model_ = Eigen::Matrix4f::Identity();  // model to world
};

}  // namespace drelt
