#ifndef QEL_COLOR_TONE_KERNELS_H_
#define QEL_COLOR_TONE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/byte_line.h"
#include "simd/cpu_level.h"

namespace qel {

/// Row functions of the color transforms. "Bytes" work on every byte of a row, "pixels" on blue,
/// green and red of 4-byte pixels, whose alpha they keep. Nothing beyond the count is touched.
struct ToneKernels {
  void (*lut_bytes)(uint8_t* row, size_t count, const ByteMap& map);
  void (*lut_pixels)(uint8_t* row, size_t count, const ByteMap& map);
  bool prefers_lines;   ///< of the maps
  bool prefers_curves;  ///< of maps that have no line
  void (*invert_bytes)(uint8_t* row, size_t count);
  void (*invert_pixels)(uint8_t* row, size_t count);
  /// Saturating row[i] + add[i mod 192] - subtract[i mod 192], for any pixel size that divides 192.
  void (*shift_bytes)(uint8_t* row, size_t count, const uint8_t* add, const uint8_t* subtract);
  /// The rounded mean of the three channels of grays, to which the first three bytes of these
  /// patterns, one of each two 0, are added and subtracted, saturating.
  void (*shift_grays)(uint8_t* row, size_t count, const uint8_t* add, const uint8_t* subtract);
  /// Bytes least[i] <= 255 (i / 255)^exponent <= most[i], truncated, for exponents from 1/64 to 64
  /// and `logarithms[i]`, of 256, as log2(i / 255) or less. They differ only where the power lies
  /// within 2^-9 of a whole number.
  void (*bracket_powers)(float exponent, const float* logarithms, uint8_t* least, uint8_t* most);
  /// dest[i] = brightness of s[i], s[i + 1] and s[i + 2]; reads two bytes past `count`.
  void (*mix_bytes)(uint8_t* dest, const uint8_t* source, size_t count);
  /// The truncated mean of the color bytes into all three; 4-byte pixels keep the source's alpha.
  void (*mean3)(uint8_t* dest, const uint8_t* source, size_t pixels);
  void (*mean4)(uint8_t* dest, const uint8_t* source, size_t pixels);
  /// 255 for bytes above `limit`, else `low`.
  void (*threshold_bytes)(uint8_t* row, size_t count, uint8_t limit, uint8_t low);
  /// 255 into the color bytes whose sum is above `limit`, else 0.
  void (*threshold3)(uint8_t* row, size_t pixels, int32_t limit);
  void (*threshold4)(uint8_t* row, size_t pixels, int32_t limit);
};

/// Period of the patterns of `shift_bytes`: a whole number of pixels and of vectors of any level.
inline constexpr size_t kShiftPeriod = 192;

QEL_TABLES_PER_LEVEL(ToneKernels)

}  // namespace qel

#endif  // QEL_COLOR_TONE_KERNELS_H_
