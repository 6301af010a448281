// The memory that frames are drawn into. Unlike the buffers of a window it can always be read back, and
// it gives the same images with and without a window.
#pragma once

#include <cstdint>
#include <vector>

namespace drelt {

// A framebuffer object with 8 bits per colour and a depth buffer, without multisampling. For every call
// the context in which it was set up must be current.
class FrameBuffer {
public:
    // Returns false if the driver cannot make one of this size.
    bool setup(int width, int height);
    void release();

    unsigned id() const { return id_; }
    // Directs all drawing to it.
    void bind() const;
    // Red, green and blue of each pixel; rows from bottom to top, without padding.
    std::vector<std::uint8_t> readPixels() const;

private:
    unsigned id_ = 0;
    unsigned colour_ = 0;
    unsigned depth_ = 0;
    int width_ = 0;
    int height_ = 0;
};

}  // namespace drelt
