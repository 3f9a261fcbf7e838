#ifndef QEL_COLOR_PIXEL_KERNELS_H_
#define QEL_COLOR_PIXEL_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/byte_curve.h"
#include "simd/cpu_level.h"

namespace qel {

/// The color that a pixel takes by its lightness, and how much of it.
struct Tint {
  uint8_t color[3][256];  ///< blue, green and red by lightness
  int weight;             ///< share of the new color in 256ths, 1 to 256; 256 replaces the old one
  bool has_curves = false;
  ByteCurve curve[3];  ///< what the tables hold, without a start, if it has curves
};

/// Lightness of a color: the middle of its largest and smallest channel, halves rounded up.
static inline constexpr uint8_t LightnessOf(uint8_t blue, uint8_t green, uint8_t red) {
  const uint8_t bigger = blue > green ? blue : green;
  const uint8_t smaller = blue > green ? green : blue;
  const int sum = (bigger > red ? bigger : red) + (smaller < red ? smaller : red);
  return static_cast<uint8_t>((sum + 1) >> 1);
}

/// Channel `channel` of a pixel of this lightness after tinting.
static inline constexpr uint8_t TintedChannel(const Tint& tint, int channel, uint8_t lightness,
                                              uint8_t old) {
  return static_cast<uint8_t>(
      (tint.color[channel][lightness] * tint.weight + old * (256 - tint.weight)) >> 8);
}

/// Row functions on whole pixels. Nothing beyond the count is touched. Keys are 0x00RRGGBB.
struct PixelKernels {
  /// The alpha byte of 4-byte pixels.
  void (*set_alpha)(uint8_t* row, size_t pixels, uint8_t alpha);
  /// Alpha 0 for the 4-byte pixels of color `key`. The others are not written: their memory may be
  /// read-only.
  void (*clear_key)(uint8_t* row, size_t pixels, uint32_t key);
  /// Alpha 0 for the 4-byte pixels of color `key`, `alpha` for the others.
  void (*set_alpha_but_key)(uint8_t* row, size_t pixels, uint8_t alpha, uint32_t key);
  /// Tints 3-byte pixels, and 4-byte pixels, which keep their alpha.
  void (*tint3)(uint8_t* row, size_t pixels, const Tint& tint);
  void (*tint4)(uint8_t* row, size_t pixels, const Tint& tint);
  bool prefers_curves;  ///< of tints
};

QEL_TABLES_PER_LEVEL(PixelKernels)

}  // namespace qel

#endif  // QEL_COLOR_PIXEL_KERNELS_H_
