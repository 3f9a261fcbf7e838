#ifndef QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"
#include "transform/tap_tolerance.h"

namespace qel {

// In a picture of twice the size, even columns and rows lie 3/4 of a pixel behind one of the source
// and odd ones 1/4, so an even kernel gives odd ones the `taps` weights of even ones in reverse.
// All weights are constants then.

/// Source columns that are doubled together; what is needed of all their rows fits the innermost
/// cache, or nearly so.
inline constexpr size_t kDoubledColumns = 128;
/// Tiles have a multiple of these.
inline constexpr size_t kDoubledUnit = 32;
/// Values of a row beside those of its columns: the taps of the first and of the last column.
inline constexpr size_t kDoubledMargin = 16;
inline constexpr size_t kDoubledValues = kDoubledColumns + kDoubledMargin;

/// Rows of source pixels that are doubled together by sums with a tolerance.
inline constexpr size_t kBoundedRows = 8;

/// Products of the weights of a row and of a column, in single precision.
using TapProducts = float[kBoundedTaps][kBoundedTaps];

/// One channel of a tile.
struct BoundedTile {
  /// rows + 12 rows of `kDoubledValues`, 0 to 255, from 6 rows and columns before the tile on.
  const float* values;
  const float* weights;         ///< of the taps of even columns and rows, in their order
  const TapProducts* products;  ///< of columns and rows 2 * (is row odd) + (is column odd)
  Tolerance tolerance;
  size_t columns;  ///< source columns of the tile, a multiple of `kDoubledUnit`
  size_t rows;     ///< source rows
  uint8_t* bytes;  ///< 2 * rows rows of 2 * `kDoubledColumns`
};

struct DoublingKernels {
  /// values[c * stride + i] = channel c of pixel i, for `count` pixels of 1, 3 or 4 bytes.
  void (*spread)(float* values, size_t stride, const uint8_t* pixels, size_t count,
                 size_t channels);
  /// Doubles a tile by sums of 144 weighted values, rows outer, columns inner, one after the other.
  void (*bounded12)(const BoundedTile& tile);
  /// Pixel i of 3 or 4 bytes has byte i of each channel; these lie `stride` bytes apart.
  void (*join)(uint8_t* dest, const uint8_t* channels, size_t stride, size_t count,
               size_t channel_count);
};

QEL_TABLES_PER_LEVEL(DoublingKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_
