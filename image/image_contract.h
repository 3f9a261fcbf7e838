#ifndef QEL_IMAGE_IMAGE_CONTRACT_H_
#define QEL_IMAGE_IMAGE_CONTRACT_H_

#include <array>

#include "qel/image.h"

namespace qel {

/// The reserved byte of a colour that was asked for outside its image.
inline constexpr uint8_t kOutsideMarker = 1;

// A packed colour holds blue in the low byte, then green, red, and the reserved byte (alpha).

constexpr uint32_t PackColour(uint32_t blue, uint32_t green, uint32_t red, uint32_t alpha) {
  return blue | green << 8 | red << 16 | alpha << 24;
}
constexpr uint8_t BlueOf(uint32_t colour) { return static_cast<uint8_t>(colour); }
constexpr uint8_t GreenOf(uint32_t colour) { return static_cast<uint8_t>(colour >> 8); }
constexpr uint8_t RedOf(uint32_t colour) { return static_cast<uint8_t>(colour >> 16); }
constexpr uint8_t AlphaOf(uint32_t colour) { return static_cast<uint8_t>(colour >> 24); }
constexpr uint32_t WithAlpha(uint32_t colour, uint32_t alpha) {
  return (colour & 0x00FFFFFFu) | alpha << 24;
}

/// Entry `index` of the grey ramp as a packed colour with reserved byte 0.
constexpr uint32_t GreyColour(uint32_t index) { return index * 0x010101u; }

/// The fixed grey ramp through which palette indices are read and written: entry i is (i, i, i, 0).
/// A palette that an image carries itself is not used by pixel access.
inline constexpr std::array<RGBQUAD, 256> DefaultPalette = [] {
  std::array<RGBQUAD, 256> ramp{};
  for (uint32_t i = 0; i < ramp.size(); ++i) {
    const uint32_t grey = GreyColour(i);
    ramp[i] = {BlueOf(grey), GreenOf(grey), RedOf(grey), AlphaOf(grey)};
  }
  return ramp;
}();

}  // namespace qel

#endif  // QEL_IMAGE_IMAGE_CONTRACT_H_
