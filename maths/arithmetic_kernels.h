#ifndef QEL_MATHS_ARITHMETIC_KERNELS_H_
#define QEL_MATHS_ARITHMETIC_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "maths/truncation.h"
#include "simd/cpu_level.h"

namespace qel {

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

/// Row functions of sums and differences of images. Nothing beyond the count is touched, and rows
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
};

QEL_TABLES_PER_LEVEL(ArithmeticKernels)

namespace sse2 {
extern const ArithmeticKernels kArithmeticOneByOne;
}
/// Row functions that go one pixel after the other, whatever rows share memory and however large
/// sums become.
inline const ArithmeticKernels& ArithmeticOneByOne() { return sse2::kArithmeticOneByOne; }

}  // namespace qel

#endif  // QEL_MATHS_ARITHMETIC_KERNELS_H_
