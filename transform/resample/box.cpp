#include <algorithm>

#include "transform/resample/box_kernels.h"
#include "transform/resample/gather_map.h"
#include "transform/resample/resample_kernels.h"
#include "transform/resample/resample_methods.h"
#include "transform/resample/tiles.h"

// Shrinking by boxes: a pixel is the mean of the whole pixels of its box, for all methods where
// neither axis grows. 2 x 2 pixels side by side are added in registers, four additions a channel.
// Up to 128 pixels, rows are added up and windows grow by doubling, rows + log2(columns) additions
// a byte of the source's rows, then one reciprocal multiplication (Granlund and Montgomery 1994).
// Above, every byte is added once, and each mean is a division.

namespace qel {
namespace {

/// The boxes of source pixels that are averaged.
// Deliberate: the fraction of the scale is dropped, so that some columns and rows are never read.
struct Box {
  explicit Box(const ResamplePlan& plan)
      : columns(TruncateToInt(plan.scale.x)),
        rows(TruncateToInt(plan.scale.y)),
        pixel_bytes(plan.pixel_bytes),
        area(static_cast<uint32_t>(WrapMultiply(columns, rows))) {}

  /// Bytes of a source row that a box covers.
  int64_t Bytes() const { return columns * pixel_bytes; }

  int64_t columns;
  int64_t rows;
  int pixel_bytes;
  uint32_t area;
};

/// Widest tile of up to `most` columns from column `x` on whose boxes lie in `most_bytes` bytes of
/// a source row; one column at least.
int64_t BoxTileAt(int64_t x, int64_t most, const Scale& scale, const Box& box, int64_t most_bytes) {
  const int64_t begin = ColumnOffset(x, scale, box.pixel_bytes);
  int64_t count = 1;
  while (count < most &&
         ColumnOffset(x + count, scale, box.pixel_bytes) - begin + box.Bytes() <= most_bytes) {
    ++count;
  }
  return count;
}

/// A box of 2 to `kLargestSmallBox` pixels, all of whose areas have a reciprocal division.
SmallBox SmallBoxOf(const Box& box) {
  SmallBox small = {.columns = static_cast<size_t>(box.columns),
                    .rows = static_cast<size_t>(box.rows),
                    .pixel_bytes = static_cast<size_t>(box.pixel_bytes),
                    .mean = {}};
  FindReciprocalDivision(static_cast<int32_t>(box.area), int64_t{UINT8_MAX} * box.area, small.mean);
  return small;
}

}  // namespace

void HalveByBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const BoxMeanKernels& kernels = ActiveBoxMeanKernels();
  const auto halve = plan.pixel_bytes == 1   ? kernels.halve1
                     : plan.pixel_bytes == 3 ? kernels.halve3
                                             : kernels.halve4;
  for (int64_t y = 0; y < dest.Rows(); ++y) {
    const int64_t row = RowOffset(y, plan.scale, source.stride);
    const int64_t ahead = RowOffset(y + 1, plan.scale, source.stride) - row;
    halve(dest.Row(y), source.bits + row, source.stride, ahead,
          static_cast<size_t>(dest.Columns()));
  }
}

void AverageSmallBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const Scale scale = plan.scale;
  const Box box(plan);
  const SmallBox small = SmallBoxOf(box);
  // Rows go in parts whose sums stay in the nearest cache.
  constexpr size_t kPart = 2048;
  const size_t reach = (small.columns - 1) * small.pixel_bytes;
  alignas(64) uint16_t scratch[3 * (kPart + kLargestSmallBox * kMaxChannels)];
  constexpr int64_t kMostMeans = 15 * 1024;
  alignas(64) uint8_t means[kMostMeans];
  GatherMap<25 * 1024> map(box.pixel_bytes, true, StepOf(source, scale), kMostMeans);
  int64_t begin = 0;
  size_t count = 0;
  WriteTiles(
      dest, box.pixel_bytes, false,
      [&](int64_t x) {
        return BoxTileAt(x, std::min(map.most_pixels(), dest.Columns() - x), scale, box,
                         kMostMeans);
      },
      [&](const Columns& tile) {
        const auto offset_of = [&](int64_t i) {
          return ColumnOffset(tile.first + i, scale, box.pixel_bytes);
        };
        begin = offset_of(0);
        count = static_cast<size_t>(offset_of(tile.count - 1) - begin + box.Bytes());
        map.Describe(tile.count, [&](int64_t i) { return offset_of(i) - begin; });
      },
      [&](int64_t y) { return RowOffset(y, scale, source.stride); },
      [&](uint8_t* to, int64_t y, int64_t row) {
        const int64_t ahead = RowOffset(y + 1, scale, source.stride) - row;
        for (size_t i = 0; i + reach < count; i += kPart) {
          ActiveBoxMeanKernels().box_means(
              means + i, source.bits + row + begin + static_cast<int64_t>(i), source.stride, ahead,
              std::min(kPart + reach, count - i), small, scratch);
        }
        map.Gather(to, means);
      });
}

void AverageLargeBoxes(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const Scale scale = plan.scale;
  const Box box(plan);
  // Whole pixels of 1, 3 or 4 bytes.
  constexpr int64_t kMostSums = 12 * 682;
  constexpr int64_t kMostColumns = 2048;
  uint32_t sums[kMostSums];
  int64_t offsets[kMostColumns];
  const int64_t step = box.pixel_bytes;
  const int64_t channels = std::min<int64_t>(step, 3);
  int64_t begin = 0;
  int64_t columns = 0;
  const auto sum_rows = [&](const uint8_t* first, int64_t bytes) {
    ActiveBoxMeanKernels().sum_rows(sums, first, source.stride, static_cast<size_t>(bytes),
                                    static_cast<size_t>(box.rows));
  };
  // Unspecified: an area of 2^32 pixels counts as 0 and gives black.
  const auto mean = [&](uint32_t sum) {
    return static_cast<uint8_t>(box.area == 0 ? 0 : sum / box.area);
  };
  WriteTiles(
      dest, box.pixel_bytes, false,
      [&](int64_t x) {
        return BoxTileAt(x, std::min(kMostColumns, dest.Columns() - x), scale, box, kMostSums);
      },
      [&](const Columns& tile) {
        begin = ColumnOffset(tile.first, scale, box.pixel_bytes);
        columns = tile.count;
        for (int64_t i = 0; i < columns; ++i) {
          offsets[i] = ColumnOffset(tile.first + i, scale, box.pixel_bytes) - begin;
        }
      },
      [&](int64_t y) { return RowOffset(y, scale, source.stride); },
      [&](uint8_t* to, int64_t, int64_t offset) {
        const uint8_t* const row = source.bits + offset + begin;
        if (box.Bytes() > kMostSums) {
          // Such a box comes alone, and piece by piece.
          uint32_t totals[4] = {};
          for (int64_t at = 0; at < box.Bytes(); at += kMostSums) {
            const int64_t bytes = std::min(kMostSums, box.Bytes() - at);
            sum_rows(row + at, bytes);
            for (int64_t k = 0; k < bytes; ++k) totals[k % step] += sums[k];
          }
          for (int64_t c = 0; c < channels; ++c) to[c] = mean(totals[c]);
          return;
        }
        sum_rows(row, offsets[columns - 1] + box.Bytes());
        for (int64_t i = 0; i < columns; ++i) {
          for (int64_t c = 0; c < channels; ++c) {
            const uint32_t* const first = sums + offsets[i] + c;
            uint32_t sum = 0;
            for (int64_t k = 0; k < box.columns; ++k) sum += first[k * step];
            to[i * step + c] = mean(sum);
          }
        }
      });
}

}  // namespace qel
