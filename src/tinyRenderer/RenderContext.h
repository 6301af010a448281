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

    // Makes the context that of this thread, or leaves the thread without one.
    virtual void makeCurrent() = 0;
    virtual void makeNoneCurrent() = 0;
    // What finds the entry points of OpenGL by name.
    virtual EntryPoint (*entryPoints() const)(const char*) = 0;
    // Answers the window system, so that it does not take the window for a dead one.
    virtual void pollEvents() {}
    // Makes what shows the frames appear, at this size; before it nothing is seen. The driver has been
    // found able to draw images of this size by then.
    virtual void show(int /*width*/, int /*height*/) {}
    // Shows the frame of a framebuffer object of width x height pixels. Needs the context current.
    virtual void present(unsigned /*framebuffer*/, int /*width*/, int /*height*/) {}
};

// Makes a context current as long as it lives, and then none: so any thread may draw the next frame.
class CurrentContext {
public:
    explicit CurrentContext(RenderContext& context) : context_(context) { context.makeCurrent(); }
    ~CurrentContext() { context_.makeNoneCurrent(); }
    CurrentContext(const CurrentContext&) = delete;
    CurrentContext& operator=(const CurrentContext&) = delete;

private:
    RenderContext& context_;
};

// A window with a context (GLFW), small and hidden until its show(). Null where there is no display,
// or none with OpenGL 3.3.
std::unique_ptr<RenderContext> openWindow();
// A context without any surface (EGL), for machines without a display. Null where there is none.
std::unique_ptr<RenderContext> makeSurfacelessContext();

}  // namespace drelt
