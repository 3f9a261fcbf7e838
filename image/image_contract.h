#ifndef QEL_IMAGE_IMAGE_CONTRACT_H_
#define QEL_IMAGE_IMAGE_CONTRACT_H_

#include <array>

#include "qel/image.h"

namespace qel {

/// The reserved byte of a color that was asked for outside its image.
inline constexpr uint8_t kOutsideMarker = 1;

// A packed color holds blue in the low byte, then green, red, and the reserved byte (alpha).

constexpr uint32_t PackColor(uint32_t blue, uint32_t green, uint32_t red, uint32_t alpha) {
  return blue | green << 8 | red << 16 | alpha << 24;
}
constexpr uint8_t BlueOf(uint32_t color) { return static_cast<uint8_t>(color); }
constexpr uint8_t GreenOf(uint32_t color) { return static_cast<uint8_t>(color >> 8); }
constexpr uint8_t RedOf(uint32_t color) { return static_cast<uint8_t>(color >> 16); }
constexpr uint8_t AlphaOf(uint32_t color) { return static_cast<uint8_t>(color >> 24); }
constexpr uint32_t WithAlpha(uint32_t color, uint32_t alpha) {
  return (color & 0x00FFFFFFu) | alpha << 24;
}

/// Entry `index` of the gray ramp as a packed color with reserved byte 0.
constexpr uint32_t GrayColor(uint32_t index) { return index * 0x010101u; }

/// The fixed gray ramp through which palette indices are read and written: entry i is (i, i, i, 0).
/// A palette that an image carries itself is not used by pixel access.
inline constexpr std::array<RGBQUAD, 256> DefaultPalette = [] {
  std::array<RGBQUAD, 256> ramp{};
  for (uint32_t i = 0; i < ramp.size(); ++i) {
    const uint32_t gray = GrayColor(i);
    ramp[i] = {BlueOf(gray), GreenOf(gray), RedOf(gray), AlphaOf(gray)};
  }
  return ramp;
}();

}  // namespace qel

#endif  // QEL_IMAGE_IMAGE_CONTRACT_H_
