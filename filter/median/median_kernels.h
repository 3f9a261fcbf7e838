#ifndef QEL_FILTER_MEDIAN_MEDIAN_KERNELS_H_
#define QEL_FILTER_MEDIAN_MEDIAN_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// How many keys of each column lie below some limits, and what that says of the windows.
struct RankRows {
  unsigned bits;     ///< so many high bits of the wanted keys are found by counting; 0 for none
  uint8_t* columns;  ///< one row for each limit: its counts
  size_t pitch;      ///< bytes from row to row
  uint8_t* triples;  ///< a row for sums of three counts
  uint8_t* wanted;   ///< the high bits of each window's wanted key
  uint8_t* below;    ///< how many of its keys lie below that

  size_t Limits() const { return (size_t{1} << bits) - 1; }
};

/// Row functions of windows of 3 x 3 colors, null at levels that cannot look bytes up. Rows of
/// pixels are spread by channel, in units that take `SpreadBytes`. A vector is read past the pixels
/// of `count` windows, and a unit of fewer.
struct ColorKernels {
  /// Spreads the pixels under `count` windows.
  void (*spread)(uint8_t* units, const uint8_t* pixels, size_t count);
  /// Writes the middle colors of `count` windows in two rows that are spread, and a third one that
  /// then takes the place of the upper one. As much is fetched of the rows `ahead`.
  void (*middle)(uint8_t* dest, uint8_t* upper, const uint8_t* middle, const uint8_t* pixels,
                 const uint8_t* const (&ahead)[2], size_t count);
};

/// Windows that sixteen columns of pixels hold.
inline constexpr size_t kWindowsOfBlock = 14;
/// Bytes of a row of units, at any level: whole vectors, for each channel and twice for the keys.
constexpr size_t SpreadBytes(size_t windows, size_t channels) {
  constexpr size_t kMostBlocks = 4;
  const size_t units =
      (windows + kMostBlocks * kWindowsOfBlock - 1) / (kMostBlocks * kWindowsOfBlock);
  return units * (channels + 2) * kMostBlocks * 16;
}

/// Row functions of the median. Keys are brightnesses. A window of `size` has its taps in the order
/// of visiting: columns outer, rows inner; the wanted one is at size * size / 2 once they are
/// sorted by key with that order kept. `rows` are rows of keys. All rows are scratch rows: up to
/// `kRowSlack` bytes past the last window are read, and of `RankRows` also written; nothing else is
/// touched beyond the counts.
struct MedianKernels {
  /// The keys of 3- or 4-byte pixels.
  void (*keys3)(uint8_t* keys, const uint8_t* pixels, size_t count);
  void (*keys4)(uint8_t* keys, const uint8_t* pixels, size_t count);
  /// Takes 128 from each key, as all but `sort_keys` and `sort_taps` want them: then signed
  /// comparisons order them.
  void (*center_keys)(uint8_t* keys, size_t count);
  /// Counts a row of keys in and another one out, for each of `columns` columns.
  void (*count_columns)(const RankRows& ranks, const uint8_t* entering, const uint8_t* leaving,
                        size_t columns);
  /// Finds the high bits of the wanted keys of `count` windows from these counts.
  void (*rank)(const RankRows& ranks, size_t size, size_t count);
  /// The wanted keys, or the wanted taps' places in the order of visiting, of `count` windows of 3
  /// x 3 by sorting networks. Fewer bytes than a vector has are read as a vector and its
  /// neighbours.
  void (*sort_keys)(uint8_t* keys, const uint8_t* const* rows, size_t count);
  void (*sort_taps)(uint8_t* taps, const uint8_t* const* rows, size_t count);
  /// Those of other sizes, up to `kMostSelected`, bit by bit.
  void (*select_keys)(uint8_t* keys, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                      size_t count);
  void (*select_taps)(uint8_t* taps, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                      size_t count);
  /// Copies for each window the 3- or 4-byte pixel at its tap. `rows` begin at the first tap of the
  /// first window; up to `kRowSlack` bytes past the last pixel are read.
  void (*copy_taps3)(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                     size_t count);
  void (*copy_taps4)(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
                     size_t count);
  ColorKernels colors3, colors4;
};

/// The largest size whose taps can be counted in a byte.
inline constexpr size_t kMostSelected = 15;

QEL_TABLES_PER_LEVEL(MedianKernels)

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_MEDIAN_KERNELS_H_
