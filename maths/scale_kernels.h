#ifndef QEL_MATHS_SCALE_KERNELS_H_
#define QEL_MATHS_SCALE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/byte_line.h"
#include "maths/truncation.h"
#include "simd/cpu_level.h"

namespace qel {

/// A linear map of channel values in single precision. Bytes have 256 values and go through a
/// table, or along a line where there is one.
struct ScaleMap {
  float factor, offset;
  uint8_t table[256];
  std::optional<ByteLine> line = {};
  bool words_fit = false;  ///< what 32-bit integers become fits them

  ByteMap OfBytes() const { return {table, line}; }

  constexpr float operator()(float value) const { return value * factor + offset; }
  /// False when a value up to `largest` may become too large for integers, or no number.
  constexpr bool Bounded(int largest) const {
    return largest * Magnitude(factor) + Magnitude(offset) <= kLargestSum;
  }
};

/// Row functions that scale channel values. Nothing beyond the count is touched, and rows of the
/// same pixels may be the same row.
struct ScaleKernels {
  /// Scaled channel values: `count` pixels of `source`, or bytes where both have one size.
  using ScaleRow = void (*)(uint8_t* dest, const uint8_t* source, size_t count,
                            const ScaleMap& map);
  bool prefers_lines;       ///< of the maps
  ScaleRow map_bytes;       ///< by the table
  ScaleRow map_to_3;        ///< one byte becomes three
  ScaleRow map_4_to_3;      ///< drops the fourth byte
  ScaleRow gray_of_3;       ///< the sum of the three bytes as one value
  ScaleRow gray_of_4;       ///< the same of the first three of four
  ScaleRow words_to_1;      ///< signed 32-bit integers, clamped to a byte
  ScaleRow words_to_3;      ///< the byte three times
  ScaleRow words_to_4;      ///< the same; keeps the fourth byte of `dest`
  ScaleRow words_to_words;  ///< clamped at 0
  /// `map_bytes` where the byte of `mask` is not 0.
  void (*map_bytes_where)(uint8_t* dest, const uint8_t* source, const uint8_t* mask, size_t count,
                          const ScaleMap& map);
  /// trunc(value * factor) + offset of signed 32-bit integers, clamped to a byte.
  void (*scale8)(uint8_t* dest, const uint8_t* source, size_t count, double factor, int32_t offset);
  /// The same with products in single precision.
  void (*scale8_single)(uint8_t* dest, const uint8_t* source, size_t count, float factor,
                        int32_t offset);
};

QEL_TABLES_PER_LEVEL(ScaleKernels)

namespace sse2 {
extern const ScaleKernels kScaleOneByOne;
}
/// Row functions that go one pixel after the other, whatever rows share memory and however large
/// sums become.
inline const ScaleKernels& ScaleOneByOne() { return sse2::kScaleOneByOne; }

}  // namespace qel

#endif  // QEL_MATHS_SCALE_KERNELS_H_
