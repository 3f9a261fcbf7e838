#ifndef QEL_TRANSFORM_WARP_POINT_KERNELS_H_
#define QEL_TRANSFORM_WARP_POINT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"
#include "transform/warp/offset_rule.h"

namespace qel {

/// How points become cells, columns and rows: moved by a shift, then by a half, and truncated. The
/// row is negative where a coordinate is negative or no number, and whatever does not fit 32 bits
/// becomes negative.
struct PointRule {
  bool shifts = false;  ///< false where both shifts are 0
  double shift_x = 0, shift_y = 0;
  double half = 0;
};
/// Points that are looked at together: kernels of points read and write whole groups.
inline constexpr size_t kPointGroup = 16;
/// At most this many groups at once, a bit for each.
inline constexpr size_t kMostPointGroups = 32;

/// What is computed beside the caller's transform of points.
struct PointKernels {
  /// x[i] = first_x + i, at most 2^53, and y[i] = at_y.
  void (*place_points)(double* x, double* y, size_t count, double first_x, double at_y);
  /// The cells (sx[i], sy[i]) of the points (x[i], y[i]).
  void (*cells)(int32_t* sx, int32_t* sy, const double* x, const double* y, size_t count,
                const PointRule& rule);
  /// Their offsets as well. Bit g is set where all cells of group g are inside.
  uint32_t (*cell_offsets)(int32_t* offsets, int32_t* sx, int32_t* sy, const double* x,
                           const double* y, size_t count, const PointRule& points,
                           const OffsetRule& rule);
  /// Offsets moved down a row where a column comes next to the one before, of which there is one
  /// before the first. Bit g is set where group g has no gaps. Reads and writes whole groups.
  uint32_t (*join_below)(int32_t* below, const int32_t* offsets, const int32_t* sx, size_t count,
                         int32_t stride);
};

QEL_TABLES_PER_LEVEL(PointKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_POINT_KERNELS_H_
