// Windows by GLFW, which is loaded when the first one is opened.
#define GLFW_INCLUDE_NONE
#include <GLFW/glfw3.h>
#include <glad/gl.h>

#include <memory>

#include "tinyRenderer/RenderContext.h"
#include "tinyRenderer/SharedLibrary.h"

namespace drelt {
namespace {

struct Glfw {
    decltype(glfwInit)* init = nullptr;
    decltype(glfwTerminate)* terminate = nullptr;
    decltype(glfwWindowHint)* windowHint = nullptr;
    decltype(glfwCreateWindow)* createWindow = nullptr;
    decltype(glfwDestroyWindow)* destroyWindow = nullptr;
    decltype(glfwMakeContextCurrent)* makeContextCurrent = nullptr;
    decltype(glfwGetProcAddress)* getProcAddress = nullptr;
    decltype(glfwSwapInterval)* swapInterval = nullptr;
    decltype(glfwSwapBuffers)* swapBuffers = nullptr;
    decltype(glfwPollEvents)* pollEvents = nullptr;
    decltype(glfwGetFramebufferSize)* getFramebufferSize = nullptr;
    decltype(glfwSetWindowSize)* setWindowSize = nullptr;
    decltype(glfwShowWindow)* showWindow = nullptr;

    bool load(const SharedLibrary& library) {
        return library.find("glfwInit", init) && library.find("glfwTerminate", terminate) &&
               library.find("glfwWindowHint", windowHint) &&
               library.find("glfwCreateWindow", createWindow) &&
               library.find("glfwDestroyWindow", destroyWindow) &&
               library.find("glfwMakeContextCurrent", makeContextCurrent) &&
               library.find("glfwGetProcAddress", getProcAddress) &&
               library.find("glfwSwapInterval", swapInterval) &&
               library.find("glfwSwapBuffers", swapBuffers) &&
               library.find("glfwPollEvents", pollEvents) &&
               library.find("glfwGetFramebufferSize", getFramebufferSize) &&
               library.find("glfwSetWindowSize", setWindowSize) &&
               library.find("glfwShowWindow", showWindow);
    }
};

// The running GLFW, shared by all windows: the last one terminates it.
class GlfwSession {
public:
    // Null if GLFW is not installed or finds no display.
    static std::shared_ptr<GlfwSession> get() {
        static std::weak_ptr<GlfwSession> running;
        std::shared_ptr<GlfwSession> session = running.lock();
        if (session != nullptr) return session;
        static const SharedLibrary library("libglfw.so.3");
        Glfw glfw;
        if (!glfw.load(library) || glfw.init() != GLFW_TRUE) return nullptr;
        session = std::make_shared<GlfwSession>(glfw);
        running = session;
        return session;
    }

    explicit GlfwSession(const Glfw& started) : glfw(started) {}
    ~GlfwSession() { glfw.terminate(); }
    GlfwSession(const GlfwSession&) = delete;
    GlfwSession& operator=(const GlfwSession&) = delete;

    const Glfw glfw;
};

class GlfwWindow final : public RenderContext {
public:
    GlfwWindow(std::shared_ptr<GlfwSession> session, GLFWwindow* window)
        : session_(std::move(session)), glfw_(session_->glfw), window_(window) {
        // do not wait for the display's refresh
        const CurrentContext current(*this);
        glfw_.swapInterval(0);
    }
    ~GlfwWindow() override { glfw_.destroyWindow(window_); }

    void makeCurrent() override { glfw_.makeContextCurrent(window_); }
    void makeNoneCurrent() override { glfw_.makeContextCurrent(nullptr); }
    EntryPoint (*entryPoints() const)(const char*) override { return glfw_.getProcAddress; }
    void pollEvents() override { glfw_.pollEvents(); }

    void show(int width, int height) override {
        glfw_.setWindowSize(window_, width, height);
        glfw_.showWindow(window_);
    }

    void present(unsigned framebuffer, int width, int height) override {
        int shownWidth = 0;
        int shownHeight = 0;  // the user can resize the window
        glfw_.getFramebufferSize(window_, &shownWidth, &shownHeight);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
        glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
        glBlitFramebuffer(0, 0, width, height, 0, 0, shownWidth, shownHeight, GL_COLOR_BUFFER_BIT,
                          GL_LINEAR);
        glfw_.swapBuffers(window_);
    }

private:
    std::shared_ptr<GlfwSession> session_;
    const Glfw& glfw_;
    GLFWwindow* window_;
};

}  // namespace

std::unique_ptr<RenderContext> openWindow() {
    auto session = GlfwSession::get();
    if (session == nullptr) return nullptr;
    const Glfw& glfw = session->glfw;
    glfw.windowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
    glfw.windowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
    glfw.windowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    glfw.windowHint(GLFW_VISIBLE, GLFW_FALSE);
    constexpr int kSide =
        64;  // small: some window systems end the process if a window is too large
    GLFWwindow* const window = glfw.createWindow(kSide, kSide, "renderer", nullptr, nullptr);
    if (window == nullptr) return nullptr;
    return std::make_unique<GlfwWindow>(std::move(session), window);
}

}  // namespace drelt
