// An OpenGL 3.3 core context, with a window or without.
#pragma once

#include <memory>

namespace drelt {

class RenderContext {
public:
    using EntryPoint = void (*)();

    RenderContext() = default;
    RenderContext(const RenderContext&) = delete;
    RenderContext& operator=(const RenderContext&) = delete;
    virtual ~RenderContext() = default;

    // Makes the context current on this thread, or leaves the thread without one.
    virtual void makeCurrent() = 0;
    virtual void makeNoneCurrent() = 0;
    // The function that finds the entry points of OpenGL by name.
    virtual EntryPoint (*entryPoints() const)(const char*) = 0;
    // Answers the window system, which would otherwise report that the window hangs.
    virtual void pollEvents() {}
    // Opens what shows the frames, at this size. Call it when the driver is known to draw images of this
    // size.
    virtual void show(int /*width*/, int /*height*/) {}
    // Shows the frame of a framebuffer object of width x height pixels. The context must be current.
    virtual void present(unsigned /*framebuffer*/, int /*width*/, int /*height*/) {}
};

// Makes a context current for its scope, and none afterwards, so that any thread can draw the next frame.
class CurrentContext {
public:
    explicit CurrentContext(RenderContext& context) : context_(context) { context.makeCurrent(); }
    ~CurrentContext() { context_.makeNoneCurrent(); }
    CurrentContext(const CurrentContext&) = delete;
    CurrentContext& operator=(const CurrentContext&) = delete;

private:
    RenderContext& context_;
};

// A window with a context (GLFW), hidden until show(). Null if there is no display, or none with
// OpenGL 3.3.
std::unique_ptr<RenderContext> openWindow();
// A context without a surface (EGL), for machines without a display. Null if there is none.
std::unique_ptr<RenderContext> makeSurfacelessContext();

}  // namespace drelt
