#ifndef QEL_MATHS_ARITHMETIC_KERNELS_H_
#define QEL_MATHS_ARITHMETIC_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "image/byte_line.h"
#include "image/numeric.h"
#include "simd/cpu_level.h"

namespace qel {

/// Truncates toward zero within 0 to 255; NaN gives 0.
static inline constexpr uint8_t TruncateToByte(float value) {
  return static_cast<uint8_t>(value > 0.0f ? value < 255.0f ? TruncateToInt(value) : 255 : 0);
}
/// Truncates toward zero; below 0 gives 0. NaN and what does not fit give the lowest integer.
static inline constexpr int32_t TruncateFromZero(float value) {
  return value < 0.0f ? 0 : TruncateToInt(value);
}

static inline constexpr double Magnitude(float value) {
  return value < 0.0f ? -static_cast<double>(value) : static_cast<double>(value);
}
/// The largest sum for which kernels leave clamping to the packing of integers.
inline constexpr double kLargestSum = 1 << 30;

/// A weighted sum of two channel values: (a * factor_a + b * factor_b) + offset, in single
/// precision.
struct MixWeights {
  float factor_a, factor_b, offset;

  constexpr uint8_t operator()(uint8_t a, uint8_t b) const {
    const float product_a = static_cast<float>(a) * factor_a;
    const float product_b = static_cast<float>(b) * factor_b;
    return TruncateToByte((product_a + product_b) + offset);
  }
  /// False when a sum may be too large for integers, or no number.
  constexpr bool Bounded() const {
    return 255 * (Magnitude(factor_a) + Magnitude(factor_b)) + Magnitude(offset) <= kLargestSum;
  }
};

inline constexpr int kLargestByteSum = 2 * 255;

/// A factor for sums of two bytes: (64 * sum * factor >> 16) >> shift, clamped to a byte.
struct SumFactor {
  uint16_t factor;
  int shift;

  constexpr uint8_t operator()(int sum) const {
    const uint32_t scaled = (64 * static_cast<uint32_t>(sum) * factor >> 16) >> shift;
    return static_cast<uint8_t>(scaled < 255 ? scaled : 255);
  }
};

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

/// Row functions of the operations on channel values. Nothing beyond the count is touched, and rows
/// of the same pixels may be the same row.
struct ArithmeticKernels {
  /// Sums of bytes, clamped.
  void (*add)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count);
  /// True if a factor gives, clamped, the truncated quotients of all sums of two bytes.
  bool (*divides)(const SumFactor& scale, float divisor);
  /// Sums times a factor.
  void (*add_scaled)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                     const SumFactor& scale);
  /// What `table`, of 512 entries, holds for the sums of bytes.
  void (*add_by_table)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                       const uint8_t* table);

  /// a - b clamped at 0, or the absolute difference. Pixels of 4 bytes take `alpha` as their
  /// fourth. Results: how many differences, alpha aside, are 2 or more.
  using DifferenceRow = uint64_t (*)(uint8_t* dest, const uint8_t* a, const uint8_t* b,
                                     size_t count, uint8_t alpha);
  DifferenceRow subtract_bytes, difference_bytes, subtract_pixels, difference_pixels;

  /// Weighted sums of bytes.
  void (*mix)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
              const MixWeights& weights);
  /// Weighted sums of the pixels whose byte of `mask` is not 0; a null mask selects all.
  using MixRow = void (*)(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
                          size_t pixels, const MixWeights& weights);
  /// The same by sizes of pixels, of which the first `computed` bytes take part.
  struct MixPixels {
    int dest_bytes, a_bytes, b_bytes, computed;
    MixRow row;
  };
  MixPixels mix_pixels[10];

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

QEL_TABLES_PER_LEVEL(ArithmeticKernels)

namespace sse2 {
extern const ArithmeticKernels kOneByOneKernels;
}
/// Row functions that go one pixel after the other, whatever rows share memory and however large
/// sums become.
inline const ArithmeticKernels& KernelsOneByOne() { return sse2::kOneByOneKernels; }

}  // namespace qel

#endif  // QEL_MATHS_ARITHMETIC_KERNELS_H_
