// The one translation unit that holds glad's function pointers.
#define GLAD_EGL_IMPLEMENTATION
#include <glad/egl.h>
#define GLAD_GL_IMPLEMENTATION
#include <glad/gl.h>
