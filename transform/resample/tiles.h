#ifndef QEL_TRANSFORM_RESAMPLE_TILES_H_
#define QEL_TRANSFORM_RESAMPLE_TILES_H_

#include <cmath>
#include <cstdint>
#include <cstring>

#include "image/memory_reach.h"
#include "image/numeric.h"
#include "simd/prefetch.h"
#include "transform/resample/resample_methods.h"

namespace qel {

/// The whole part of what is not negative and below 2^63: the mathematics library may have to be
/// called for others.
inline float WholePart(float value) { return static_cast<float>(static_cast<int64_t>(value)); }

/// Offset of the source row of destination row `y`.
// Deliberate: the product is a single-precision one, so that offsets from 2^24 on lose low bits.
inline int64_t RowOffset(int64_t y, const Scale& scale, int stride) {
  const float row = WholePart(static_cast<float>(y) * scale.y);
  return static_cast<int64_t>(static_cast<float>(stride) * row);
}

/// Offset in a source row of the pixel that destination column `x` takes.
inline int64_t ColumnOffset(int64_t x, const Scale& scale, int pixel_bytes) {
  const float column = WholePart(static_cast<float>(x) * scale.x);
  return pixel_bytes == 3 ? TruncateToInt(static_cast<double>(column) * 3.0)
                          : int64_t{TruncateToInt(column)} * pixel_bytes;
}

/// Source columns from one destination column to the next, as `GatherMap` wants to know them.
inline float StepOf(const ImageView& source, const Scale& scale) {
  // Wider rows have columns that single precision cannot tell apart.
  constexpr int kExactColumns = 1 << 22;
  return source.width <= kExactColumns ? scale.x : INFINITY;
}

/// Columns of a destination.
struct Columns {
  int64_t first;
  int64_t count;
};

/// Writes a destination in tiles of columns, one after the other from top to bottom. `tile_at(x)`
/// is the width of the tile that begins at column `x`, `describe(columns)` prepares for a tile, and
/// `write(dest, y, offset)` writes its part of row `y` from the source row at `offset`, which is
/// `row_offset(y)`. With `repeats`, rows from the same source row are copied.
template <typename TileAt, typename Describe, typename RowOffsets, typename Write>
void WriteTiles(const ImageView& dest, int pixel_bytes, bool repeats, TileAt&& tile_at,
                Describe&& describe, RowOffsets&& row_offset, Write&& write) {
  // Below 8 bits, where a pixel takes a byte all the same.
  const bool overlap = RowsOverlap(dest.Columns() * pixel_bytes, dest.stride);
  const int64_t rows = overlap ? 1 : dest.Rows();
  const bool single = tile_at(0) == dest.Columns();
  if (single) describe(Columns{0, dest.Columns()});
  // Short rows are left sooner than the processor foresees what is written along them. Those of
  // smaller pictures wait for the source instead.
  constexpr int64_t kLongRow = 4096;
  const bool fetches = repeats && rows > 1 && row_offset(0) == row_offset(1) &&
                       dest.Columns() * pixel_bytes < kLongRow;
  for (int64_t top = 0; top < dest.Rows(); top += rows) {
    for (int64_t x = 0; x < dest.Columns();) {
      const Columns tile = {x, single ? dest.Columns() : tile_at(x)};
      if (!single) describe(tile);
      const auto bytes = static_cast<size_t>(tile.count * pixel_bytes);
      int64_t last_offset = 0;
      for (int64_t y = top; y < top + rows; ++y) {
        uint8_t* const to = dest.Row(y) + x * pixel_bytes;
        if (fetches && y + 1 < top + rows) {
          PrefetchRun<1>(to + dest.stride, static_cast<int64_t>(bytes));
        }
        const int64_t offset = row_offset(y);
        if (repeats && y > top && offset == last_offset) {
          std::memcpy(to, to - dest.stride, bytes);
        } else {
          write(to, y, offset);
        }
        last_offset = offset;
      }
      x += tile.count;
    }
  }
}

}  // namespace qel

#endif  // QEL_TRANSFORM_RESAMPLE_TILES_H_
