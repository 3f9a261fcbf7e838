#ifndef QEL_TRANSFORM_RESAMPLE_SEPARABLE_DOUBLING_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_SEPARABLE_DOUBLING_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

// In a picture of twice the size, even columns and rows lie 3/4 of a pixel behind one of the source
// and odd ones 1/4, so an even kernel gives odd ones the weights of even ones in reverse. The same
// taps make an odd column and the even one after it, and so do rows.

/// Taps along one axis.
inline constexpr size_t kSeparableTaps = 4;

/// Units of sums that are not exact; they must stay below 2^31 units, which weights of kernels do,
/// whose sums of sizes are less than 10.
inline constexpr float kUnitsOfOne = 65536;

/// Two rows of the result in one tile, an odd one and the even one after it, from sums along the
/// rows of their taps.
struct DoubledRows {
  /// Of the rows of the taps, in their order: sums of even columns, then of odd ones.
  const float* sums[kSeparableTaps][2];
  /// The values of these rows, from `kSeparableTaps` / 2 columns before the tile on.
  const float* values[kSeparableTaps];
  const float* weights;  ///< of the taps of even columns and rows, in their order
  size_t step;           ///< bytes from a pixel to its right neighbour
  size_t count;          ///< bytes of a row of the tile
  /// Sums down columns are off by less than this minus 1, in units; below half of one. 0: all sums
  /// are exact.
  uint16_t tolerance;
  /// Of the odd and the even row: bytes of even columns, then of odd ones; whole vectors of them.
  uint8_t* bytes[2][2];
  /// Two rows of the result that are written later: their lines are brought in advance.
  const uint8_t* next[2];
};

struct SeparableDoublingKernels {
  /// values[i] = bytes[i]
  void (*widen)(float* values, const uint8_t* bytes, size_t count);
  /// Sums along a row, rounded anyhow: even[i] of values[i], values[i + step], ..., which are the
  /// taps of odd[i - step] as well. Reads and writes whole vectors of bytes of them.
  void (*across)(float* even, float* odd, const float* values, const float* weights, size_t step,
                 size_t count);
  /// Bytes of sums down the columns. Where the exact value may be cut to another byte, it is summed
  /// as it is defined: rows outer, columns inner, one product after the other.
  void (*down)(const DoubledRows& rows);
  /// dest = pixels of `step` bytes from `even` and from `odd` by turns, `count` bytes of each.
  void (*merge)(uint8_t* dest, const uint8_t* even, const uint8_t* odd, size_t step, size_t count);
};

QEL_TABLES_PER_LEVEL(SeparableDoublingKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_SEPARABLE_DOUBLING_KERNELS_H_
