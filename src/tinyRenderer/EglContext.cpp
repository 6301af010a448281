// Contexts without a surface by EGL, loaded when the first one is made.
#define EGL_NO_X11
#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "tinyRenderer/RenderContext.h"
#include "tinyRenderer/SharedLibrary.h"

namespace drelt {
namespace {

struct Egl {
    decltype(eglGetProcAddress)* getProcAddress = nullptr;
    decltype(eglQueryString)* queryString = nullptr;
    decltype(eglInitialize)* initialize = nullptr;
    decltype(eglTerminate)* terminate = nullptr;
    decltype(eglBindAPI)* bindAPI = nullptr;
    decltype(eglChooseConfig)* chooseConfig = nullptr;
    decltype(eglCreateContext)* createContext = nullptr;
    decltype(eglDestroyContext)* destroyContext = nullptr;
    decltype(eglMakeCurrent)* makeCurrent = nullptr;

    bool load(const SharedLibrary& library) {
        return library.find("eglGetProcAddress", getProcAddress) &&
               library.find("eglQueryString", queryString) &&
               library.find("eglInitialize", initialize) &&
               library.find("eglTerminate", terminate) && library.find("eglBindAPI", bindAPI) &&
               library.find("eglChooseConfig", chooseConfig) &&
               library.find("eglCreateContext", createContext) &&
               library.find("eglDestroyContext", destroyContext) &&
               library.find("eglMakeCurrent", makeCurrent);
    }

    // Null where the extension that has the function is missing.
    template <class Function>
    Function extension(const char* name) const {
        return reinterpret_cast<Function>(getProcAddress(name));
    }
};

bool lists(const char* extensions, const char* wanted) {
    return extensions != nullptr && std::strstr(extensions, wanted) != nullptr;
}

// Displays that need no window system, best first: that of Mesa, then one a graphics device.
std::vector<EGLDisplay> candidateDisplays(const Egl& egl) {
    std::vector<EGLDisplay> found;
    const char* const client = egl.queryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    const auto getDisplay =
        egl.extension<PFNEGLGETPLATFORMDISPLAYEXTPROC>("eglGetPlatformDisplayEXT");
    if (getDisplay == nullptr) return found;
    if (lists(client, "EGL_MESA_platform_surfaceless")) {
        found.push_back(getDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    }
    const auto queryDevices = egl.extension<PFNEGLQUERYDEVICESEXTPROC>("eglQueryDevicesEXT");
    if (queryDevices == nullptr || !lists(client, "EGL_EXT_platform_device")) return found;
    std::array<EGLDeviceEXT, 16> devices{};
    EGLint count = 0;
    if (queryDevices(static_cast<EGLint>(devices.size()), devices.data(), &count) != EGL_TRUE) {
        return found;
    }
    for (EGLint i = 0; i < count; ++i) {
        found.push_back(getDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr));
    }
    return found;
}

// An initialised display, shared by all contexts on it: the last one terminates it.
class EglSession {
public:
    EglSession(const Egl& loaded, EGLDisplay opened, EGLConfig chosen)
        : egl(loaded), display(opened), config(chosen) {}
    ~EglSession() { egl.terminate(display); }
    EglSession(const EglSession&) = delete;
    EglSession& operator=(const EglSession&) = delete;

    // Null where the display cannot draw OpenGL without a surface.
    static std::shared_ptr<EglSession> open(const Egl& egl, EGLDisplay display) {
        if (display == EGL_NO_DISPLAY || egl.initialize(display, nullptr, nullptr) != EGL_TRUE) {
            return nullptr;
        }
        // a surface type of 0: any configuration does, as none of its surfaces is used
        const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT,
                                 EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        const char* const extensions = egl.queryString(display, EGL_EXTENSIONS);
        if (!lists(extensions, "EGL_KHR_surfaceless_context") ||
            !lists(extensions, "EGL_KHR_create_context") ||
            egl.chooseConfig(display, wanted, &config, 1, &count) != EGL_TRUE || count < 1) {
            egl.terminate(display);
            return nullptr;
        }
        return std::make_shared<EglSession>(egl, display, config);
    }

    // Null where it cannot be made.
    EGLContext createContext() const {
        const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION,
                                  3,
                                  EGL_CONTEXT_MINOR_VERSION,
                                  3,
                                  EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                  EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                  EGL_NONE};
        egl.bindAPI(EGL_OPENGL_API);
        return egl.createContext(display, config, EGL_NO_CONTEXT, version);
    }

    const Egl egl;
    EGLDisplay display;
    EGLConfig config;
};

class EglContext final : public RenderContext {
public:
    EglContext(std::shared_ptr<EglSession> session, EGLContext context)
        : session_(std::move(session)), context_(context) {}
    ~EglContext() override { session_->egl.destroyContext(session_->display, context_); }

    void makeCurrent() override { bind(context_); }
    void makeNoneCurrent() override { bind(EGL_NO_CONTEXT); }
    EntryPoint (*entryPoints() const)(const char*) override { return session_->egl.getProcAddress; }

private:
    void bind(EGLContext context) {
        session_->egl.bindAPI(EGL_OPENGL_API);  // which of the thread's contexts is meant
        session_->egl.makeCurrent(session_->display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
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
    static const SharedLibrary library("libEGL.so.1");
    Egl egl;
    if (!egl.load(library)) return nullptr;
    for (EGLDisplay display : candidateDisplays(egl)) {
        auto session = EglSession::open(egl, display);
        if (auto context = contextOf(session)) {
            running = session;
            return context;
        }
    }
    return nullptr;
}

}  // namespace drelt
