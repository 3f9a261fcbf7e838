#ifndef QEL_TRANSFORM_WARP_AFFINE_KERNELS_H_
#define QEL_TRANSFORM_WARP_AFFINE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Pixels of a side of the squares that are copied in one go.
inline constexpr int32_t kSquareSide = 8;
/// Sources of squares have at most so many columns and rows: positions in them are exact to 1/32
/// pixel.
inline constexpr int32_t kMostSquareSource = 1 << 16;

/// A source of pixels of 1 byte: at most 2^31 bytes from the lowest to the highest address.
struct AffineSource {
  const uint8_t* bits;
  int32_t stride;
  int32_t columns, rows;
};

/// Where the pixels of `kSquareSide` rows of a result lie along an axis of the source, each step
/// rounded to single precision: pixel i of row j at gain (start + i) + rows[j] + shift + offset.
/// The numbers of rows rise or fall from the first to the last one.
struct AffineAxis {
  float start, gain, shift, offset;
  float rows[kSquareSide];
};

struct AffineKernels {
  /// Writes pixels `first` to `first` + `count` - 1 of rows that lie `stride` bytes apart; `dest`
  /// is pixel 0 of the first one. Positions are truncated. The pixels that a square comes from are
  /// looked up in sixteen bytes of each of their rows. Returns the number of columns before those
  /// whose pixels are not well inside or too far apart, or which are less than a square. Null where
  /// there are no lookups.
  size_t (*copy_squares1)(uint8_t* dest, int64_t stride, const AffineSource& source,
                          const AffineAxis& x, const AffineAxis& y, int32_t first, size_t count);
};

QEL_TABLES_PER_LEVEL(AffineKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_AFFINE_KERNELS_H_
