#ifndef QEL_IMAGE_PIXEL_LAYOUT_H_
#define QEL_IMAGE_PIXEL_LAYOUT_H_

#include "image/pixel_codec.h"

namespace qel {

// The bit count of an image becomes a codec type once, at the edge of a loop. Two visitors exist
// because two families of operations treat odd bit counts differently.

/// Calls `visit(codec)` as pixel access reads a bit count: 32 is Bgra, any other count from 24 up
/// is Bgr, 8, 4 and 1 are palette indices, and everything else has no pixels.
template <typename Visitor>
decltype(auto) VisitAccessLayout(int bit_count, Visitor&& visit) {
  switch (bit_count) {
    case 32:
      return visit(Bgra{});
    case 8:
      return visit(PaletteIndex<8>{});
    case 4:
      return visit(PaletteIndex<4>{});
    case 1:
      return visit(PaletteIndex<1>{});
    default:
      return bit_count >= 24 ? visit(Bgr{}) : visit(NoPixel{});
  }
}

/// Bytes per pixel for operations that know 8, 24 and 32 bits only; 0 for any other bit count.
constexpr int ExactPixelBytes(int bit_count) {
  return bit_count == 8 ? 1 : bit_count == 24 ? 3 : bit_count == 32 ? 4 : 0;
}

/// Whole bytes per pixel of any bit count; 0 below 8.
constexpr int WholePixelBytes(int bit_count) { return bit_count > 0 ? bit_count / 8 : 0; }

/// Bytes per pixel of the direct layouts of pixel access: 4 at exactly 32 bits, else 3.
constexpr int DirectPixelBytes(int bit_count) { return bit_count == 32 ? 4 : 3; }

/// Bytes per pixel as `VisitAccessLayout` takes them; 0 where a pixel is less than a byte, or none.
constexpr int AccessPixelBytes(int bit_count) {
  return bit_count >= 24 ? DirectPixelBytes(bit_count) : bit_count == 8 ? 1 : 0;
}

}  // namespace qel

#endif  // QEL_IMAGE_PIXEL_LAYOUT_H_
