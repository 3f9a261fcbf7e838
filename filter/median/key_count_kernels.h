#ifndef QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_
#define QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Histograms of columns of keys on two levels, both cumulated. Lane s of `coarse` counts keys
/// whose high four bits are at most s; lane k of segment s of `fine` those whose high bits are s
/// and whose low four bits are at most k.
struct ColumnCounts {
  static constexpr size_t kLanes = 16;
  uint16_t* coarse;  ///< kLanes for each column
  uint16_t* fine;    ///< for each segment, `pitch` counts apart, kLanes for each column
  size_t pitch;

  /// The same from another column on.
  ColumnCounts From(size_t column) const {
    return {coarse + kLanes * column, fine + kLanes * column, pitch};
  }
};
/// Readable bytes after the last counts.
inline constexpr size_t kCountSlack = 64;
/// The largest size of windows whose keys can be counted in 16 bits.
inline constexpr size_t kMostCounted = 255;

/// A tap among those of its window that have its key, in the order of visiting.
struct TapPlace {
  uint16_t number;  ///< counted from 0
  uint16_t taps;    ///< how many there are
};

/// Row functions of the median of large windows, which counts keys. The order of visiting is
/// columns outer, rows inner. Keys are scratch: up to `kRowSlack` bytes past them are read.
struct KeyCountKernels {
  /// Takes key leaving[x] out of the counts of column x, and entering[x] in, for `columns` columns.
  void (*recount)(const ColumnCounts& counts, const uint8_t* leaving, const uint8_t* entering,
                  size_t columns);
  /// The wanted keys of `count` windows of `size` neighbouring columns each, at most
  /// `kMostCounted`, and the places of the wanted taps among those of their keys unless `places` is
  /// null.
  void (*middle_keys)(uint8_t* keys, TapPlace* places, const ColumnCounts& counts, size_t size,
                      size_t count);
  /// The columns that the wanted taps of these windows are in, in the order of visiting, and their
  /// numbers among those of their key there.
  void (*find_columns)(uint8_t* found, uint8_t* numbers, const uint8_t* keys,
                       const TapPlace* places, const ColumnCounts& counts, size_t size,
                       size_t count);
  /// Walks columns of `length` keys, `pitch` bytes apart. Each has as many taps as it has keys
  /// equal to `key`, and `extra` more. Returns the column that contains tap number `*rest`, and
  /// leaves in `*rest` its number within that column; `columns` when there are not so many.
  size_t (*find_column)(const uint8_t* keys, size_t pitch, size_t columns, size_t length,
                        uint8_t key, int64_t extra, int64_t* rest);
  /// Where `key` stands for the time number `number` among `length` keys, counted from 0; `length`
  /// when it does not.
  size_t (*find_equal)(const uint8_t* keys, size_t length, uint8_t key, int64_t number);
};

QEL_TABLES_PER_LEVEL(KeyCountKernels)

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_
