// The frame's own memory: what has been drawn can be read back with certainty, whatever a window
// system does with its buffers, and is the same with a window and without.
#pragma once

#include <cstdint>
#include <vector>

namespace drelt {

// A framebuffer object with 8 bits a colour and depth, without multisampling. Every call needs the
// context current, in which it was made.
class FrameBuffer {
public:
    // Returns false where the driver cannot make one of this size.
    bool setup(int width, int height);
    void release();

    unsigned id() const { return id_; }
    // Makes it the target of all drawing.
    void bind() const;
    // Red, green and blue of each pixel, rows from the bottom to the top, without padding.
    std::vector<std::uint8_t> readPixels() const;

private:
    unsigned id_ = 0;
    unsigned colour_ = 0;
    unsigned depth_ = 0;
    int width_ = 0;
    int height_ = 0;
};

}  // namespace drelt
