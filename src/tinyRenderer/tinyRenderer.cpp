#include "tinyRenderer/tinyRenderer.h"

#include <glad/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "SkeletonDynamics/SkeletonDescription.h"
#include "SkeletonDynamics/skSystem.h"
#include "output/OutputFile.h"
#include "platform/messages.h"
#include "tinyRenderer/RenderContext.h"
#include "tinyRenderer/Shader.h"
#include "tinyRenderer/ShaderPath.h"
#include "tinyRenderer/glCube.h"
#include "tinyRenderer/glShape.h"
#include "tinyRenderer/glSkMesh.h"
#include "tinyRenderer/glTrajectory.h"

namespace drelt {

namespace {

// Says which kind of context is in use, once per kind.
std::unique_ptr<RenderContext> openContext() {
    const auto say = [](bool& said, const char* what) {
        if (!said) inform("[Info] renderer: %s\n", what);
        std::fflush(stdout);  // a driver may end the process
        said = true;
    };
    static bool saidWindow = false;
    static bool saidSurfaceless = false;
    auto context = openWindow();
    if (context != nullptr) {
        say(saidWindow, "draws in a window (GLFW)");
        return context;
    }
    context = makeSurfacelessContext();
    if (context != nullptr)
        say(saidSurfaceless, "no window can be opened, draws without one (EGL)");
    return context;
}

int checkedSide(int size, const char* what) {
    constexpr int kLargestSide = 16384;  // the largest that OpenGL drivers draw
    if (size > 0 && size <= kLargestSide) return size;
    throw std::invalid_argument(std::string("the renderer's ") + what + " is " +
                                std::to_string(size) + " pixels; give 1 to " +
                                std::to_string(kLargestSide));
}

}  // namespace

tinyRenderer::tinyRenderer(int width, int height, float near, float far)
    : width_(checkedSide(width, "width")),
      height_(checkedSide(height, "height")),
      projection_(
          camera_.perspective(static_cast<float>(width) / static_cast<float>(height), near, far)) {}

tinyRenderer::~tinyRenderer() { release(); }

void tinyRenderer::render() {
    if (!initialised_) {
        initialised_ = true;
        initialise();
    }
    if (context_ == nullptr) return;
    const CurrentContext current(*context_);
    context_->pollEvents();
    drawFrame();
    context_->present(frame_.id(), width_, height_);
}

void tinyRenderer::initialise() {
    auto context = openContext();
    if (context == nullptr) {
        return fail("Failed to create GLFW window",
                    "this machine gave render() no OpenGL 3.3 context; install libglfw3 or libegl1 "
                    "and an OpenGL driver");
    }
    const CurrentContext current(*context);
    if (gladLoadGL(context->entryPoints()) == 0) {
        return fail("Failed to initialize GLAD",
                    "the OpenGL driver lacks functions of OpenGL 3.3; install another one");
    }
    if (!frame_.setup(width_, height_)) {
        frame_.release();
        const std::string reason = "the OpenGL driver cannot draw images of " +
                                   std::to_string(width_) + " x " + std::to_string(height_) +
                                   " pixels";
        warn("renderer: " + reason);
        failure_ = reason + "; make a smaller renderer";
        return;
    }
    loadShaders();
    context->show(width_, height_);
    context_ = std::move(context);
}

void tinyRenderer::fail(const std::string& said, const std::string& reason) {
    std::puts(said.c_str());
    std::fflush(stdout);
    failure_ = reason;
}

void tinyRenderer::loadShaders() {
    const auto load = [](const char* vertexFile, const char* fragmentFile) {
        return std::make_unique<Shader>(shaderPath(vertexFile), shaderPath(fragmentFile));
    };
    materialShader_ = load("shaders/3.1.materials.vs", "shaders/3.1.materials.fs");
    if (materialShader_->use()) {
        materialShader_->setVec3("light.ambient", light_.ambient);
        materialShader_->setVec3("light.diffuse", light_.diffuse);
        materialShader_->setVec3("light.specular", light_.specular);
        materialShader_->setVec3("material.ambient", {1, 1, 1});
        materialShader_->setVec3("material.diffuse", {1, 1, 1});
        materialShader_->setVec3("material.specular", {1, 0, 0});
        materialShader_->setFloat("material.shininess", 32);
    }
    flatShader_ = load("shaders/flat.vs", "shaders/flat.fs");
    if (flatShader_->use()) flatShader_->setVec3("flatColor", {0, 1, 0});
}

void tinyRenderer::drawFrame() {
    frame_.bind();
    glEnable(GL_DEPTH_TEST);
    glClearColor(0.1f, 0.1f, 0.1f, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    for (; setupCount_ < drawables_.size(); ++setupCount_) drawables_[setupCount_]->setup();
    for (const auto& drawable : drawables_) drawable->update();
    if (depthFromScene_) encloseScene();
    setFrameUniforms();
    for (const auto& drawable : drawables_) {
        drawable->draw(drawable->isFlat() ? *flatShader_ : *materialShader_);
    }
}

// The planes stand a little in front of and behind the ball around all that is shown.
void tinyRenderer::encloseScene() {
    Eigen::AlignedBox3d box;
    for (const auto& drawable : drawables_) drawable->extend(box);
    if (box.isEmpty()) return;
    constexpr double kSpare = 1.05,
                     kNearest = 1e-3;  // depth buffers lose precision near the camera
    const double radius = box.diagonal().norm() / 2 * kSpare + 1e-9;
    const double away =
        (box.center() - camera_.position.cast<double>()).dot(camera_.front.cast<double>());
    const double far = away + radius;
    if (!(far > 0) || !std::isfinite(far)) return;  // all lies behind the camera
    setDepthRange(static_cast<float>(std::max(away - radius, kNearest * far)),
                  static_cast<float>(far));
}

void tinyRenderer::setFrameUniforms() const {
    const Eigen::Matrix4f view = camera_.view();
    if (materialShader_->use()) {
        materialShader_->setVec3("light.position", light_.position);
        materialShader_->setVec3("viewPos", camera_.position);
        materialShader_->setMat4("projection", projection_);
        materialShader_->setMat4("view", view);
    }
    if (flatShader_->use()) {
        flatShader_->setMat4("projection", projection_);
        flatShader_->setMat4("view", view);
    }
}

std::vector<std::uint8_t> tinyRenderer::pixels(const std::string& purpose) const {
    if (context_ == nullptr) {
        throw std::runtime_error(purpose + ": no frame has been drawn; " +
                                 (initialised_ ? failure_ : "call render() first"));
    }
    const CurrentContext current(*context_);
    const std::vector<std::uint8_t> upwards = frame_.readPixels();
    std::vector<std::uint8_t> downwards;
    downwards.reserve(upwards.size());
    const std::ptrdiff_t row = std::ptrdiff_t{3} * width_;
    for (int y = height_ - 1; y >= 0; --y) {
        const auto begin = upwards.begin() + row * y;
        downwards.insert(downwards.end(), begin, begin + row);
    }
    return downwards;
}

void tinyRenderer::savePPM(const std::string& fileName) const {
    if (context_ == nullptr) {
        throw std::runtime_error("'" + fileName + "' cannot be saved: no frame has been drawn; " +
                                 (initialised_ ? failure_ : "call render() first"));
    }
    const CurrentContext current(*context_);
    const std::vector<std::uint8_t> pixels = frame_.readPixels();
    OutputFile file(fileName, OutputFile::MissingFolders::Keep);
    file.write("P6\n" + std::to_string(width_) + " " + std::to_string(height_) + "\n255\n");
    file.write(reinterpret_cast<const char*>(pixels.data()), pixels.size());
    file.close();
}

void tinyRenderer::setCamera(const Eigen::Vector3f& position, const Eigen::Vector3f& target,
                             const Eigen::Vector3f& worldup) {
    camera_.lookAt(position, target, worldup);
}

void tinyRenderer::setDepthRange(float near, float far) {
    if (!(near > 0 && near < far && std::isfinite(far))) {
        throw std::invalid_argument("the near and far plane are at " + std::to_string(near) +
                                    " and " + std::to_string(far) +
                                    " m; give two positive distances, the near one first");
    }
    projection_ =
        camera_.perspective(static_cast<float>(width_) / static_cast<float>(height_), near, far);
}

void tinyRenderer::setLight(const Eigen::Vector3f& position, const Eigen::Vector3f& diffuse,
                            const Eigen::Vector3f& specular) {
    light_.position = position;
    light_.diffuse = diffuse;
    light_.specular = specular;
}

void tinyRenderer::addCube() { drawables_.push_back(std::make_shared<glCube>()); }

void tinyRenderer::addLines(std::vector<Eigen::Vector3d> points, const Eigen::Vector3f& colour,
                            bool onTop) {
    if (points.size() % 2 != 0) {
        throw std::invalid_argument("addLines: got " + std::to_string(points.size()) +
                                    " points; give two for each line");
    }
    drawables_.push_back(std::make_shared<glLines>(std::move(points), colour, onTop));
}

void tinyRenderer::addTriangles(std::vector<Eigen::Vector3d> points,
                                std::vector<Eigen::Vector3d> normals,
                                const Eigen::Vector3f& colour) {
    if (points.size() % 3 != 0 || points.size() != normals.size()) {
        throw std::invalid_argument("addTriangles: got " + std::to_string(points.size()) +
                                    " points and " + std::to_string(normals.size()) +
                                    " normals; give three of each for each triangle");
    }
    drawables_.push_back(
        std::make_shared<glTriangles>(std::move(points), std::move(normals), colour));
}

void tinyRenderer::addGrid(const Eigen::Vector3d& centre, double height, double spacing,
                           int cells) {
    constexpr int kMostCells = 1000;
    if (!(spacing > 0) || !std::isfinite(spacing) || cells < 1 || cells > kMostCells) {
        throw std::invalid_argument("addGrid: got " + std::to_string(cells) + " cells of " +
                                    std::to_string(spacing) +
                                    " m; give 1 to 1000 cells of a positive size");
    }
    addLines(gridLines(centre, height, spacing, cells), {0.35f, 0.35f, 0.35f}, false);
}

void tinyRenderer::addAxes(const Eigen::Vector3d& origin, double length) {
    for (int axis = 0; axis < 3; ++axis) {
        const Eigen::Vector3d end = origin + length * Eigen::Vector3d::Unit(axis);
        addLines({origin, end}, Eigen::Vector3f::Unit(axis), false);
    }
}

void tinyRenderer::addDynamics(const std::shared_ptr<skSystem>& dynamics) {
    if (dynamics == nullptr) {
        throw std::invalid_argument("the dynamics to draw are None; give a SkeletonDynamics");
    }
    drawables_.push_back(std::make_shared<glSkMesh>(dynamics->description()->mesh));
}

void tinyRenderer::addTrajectory(const std::shared_ptr<mlTrajectory<double, 3>>& trajectory) {
    if (trajectory == nullptr) {
        throw std::invalid_argument("the trajectory to draw is None; give a trajectory3d");
    }
    drawables_.push_back(std::make_shared<glTrajectory>(trajectory));
}

void tinyRenderer::release() {
    if (context_ == nullptr) return;
    {
        const CurrentContext current(*context_);
        for (std::size_t i = 0; i < setupCount_; ++i) drawables_[i]->release();
        materialShader_->release();
        flatShader_->release();
        frame_.release();
    }
    context_.reset();
}

}  // namespace drelt
