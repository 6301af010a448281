// The renderer: draws a scene and saves frames as images.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tinyRenderer/Camera.h"
#include "tinyRenderer/FrameBuffer.h"
#include "trajectory/mlTrajectory.h"

namespace drelt {

class glObject;
class RenderContext;
class Shader;
class skSystem;

// Order of use: add drawables, set camera and light, then render and savePPM for each frame. Frames are
// drawn into a framebuffer, and shown in a window if there is a display. Lengths are in metres along world
// axes, colours from 0 to 1. Several renderers can be used in turn, from one thread at a time.
class tinyRenderer {
public:
    // Image size in pixels, distances of the near and far plane. Nothing is opened before the first
    // frame. Throws std::invalid_argument for a side that is not positive or above 16384.
    tinyRenderer(int width, int height, float near, float far);
    ~tinyRenderer();
    tinyRenderer(const tinyRenderer&) = delete;
    tinyRenderer& operator=(const tinyRenderer&) = delete;

    // Draws one frame. The first call prints which kind of context it uses. If there is none, it prints
    // that, and no call draws anything.
    void render();
    // Writes the latest frame as a binary PPM, rows from bottom to top. A file that cannot be written
    // gives one warning per folder on standard error. Throws std::runtime_error with the reason if no frame
    // has been drawn.
    void savePPM(const std::string& fileName) const;
    // The latest frame: red, green and blue of each pixel, rows from top to bottom. `purpose` begins the text
    // of the std::runtime_error that says that no frame has been drawn.
    std::vector<std::uint8_t> pixels(const std::string& purpose) const;
    int width() const { return width_; }
    int height() const { return height_; }

    void setCamera(const Eigen::Vector3f& position, const Eigen::Vector3f& target,
                   const Eigen::Vector3f& worldup);
    // Fixed distances of the near and far plane [m]. Throws std::invalid_argument unless 0 < near < far, both
    // finite.
    void setDepthRange(float near, float far);
    // In every frame, near and far plane enclose what is shown.
    void setDepthFromScene(bool enclose) { depthFromScene_ = enclose; }
    // After the first frame only the position has an effect.
    void setLight(const Eigen::Vector3f& position,
                  const Eigen::Vector3f& diffuse = Eigen::Vector3f::Ones(),
                  const Eigen::Vector3f& specular = Eigen::Vector3f::Ones());

    // Drawables appear from the next frame on and are drawn in the order of adding.
    void addCube();
    // Segments between pairs of points [m]; on top, they hide what was added before. Throws
    // std::invalid_argument for an odd number of points.
    void addLines(std::vector<Eigen::Vector3d> points, const Eigen::Vector3f& colour, bool onTop);
    // Triangles with three points [m] and three normals each. Throws std::invalid_argument for numbers of
    // points that are no multiples of three or differ.
    void addTriangles(std::vector<Eigen::Vector3d> points, std::vector<Eigen::Vector3d> normals,
                      const Eigen::Vector3f& colour);
    // A square grid on the plane y = height around the centre, `cells` of `spacing` [m] each way. Throws
    // std::invalid_argument for a spacing that is not positive and for cells outside 1 to 1000.
    void addGrid(const Eigen::Vector3d& centre, double height, double spacing, int cells);
    // Axes of this length [m] from a point: x red, y green, z blue.
    void addAxes(const Eigen::Vector3d& origin, double length);
    // Throw std::invalid_argument for a null pointer.
    void addDynamics(const std::shared_ptr<skSystem>& dynamics);
    void addTrajectory(const std::shared_ptr<mlTrajectory<double, 3>>& trajectory);

private:
    struct Light {
        Eigen::Vector3f position{12, 10, 20};
        Eigen::Vector3f ambient{0.1f, 0.1f, 0.1f};
        Eigen::Vector3f diffuse{1, 1, 1};
        Eigen::Vector3f specular{1, 1, 1};
    };

    void initialise();
    void fail(const std::string& said, const std::string& reason);
    void loadShaders();
    void setFrameUniforms() const;
    void encloseScene();
    void drawFrame();
    void release();

    int width_, height_;
    std::vector<std::shared_ptr<glObject>> drawables_;
    std::size_t setupCount_ = 0;  // the number of drawables that are set up
    Camera camera_;
    Eigen::Matrix4f projection_;
    bool depthFromScene_ = false;
    Light light_;
    bool initialised_ = false;
    std::string failure_;                     // why the first frame could not be drawn
    std::unique_ptr<RenderContext> context_;  // null before the first frame, or if there is none
    FrameBuffer frame_;
    std::unique_ptr<Shader> materialShader_, flatShader_;
};

}  // namespace drelt
