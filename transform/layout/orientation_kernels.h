#ifndef QEL_TRANSFORM_LAYOUT_ORIENTATION_KERNELS_H_
#define QEL_TRANSFORM_LAYOUT_ORIENTATION_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

using TransposePixels = void (*)(uint8_t* dest, int64_t dest_stride, const uint8_t* source,
                                 int64_t source_stride, int64_t columns, int64_t rows,
                                 bool streams);

/// Bytes from pixels to those of the rows that come next, which the memory brings meanwhile; 0
/// where none do.
struct RowsAhead {
  int64_t source;
  int64_t dest;
};

/// Row and plane functions that move whole pixels of 1, 3 or 4 bytes. Source and destination never
/// overlap, and nothing beyond the counted pixels is touched.
struct OrientationKernels {
  /// dest[x] = source[count - 1 - x].
  void (*reverse1)(uint8_t* dest, const uint8_t* source, size_t count, const RowsAhead& ahead);
  void (*reverse3)(uint8_t* dest, const uint8_t* source, size_t count, const RowsAhead& ahead);
  void (*reverse4)(uint8_t* dest, const uint8_t* source, size_t count, const RowsAhead& ahead);
  /// Exchanges bytes 0 and 2 of every pixel.
  void (*swap_ends3)(uint8_t* row, size_t count);
  void (*swap_ends4)(uint8_t* row, size_t count);
  /// Exchanges two rows, and bytes 0 and 2 of every pixel on the way; byte 3 stays where it is.
  void (*exchange3)(uint8_t* top, uint8_t* bottom, size_t count);
  void (*exchange4)(uint8_t* top, uint8_t* bottom, size_t count);
  /// Pixel (x, y) of `dest` is pixel (y, x) of `source`, for x < `rows` and y < `columns`: the
  /// size of the source. Most of it is stored past the caches, if that `streams`.
  TransposePixels transpose1, transpose3, transpose4;
};

QEL_TABLES_PER_LEVEL(OrientationKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_LAYOUT_ORIENTATION_KERNELS_H_
