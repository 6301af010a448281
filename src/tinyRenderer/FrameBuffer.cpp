#include "tinyRenderer/FrameBuffer.h"

#include <glad/gl.h>

#include <algorithm>

namespace drelt {

namespace {

unsigned attachStorage(GLenum attachment, GLenum format, int width, int height) {
    GLuint buffer = 0;
    glGenRenderbuffers(1, &buffer);
    glBindRenderbuffer(GL_RENDERBUFFER, buffer);
    glRenderbufferStorage(GL_RENDERBUFFER, format, width, height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, attachment, GL_RENDERBUFFER, buffer);
    return buffer;
}

}  // namespace

bool FrameBuffer::setup(int width, int height) {
    GLint largest = 0;
    GLint shown[2] = {};
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &largest);
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, shown);
    if (width > std::min(largest, shown[0]) || height > std::min(largest, shown[1])) return false;
    width_ = width;
    height_ = height;
    glGenFramebuffers(1, &id_);
    glBindFramebuffer(GL_FRAMEBUFFER, id_);
    // the format with 8 bits per colour that every OpenGL 3.3 can draw into
    colour_ = attachStorage(GL_COLOR_ATTACHMENT0, GL_RGBA8, width, height);
    depth_ = attachStorage(GL_DEPTH_ATTACHMENT, GL_DEPTH_COMPONENT24, width, height);
    return glCheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

void FrameBuffer::release() {
    glDeleteFramebuffers(1, &id_);
    glDeleteRenderbuffers(1, &colour_);
    glDeleteRenderbuffers(1, &depth_);
}

void FrameBuffer::bind() const {
    glBindFramebuffer(GL_FRAMEBUFFER, id_);
    glViewport(0, 0, width_, height_);
}

std::vector<std::uint8_t> FrameBuffer::readPixels() const {
    std::vector<std::uint8_t> pixels(std::size_t{3} * width_ * height_);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, id_);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width_, height_, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
    return pixels;
}

}  // namespace drelt
