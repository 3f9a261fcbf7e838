#ifndef QEL_FILTER_FILTER_KERNELS_H_
#define QEL_FILTER_FILTER_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Output rows whose windows are reduced down the columns together.
inline constexpr size_t kGroupRows = 8;
/// Rows of a group that are reduced across together.
inline constexpr size_t kAcrossRows = 4;
/// Most rows of windows that are reduced down the columns in groups.
inline constexpr size_t kMostGrouped = 127;
inline constexpr size_t kMostSquare = 7;

/// The rows under the windows of a group, from one column on.
struct GroupRows {
  static constexpr size_t kMostCore = kMostGrouped / kGroupRows + kGroupRows;
  /// Row i is the first one of window i; the last window has none of them.
  const uint8_t* above[kGroupRows - 1];
  /// Rows, or extrema of several, that lie under all windows; at least one.
  const uint8_t* core[kMostCore];
  size_t core_count;
  /// Row i is the last one of window i.
  const uint8_t* below[kGroupRows];
  /// Rows that the next group needs.
  const uint8_t* ahead[kGroupRows];
  /// Becomes the extremum of `below`, unless null.
  uint8_t* block;
};

/// Some rows of a group on their way from extrema of columns to outputs. Scratch rows lie `pitch`
/// bytes apart. Of one extremum there is the first of each pair.
struct AcrossRows {
  const uint8_t* columns[2];  ///< maxima and minima of columns
  uint8_t* spare[2];
  size_t pitch;
  size_t rows;  ///< at most kAcrossRows
  uint8_t* dest[kAcrossRows];
  const uint8_t* ahead[kAcrossRows];  ///< where the next group writes
  /// Fourth bytes of the first `alpha_bytes` bytes of the outputs, 0 or more than a vector has.
  const uint8_t* alphas[kAcrossRows];
  size_t alpha_bytes;
  size_t size;  ///< pixels of windows, at least `kGroupRows`
  size_t step;  ///< bytes of pixels
  size_t count;
};

/// One extremum of bytes: minimum or maximum. Rows are distinct unless they are the same argument.
struct ExtremumKernels {
  /// into[i] = extremum(into[i], row[i])
  void (*fold)(uint8_t* into, const uint8_t* row, size_t count);
  /// dest[i] = extremum(a[i], b[i]); `a` and `b` may overlap
  void (*of_two)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count);
  /// Row i of `dest`, scratch rows `pitch` bytes apart, becomes the extremum of window i of the
  /// group. Fewer bytes than a vector has are read and written as a vector.
  void (*down)(uint8_t* dest, size_t pitch, const GroupRows& group, size_t count);
  /// Outputs: extrema of `size` pixels each of `columns`. Vectors that begin within scratch rows
  /// are read and written as a whole.
  void (*across)(const AcrossRows& rows);
  /// dest[i] = extremum of `size` rows and `size` pixels of each, at most `kMostSquare`. The fourth
  /// bytes of pixels of four are those of the last pixel of each window. Where there are fewer
  /// bytes than a vector has, a vector and the neighbours of its last pixel are read.
  void (*square)(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count);
};

/// Row functions of the filters. Nothing beyond the count is touched.
struct FilterKernels {
  ExtremumKernels minimum;
  ExtremumKernels maximum;
  /// The maximum less the minimum; everything else as of `square`.
  void (*range)(uint8_t* dest, const uint8_t* const* rows, size_t size, size_t step, size_t count);
  /// The same for `across`.
  void (*range_across)(const AcrossRows& rows);
  /// dest[i] = a[i] - b[i]; the fourth bytes of pixels of four are those of `a`
  void (*subtract)(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t step, size_t count);
  /// 4-byte pixels with the colors of one row and the fourth bytes of another.
  void (*with_alpha)(uint8_t* dest, const uint8_t* colors, const uint8_t* alphas, size_t pixels);
  /// The inverted contour of pixels: `rows` are the three rows about `dest`, each beginning one
  /// pixel of `pixel_bytes` to the left. The fourth bytes of pixels of four are those of the
  /// middle. Fewer bytes than a vector has are read as a vector.
  void (*contour)(uint8_t* dest, const uint8_t* const* rows, size_t count, size_t pixel_bytes);
};

QEL_TABLES_PER_LEVEL(FilterKernels)

}  // namespace qel

#endif  // QEL_FILTER_FILTER_KERNELS_H_
