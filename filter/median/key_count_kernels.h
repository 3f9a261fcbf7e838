#ifndef QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_
#define QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// Histograms of columns of at most `kMostKeys` keys each. Those on two levels are cumulated:
/// lane s of `coarse` counts keys whose high four bits are at most s; lane k of segment s of `fine`
/// those whose high bits are s and whose low four bits are at most k.
template <typename Count>
struct ColumnCounts {
  static constexpr size_t kLanes = 16;
  static constexpr size_t kKeys = 256;
  static constexpr size_t kMostKeys = (size_t{1} << 8 * sizeof(Count)) - 1;
  Count* coarse;  ///< kLanes for each column
  Count* fine;    ///< for each segment, `pitch` columns of kLanes
  Count* taps;    ///< for each key, `pitch` columns: how many are equal to it; or null
  size_t pitch;

  /// The same from another column on.
  ColumnCounts From(size_t column) const {
    return {coarse + kLanes * column, fine + kLanes * column,
            taps != nullptr ? taps + column : nullptr, pitch};
  }
};
/// Readable bytes after the last counts.
inline constexpr size_t kCountSlack = 64;
/// Most windows whose middle is found at a time.
inline constexpr size_t kMostCountedWindows = 512;

/// The keys of the rows under some windows, column by column.
struct TapColumns {
  const uint8_t* keys;  ///< of the first window's first column
  size_t pitch;         ///< bytes from column to column
  size_t length;        ///< rows
  size_t above;         ///< rows above these that count as `outside_key` as well
  uint8_t outside_key;
};

/// Row functions of counts of one width. Keys are scratch: up to `kRowSlack` bytes past them are
/// read.
template <typename Count>
struct ColumnCountKernels {
  /// Takes key entering[x] in the counts of column x, and leaving[x] out of them unless that is
  /// null, for `columns` columns.
  void (*recount)(const ColumnCounts<Count>& counts, const uint8_t* leaving,
                  const uint8_t* entering, size_t columns);
  /// The wanted keys of `count` windows of `size` neighbouring columns each, at most
  /// `kMostKeys` and `kMostCountedWindows`; and, unless `numbers` is null, the wanted taps'
  /// numbers among those of their keys, counted from 0. Null at levels whose vectors are longer
  /// than the counts of a window: half empty, they took a sixth longer.
  void (*middle_keys)(uint8_t* keys, uint32_t* numbers, const ColumnCounts<Count>& counts,
                      size_t size, size_t count);
  /// The columns of their windows that these taps are in, and their rows there; `taps.length` for
  /// those above or below.
  void (*find_taps)(uint16_t* columns, uint16_t* rows, const uint8_t* keys, const uint32_t* numbers,
                    const ColumnCounts<Count>& counts, const TapColumns& taps, size_t count);
};

/// Row functions of the median of large windows, which counts keys. The order of visiting is
/// columns outer, rows inner.
struct KeyCountKernels {
  ColumnCountKernels<uint8_t> bytes;
  ColumnCountKernels<uint16_t> words;
  /// Walks columns of `length` keys, `pitch` bytes apart. Each has as many taps as it has keys
  /// equal to `key`, and `extra` more. Returns the column that contains tap number `*rest`, and
  /// leaves in `*rest` its number within that column; `columns` when there are not so many.
  size_t (*find_column)(const uint8_t* keys, size_t pitch, size_t columns, size_t length,
                        uint8_t key, int64_t extra, int64_t* rest);
  /// Where `key` stands for the time number `number` among `length` keys, counted from 0; `length`
  /// when it does not.
  size_t (*find_equal)(const uint8_t* keys, size_t length, uint8_t key, size_t number);
};

QEL_TABLES_PER_LEVEL(KeyCountKernels)

template <typename Count>
const ColumnCountKernels<Count>& ColumnCountKernelsFor(CpuLevel level) {
  const KeyCountKernels& kernels = KeyCountKernelsFor(level);
  if constexpr (sizeof(Count) == 1) {
    return kernels.bytes;
  } else {
    return kernels.words;
  }
}

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_KEY_COUNT_KERNELS_H_
