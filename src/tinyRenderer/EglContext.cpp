// Contexts without a surface by EGL. glad finds its functions when the first context is made.
#include <glad/egl.h>

#include <array>
#include <memory>
#include <vector>

#include "tinyRenderer/RenderContext.h"

namespace drelt {
namespace {

// Displays that need no window system, best first: Mesa's, then one per graphics device.
std::vector<EGLDisplay> candidateDisplays() {
    std::vector<EGLDisplay> found;
    if (eglGetPlatformDisplayEXT == nullptr) return found;
    if (GLAD_EGL_MESA_platform_surfaceless) {
        found.push_back(
            eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    }
    if (eglQueryDevicesEXT == nullptr || !GLAD_EGL_EXT_platform_device) return found;
    std::array<EGLDeviceEXT, 16> devices{};
    EGLint count = 0;
    if (eglQueryDevicesEXT(static_cast<EGLint>(devices.size()), devices.data(), &count) !=
        EGL_TRUE) {
        return found;
    }
    for (EGLint i = 0; i < count; ++i) {
        found.push_back(eglGetPlatformDisplayEXT(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr));
    }
    return found;
}

// An initialised display, shared by all contexts on it: the last one terminates it.
class EglSession {
public:
    EglSession(EGLDisplay opened, EGLConfig chosen) : display(opened), config(chosen) {}
    ~EglSession() { eglTerminate(display); }
    EglSession(const EglSession&) = delete;
    EglSession& operator=(const EglSession&) = delete;

    // Null if the display cannot draw OpenGL without a surface.
    static std::shared_ptr<EglSession> open(EGLDisplay display) {
        if (display == EGL_NO_DISPLAY || eglInitialize(display, nullptr, nullptr) != EGL_TRUE) {
            return nullptr;
        }
        // a surface type of 0 accepts any configuration: no surface is made from it
        const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                 EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        // an initialised display tells its version and extensions
        if (gladLoaderLoadEGL(display) == 0 || !GLAD_EGL_KHR_surfaceless_context ||
            !GLAD_EGL_KHR_create_context || eglBindAPI == nullptr ||
            eglChooseConfig(display, wanted, &config, 1, &count) != EGL_TRUE || count < 1) {
            eglTerminate(display);
            return nullptr;
        }
        return std::make_shared<EglSession>(display, config);
    }

    // Returns EGL_NO_CONTEXT if it cannot be made.
    EGLContext createContext() const {
        const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION,
                                  3,
                                  EGL_CONTEXT_MINOR_VERSION,
                                  3,
                                  EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                  EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                  EGL_NONE};
        eglBindAPI(EGL_OPENGL_API);
        return eglCreateContext(display, config, EGL_NO_CONTEXT, version);
    }

    EGLDisplay display;
    EGLConfig config;
};

class EglContext final : public RenderContext {
public:
    EglContext(std::shared_ptr<EglSession> session, EGLContext context)
        : session_(std::move(session)), context_(context) {}
    ~EglContext() override { eglDestroyContext(session_->display, context_); }

    void makeCurrent() override { bind(context_); }
    void makeNoneCurrent() override { bind(EGL_NO_CONTEXT); }
    EntryPoint (*entryPoints() const)(const char*) override { return eglGetProcAddress; }

private:
    void bind(EGLContext context) {
        eglBindAPI(EGL_OPENGL_API);  // a thread has one current context per API
        eglMakeCurrent(session_->display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    }

    std::shared_ptr<EglSession> session_;
    EGLContext context_;
};

std::unique_ptr<RenderContext> contextOf(std::shared_ptr<EglSession> session) {
    if (session == nullptr) return nullptr;
    EGLContext context = session->createContext();
    if (context == EGL_NO_CONTEXT) return nullptr;
    return std::make_unique<EglContext>(std::move(session), context);
}

}  // namespace

std::unique_ptr<RenderContext> makeSurfacelessContext() {
    static std::weak_ptr<EglSession> running;
    if (auto context = contextOf(running.lock())) return context;
    if (gladLoaderLoadEGL(EGL_NO_DISPLAY) == 0) return nullptr;
    for (EGLDisplay display : candidateDisplays()) {
        auto session = EglSession::open(display);
        if (auto context = contextOf(session)) {
            running = session;
            return context;
        }
    }
    return nullptr;
}

}  // namespace drelt
