#include <algorithm>

#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/resample/gather_map.h"
#include "transform/resample/resample_methods.h"
#include "transform/resample/tiles.h"

// Nearest neighbors: one pixel each, for method 0 where neither axis shrinks, wherever it is asked
// for, and for methods of one tap with all pixels inside. Where columns come from is described once
// for all rows; then a few loads and lookups make 16 to 64 bytes, or a load and a store a pixel
// where the processor has no lookups or pixels lie far apart. Rows that repeat are copied.

namespace qel {
namespace {

/// Writes a destination whose column `x` takes the pixel at `column_offset(x)` of the source row at
/// `row_offset(y)`. `finish(dest, y, columns)` completes each part of a row.
template <typename ColumnOffsets, typename RowOffsets, typename Finish>
void GatherTiles(const ResamplePlan& plan, const ImageView& source, const ImageView& dest,
                 ColumnOffsets&& column_offset, RowOffsets&& row_offset, Finish&& finish) {
  // Rows may begin late, so that only what the last column reads is sure to be there.
  const int64_t read_bytes = column_offset(dest.Columns() - 1) + plan.pixel_bytes;
  // Narrow tiles are slower: this is nearly all of the stack that an operation may take.
  GatherMap<50 * 1024> map(plan.pixel_bytes, plan.keep_alpha, StepOf(source, plan.scale),
                           read_bytes);
  const int64_t tiles = (dest.Columns() + map.most_pixels() - 1) / map.most_pixels();
  const int64_t width = (dest.Columns() + tiles - 1) / tiles;
  Columns tile = {};
  WriteTiles(
      dest, plan.pixel_bytes, !plan.keep_alpha,
      [&](int64_t x) { return std::min(width, dest.Columns() - x); },
      [&](const Columns& columns) {
        tile = columns;
        map.Describe(tile.count, [&](int64_t i) { return column_offset(tile.first + i); });
      },
      row_offset,
      [&](uint8_t* to, int64_t y, int64_t offset) {
        // Rows that are left out in between keep the processor from foreseeing the next one.
        const bool leaves_out = plan.scale.y > 1.0f && y + 1 < dest.Rows();
        map.Gather(to, source.bits + offset,
                   leaves_out ? source.bits + row_offset(y + 1) : nullptr);
        finish(to, y, tile);
      });
}

}  // namespace

void CopyNearest(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  if (source.Empty()) return;
  if (source.bits == nullptr) {
    // Every pixel of a source without memory is black with the outside marker.
    uint8_t black[4] = {0, 0, 0, kOutsideMarker};
    ImageView pixel = source;
    pixel.bits = black;
    pixel.width = pixel.height = 1;
    ResamplePlan from_pixel = plan;
    from_pixel.scale = {0.0f, 0.0f};
    return CopyNearest(from_pixel, pixel, dest);
  }
  GatherTiles(
      plan, source, dest, [&](int64_t x) { return ColumnOffset(x, plan.scale, plan.pixel_bytes); },
      [&](int64_t y) { return RowOffset(y, plan.scale, source.stride); },
      [](uint8_t*, int64_t, const Columns&) {});
}

void GatherPixels(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const bool nearest = MethodOf(plan.interpolation).sampling == Sampling::kNearest;
  const auto tap = [=](float v) { return nearest ? NearestTap(v) : TruncateToInt(v); };
  const SamplePositions columns(dest.Columns(), plan.scale.x);
  const SamplePositions rows(dest.Rows(), plan.scale.y);
  const auto column_of = [&](int64_t x) { return tap(columns[x]); };
  const bool opaque = !nearest && source.bit_count == 32;
  GatherTiles(
      plan, source, dest, [&](int64_t x) { return int64_t{column_of(x)} * plan.pixel_bytes; },
      [&](int64_t y) { return int64_t{tap(rows[y])} * source.stride; },
      [&](uint8_t* to, int64_t y, const Columns& tile) {
        // The last column and row keep their alpha.
        if (!opaque || tap(rows[y]) == source.height - 1) return;
        int64_t count = tile.count;
        while (count > 0 && column_of(tile.first + count - 1) >= source.width - 1) --count;
        ActiveGatherKernels().make_opaque(to, static_cast<size_t>(count));
      });
}

}  // namespace qel
