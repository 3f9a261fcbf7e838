#ifndef QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_
#define QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// A column of a window as counts: byte k tells how many of its keys are at most k.
inline constexpr size_t kCountBytes = 256;
/// The largest size whose counts, and the differences of any two of them, fit a signed byte.
inline constexpr size_t kMostCounted = 127;

/// A tap among those of its window that have its key, in the order of visiting.
struct TapPlace {
  uint16_t number;  ///< counted from 0
  uint16_t taps;    ///< how many there are
};

/// Row functions of the median of large windows, which counts keys. The order of visiting is
/// columns outer, rows inner. Keys are scratch: up to `kRowSlack` bytes past them are read.
struct KeyCountKernels {
  /// Takes key leaving[x] out of the counts of column x, and entering[x] in, for `columns` columns.
  void (*recount)(uint8_t* counts, const uint8_t* leaving, const uint8_t* entering, size_t columns);
  /// The wanted keys of `count` windows of `size` neighbouring columns each, at most
  /// `kMostCounted`, and the places of the wanted taps among those of their keys unless `places` is
  /// null.
  void (*middle_keys)(uint8_t* keys, TapPlace* places, const uint8_t* counts, size_t size,
                      size_t count);
  /// The columns that the wanted taps of these windows are in, in the order of visiting, and their
  /// numbers among those of their key there.
  void (*find_columns)(uint8_t* found, uint8_t* numbers, const uint8_t* keys,
                       const TapPlace* places, const uint8_t* counts, size_t size, size_t count);
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
