#ifndef QEL_IMAGE_PIXEL_CODEC_H_
#define QEL_IMAGE_PIXEL_CODEC_H_

#include <cstdint>
#include <cstring>

#include "image/image_contract.h"
#include "image/nearest_gray.h"

namespace qel {

// A codec loads and stores one pixel of a row as a packed color. Positions are within the row.

/// 32 bits: blue, green, red, alpha.
struct Bgra {
  static constexpr int kBytes = 4;
  static constexpr bool kDirect = true;
  static uint32_t Load(const uint8_t* row, int64_t x) {
    uint32_t color;
    std::memcpy(&color, row + x * kBytes, sizeof(color));
    return color;
  }
  static void Store(uint8_t* row, int64_t x, uint32_t color) {
    std::memcpy(row + x * kBytes, &color, sizeof(color));
  }
};

/// 24 bits: blue, green, red. Loads with alpha 0; alpha is dropped on storing.
struct Bgr {
  static constexpr int kBytes = 3;
  static constexpr bool kDirect = true;
  static uint32_t Load(const uint8_t* row, int64_t x) {
    const uint8_t* const pixel = row + x * kBytes;
    return PackColor(pixel[0], pixel[1], pixel[2], 0);
  }
  static void Store(uint8_t* row, int64_t x, uint32_t color) {
    uint8_t* const pixel = row + x * kBytes;
    pixel[0] = BlueOf(color);
    pixel[1] = GreenOf(color);
    pixel[2] = RedOf(color);
  }
};

/// 1, 4 or 8 bits: an index into the gray ramp, the leftmost pixel in the high bits of its byte.
template <int kBits>
struct PaletteIndex {
  static_assert(kBits == 1 || kBits == 4 || kBits == 8);
  static constexpr bool kDirect = false;
  static constexpr int kPerByte = 8 / kBits;
  static constexpr unsigned kMask = (1u << kBits) - 1;
  static constexpr int Shift(int64_t x) { return static_cast<int>(8 - kBits - x * kBits % 8); }

  static unsigned LoadIndex(const uint8_t* row, int64_t x) {
    return static_cast<unsigned>(row[(x * kBits) >> 3]) >> Shift(x) & kMask;
  }
  /// Stores the low bits of `index` and keeps the other pixels of the byte.
  static void StoreIndex(uint8_t* row, int64_t x, unsigned index) {
    uint8_t& byte = row[(x * kBits) >> 3];
    byte = static_cast<uint8_t>((byte & ~(kMask << Shift(x))) | (index & kMask) << Shift(x));
  }
  static uint32_t Load(const uint8_t* row, int64_t x) { return GrayColor(LoadIndex(row, x)); }
  // Deliberate: indices of 4 and 1 bits take the low bits of the nearest of 256 grays and read back
  // as the darkest ones, instead of being spread over the whole range. Both directions agree.
  static void Store(uint8_t* row, int64_t x, uint32_t color) {
    StoreIndex(row, x, NearestGray(BlueOf(color), GreenOf(color), RedOf(color)));
  }
};

/// Any other depth: reads as index 0, and writes are ignored.
struct NoPixel {
  static constexpr bool kDirect = false;
  static unsigned LoadIndex(const uint8_t*, int64_t) { return 0; }
  static void StoreIndex(uint8_t*, int64_t, unsigned) {}
  static uint32_t Load(const uint8_t*, int64_t) { return 0; }
  static void Store(uint8_t*, int64_t, uint32_t) {}
};

}  // namespace qel

#endif  // QEL_IMAGE_PIXEL_CODEC_H_
