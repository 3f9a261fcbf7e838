#ifndef QEL_IMAGE_WIDEN_ROWS_H_
#define QEL_IMAGE_WIDEN_ROWS_H_

#include "image/colour_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

// Rows of pixels written with more bytes, for kernel sources. Alpha becomes 255. The plain loops go
// one pixel after the other, so that rows may overlap.

#ifdef QEL_HAS_COLOUR_VECTORS

inline void GreyTo24(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count, [](uint8_t* to, const uint8_t* from) { StoreGreyPixels(to, Load(from)); }, To<3>{dest},
      From<1>{source});
}

inline void ColourTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from) {
        Vector channels[4];
        LoadPixels<3>(from, channels);
        channels[3] = FillBytes(255);
        StorePixels<4>(to, channels);
      },
      To<4>{dest}, From<3>{source});
}

inline void GreyTo32(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint32_t grey = source[i];
    const uint32_t colour = grey | grey << 8 | grey << 16 | 0xFF000000u;
    __builtin_memcpy(dest + 4 * i, &colour, 4);
  }
}

#else

inline void GreyTo24(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = source[i];
  }
}

inline void ColourTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[4 * i + c] = source[3 * i + c];
    dest[4 * i + 3] = 255;
  }
}

inline void GreyTo32(uint8_t* dest, const uint8_t* source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[4 * i + c] = source[i];
    dest[4 * i + 3] = 255;
  }
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_WIDEN_ROWS_H_
