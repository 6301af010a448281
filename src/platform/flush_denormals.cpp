#include "platform/launch.h"

#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace drelt {

#if defined(__SSE2__)
namespace {
constexpr unsigned kFlushToZeroAndDenormalsAreZero = 0x8040;
}
FlushDenormals::FlushDenormals() : saved_(_mm_getcsr()) {
    _mm_setcsr(saved_ | kFlushToZeroAndDenormalsAreZero);
}
FlushDenormals::~FlushDenormals() { _mm_setcsr(saved_); }
#else
FlushDenormals::FlushDenormals() : saved_(0) {}
FlushDenormals::~FlushDenormals() = default;
#endif

}  // namespace drelt
