#ifndef QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_
#define QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

// In a picture of twice the size, even columns and rows lie 3/4 of a pixel behind one of the source
// and odd ones 1/4, so an even kernel gives odd ones the weights of even ones in reverse. The same
// taps make an odd column and the even one after it, and so do rows.

/// Units of sums that are not exact; they must stay below 2^31 units, which weights of kernels do,
/// whose sums of sizes are less than 10.
inline constexpr int kUnitsOfOne = 1 << 16;

/// By what sums of values from `least` to `most` may be off, in parts of units:
/// `of_most` * `most` - `of_least` * `least`.
struct UnitTolerance {
  static constexpr int kPartsOfUnit = 1 << 16;
  int of_most;
  int of_least;
  /// In units, more than that where sums are cut to whole units.
  int Units(int least, int most) const {
    return (of_most * most - of_least * least) / kPartsOfUnit + 2;
  }
};

/// What is kept of a few source columns while they are doubled by `kTaps` taps along each axis.
/// Source rows are numbered from 0, the first tap of the first row made.
template <size_t kTaps>
struct DoublingTile {
  /// Bytes of a row. What sums are made from fits the innermost cache, and all of it a stack.
  static constexpr size_t kBytes = kTaps == 4 ? 512 : 192;
  /// Source rows that are doubled before vectors in doubt must be settled.
  static constexpr size_t kRows = kTaps == 4 ? 1 : 4;
  /// The most bytes of a vector: rows are filled up to whole ones.
  static constexpr size_t kVector = 64;
  /// Sums of odd columns begin a pixel early.
  static constexpr size_t kEarly = 16;
  /// Rows of floats that the same vectors are read from begin at different lines of the cache.
  static constexpr size_t kSums = kBytes + kEarly;
  static constexpr size_t kMostStep = 4;
  static constexpr size_t kValues = kBytes + kTaps * kMostStep;
  /// Rows of values that are kept: the taps of all rows that are not settled.
  static constexpr size_t kKept = kTaps - 1 + kRows;
  /// Groups of `kRows` rows that these belong to.
  static constexpr size_t kGroups = (kKept + kRows - 1) / kRows;
  /// The range of values narrows tolerances. By few taps less is in doubt than ranges cost.
  static constexpr bool kHasRanges = kTaps > 4;
  /// Vectors in doubt that are summed together: the additions of one fill the waits of the others.
  static constexpr size_t kTogether = 4;

  struct Doubt {
    size_t row;                      ///< of the first tap
    size_t value;                    ///< its place in that row
    const float (*products)[kTaps];  ///< weights of taps
    uint8_t* bytes;                  ///< as many as a vector has sums
  };

  size_t step;              ///< bytes from a pixel to its right neighbour
  size_t count;             ///< bytes of a row of the tile
  bool is_exact;            ///< whether sums are the same in any order
  UnitTolerance tolerance;  ///< of sums that are not
  float weights[kTaps];     ///< of the taps of even columns and rows, in their order
  /// Weights of rows times those of columns; for an odd row first, for even columns first.
  float products[2][2][kTaps][kTaps];
  /// Tolerances of sums, in units; below a quarter of one.
  float tolerances[kBytes];
  /// Twice that, for each two vectors of sums by turns.
  uint16_t doubtful[kBytes];
  Doubt doubts[kTogether];
  size_t doubt_count = 0;

  /// Sums of a row for even columns, then, from `kEarly` on, for odd ones.
  using Sums = float[2][kSums];
  /// A row from `kTaps` / 2 columns before the tile on.
  using Values = float[kValues];

  /// Of row i at i modulo their number.
  const Sums* sums_of[kTaps];
  const Values* values_of[kKept];
  /// What these point to, but for rows that are outside.
  alignas(64) Sums sums[kTaps];
  alignas(64) Values values[kKept];
  /// The least values of all rows of group i modulo `kGroups`, then 255 - the largest ones.
  alignas(64) uint8_t ranges[kGroups][2][kValues + kVector];
  /// Of an odd row and the even one after it: bytes of even columns, then of odd ones.
  alignas(64) uint8_t bytes[kRows][2][2][kBytes];
  /// Of all rows that are outside.
  alignas(64) Sums outside_sums;
  alignas(64) Values outside_values;
};

template <size_t kTaps>
struct TapDoublingKernels {
  using Tile = DoublingTile<kTaps>;
  /// Makes the values of a row from `bytes`, of which whole vectors are read.
  void (*widen)(const Tile& tile, typename Tile::Values& values, const uint8_t* bytes);
  /// Makes `bytes`, the same ones, row `row` of the ranges.
  void (*range)(Tile& tile, size_t row, const uint8_t* bytes);
  /// Makes the tolerances of sums of rows that are kept.
  void (*tolerate)(Tile& tile);
  /// Sums the values of a row along the columns, rounded anyhow.
  void (*across)(const Tile& tile, typename Tile::Sums& sums, const typename Tile::Values& values);
  /// Makes rows `pair` of bytes from the `kTaps` rows from `row` on, but for the vectors in doubt.
  /// `next` are rows of the result that are written later: their lines are brought in advance.
  void (*down)(Tile& tile, size_t row, size_t pair, const uint8_t* const (&next)[2]);
  /// Sums vectors in doubt as they are defined: rows outer, columns inner, one product after the
  /// other.
  void (*settle)(Tile& tile);
};

struct DoublingKernels {
  TapDoublingKernels<4> of4;
  TapDoublingKernels<12> of12;
  /// dest = pixels of `step` bytes from `even` and from `odd` by turns, `count` bytes of each.
  void (*merge)(uint8_t* dest, const uint8_t* even, const uint8_t* odd, size_t step, size_t count);
};

QEL_TABLES_PER_LEVEL(DoublingKernels)

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_DOUBLING_KERNELS_H_
