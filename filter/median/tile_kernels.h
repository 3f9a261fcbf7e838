#ifndef QEL_FILTER_MEDIAN_TILE_KERNELS_H_
#define QEL_FILTER_MEDIAN_TILE_KERNELS_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

inline constexpr size_t kFewestTiled = 5;
inline constexpr size_t kMostTiled = 15;
/// Whether windows of a size are taken in tiles; these are odd.
constexpr bool IsTiled(size_t size) {
#ifdef QEL_FEWER_TILED_SIZES
  // One for each height of tiles: they take long to compile.
  return size == kFewestTiled || size == 13;
#else
  return size >= kFewestTiled && size <= kMostTiled && size % 2 == 1;
#endif
}
/// Windows of a tile.
inline constexpr size_t kTileWidth = 4;
constexpr size_t TileHeight(size_t size) { return size < 12 ? 2 : 4; }
inline constexpr size_t kMostTileHeight = TileHeight(kMostTiled);

/// Rows that are read or written after a row of tiles, to be brought near meanwhile.
struct RowsAhead {
  const uint8_t* rows[2 * kMostTileHeight];
  size_t count;
  size_t step;  ///< bytes of a pixel
};

/// Row functions of medians by tiles. Rows of keys are spread: key x stands in run x %
/// kTileWidth, at x / kTileWidth, and runs lie `pitch` bytes apart. Up to two vectors past the
/// keys are read.
struct MedianTileKernels {
  /// Spreads `count` keys of each run, in whole vectors; as bytes, and as the 16 bits that
  /// `middle_taps` wants.
  void (*spread_keys)(uint8_t* runs, size_t pitch, const uint8_t* keys, size_t count);
  void (*spread_placed)(uint8_t* runs, size_t pitch, const uint8_t* keys, size_t count);
  /// Writes the middle keys of `count` windows in each of `TileHeight` rows, or the places of the
  /// middle taps in the order of visiting. `rows` are the rows under them; `sorted` is room for
  /// `size + 1 - TileHeight` rows.
  void (*middle_keys)(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch,
                      uint8_t* sorted, const RowsAhead& ahead, size_t size, size_t count);
  void (*middle_taps)(uint8_t* const* dest, const uint8_t* const* rows, size_t pitch,
                      uint8_t* sorted, const RowsAhead& ahead, size_t size, size_t count);
};

QEL_TABLES_PER_LEVEL(MedianTileKernels)

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_TILE_KERNELS_H_
