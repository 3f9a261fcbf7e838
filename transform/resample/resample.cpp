#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "component/result_image.h"
#include "image/interpolated_sampling.h"
#include "image/memory_reach.h"
#include "image/numeric.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/fetch.h"
#include "transform/image_transform.h"
#include "transform/resample/box_kernels.h"
#include "transform/warp/picker.h"

namespace qel {
namespace {

/// Source pixels per destination pixel, in single precision.
struct Scale {
  float x;
  float y;
};

bool CopiesNearest(const Scale& scale, int method, bool nearest_only, int bit_count) {
  const bool enlarges = scale.x <= 1.0f && scale.y <= 1.0f && method == 0;
  const bool whole_bytes = bit_count == 32 || bit_count == 24 || bit_count == 16 || bit_count == 8;
  return (enlarges || nearest_only) && whole_bytes;
}

bool AveragesBoxes(const Scale& scale, bool nearest_only) {
  return scale.x >= 1.0f && scale.y >= 1.0f && !nearest_only;
}

/// Offset of the source row of destination row `y`.
// Deliberate: the product is a single-precision one, so that offsets from 2^24 on lose low bits.
int64_t RowOffset(int64_t y, const Scale& scale, int stride) {
  const float row = std::floor(static_cast<float>(y) * scale.y);
  return static_cast<int64_t>(static_cast<float>(stride) * row);
}

/// The source column of destination column `x`.
float SourceColumn(int64_t x, const Scale& scale) {
  return std::floor(static_cast<float>(x) * scale.x);
}

/// Offset in a source row of the pixel that destination column `x` takes.
int64_t ColumnOffset(int64_t x, const Scale& scale, int pixel_bytes) {
  const float column = SourceColumn(x, scale);
  return pixel_bytes == 3 ? TruncateToInt(static_cast<double>(column) * 3.0)
                          : int64_t{TruncateToInt(column)} * pixel_bytes;
}

/// True when 64 bytes of a destination row come from 256 bytes of a source row.
bool LiesClose(const ImageView& source, const Scale& scale) {
  // Wider rows have columns that single precision cannot tell apart.
  constexpr int kExactColumns = 1 << 22;
  return scale.x <= 3.5f && source.width <= kExactColumns;
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
  for (int64_t top = 0; top < dest.Rows(); top += rows) {
    for (int64_t x = 0; x < dest.Columns();) {
      const Columns tile = {x, single ? dest.Columns() : tile_at(x)};
      if (!single) describe(tile);
      const auto bytes = static_cast<size_t>(tile.count * pixel_bytes);
      int64_t last_offset = 0;
      for (int64_t y = top; y < top + rows; ++y) {
        uint8_t* const to = dest.Row(y) + x * pixel_bytes;
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

/// Writes a destination whose column `x` takes the pixel at `column_offset(x)` of the source row at
/// `row_offset(y)`. `finish(dest, y, columns)` completes each part of a row.
template <typename ColumnOffsets, typename RowOffsets, typename Finish>
void PickTiles(const ImageView& source, const ImageView& dest, const Scale& scale, int pixel_bytes,
               bool keep_alpha, ColumnOffsets&& column_offset, RowOffsets&& row_offset,
               Finish&& finish) {
  // Narrow tiles are slower: this is nearly all of the stack that an operation may take.
  Picker<50 * 1024> picker(pixel_bytes, keep_alpha, LiesClose(source, scale));
  const int64_t tiles = (dest.Columns() + picker.most_pixels() - 1) / picker.most_pixels();
  const int64_t width = (dest.Columns() + tiles - 1) / tiles;
  Columns tile = {};
  WriteTiles(
      dest, pixel_bytes, !keep_alpha,
      [&](int64_t x) { return std::min(width, dest.Columns() - x); },
      [&](const Columns& columns) {
        tile = columns;
        picker.Describe(tile.count, [&](int64_t i) { return column_offset(tile.first + i); });
      },
      row_offset,
      [&](uint8_t* to, int64_t y, int64_t offset) {
        picker.Pick(to, source.bits + offset);
        finish(to, y, tile);
      });
}

[[gnu::noinline]] void CopyNearest(const ImageView& source, const ImageView& dest,
                                   const Scale& scale, int pixel_bytes, bool keep_alpha) {
  PickTiles(
      source, dest, scale, pixel_bytes, keep_alpha,
      [&](int64_t x) { return ColumnOffset(x, scale, pixel_bytes); },
      [&](int64_t y) { return RowOffset(y, scale, source.stride); },
      [](uint8_t*, int64_t, const Columns&) {});
}

/// The boxes of source pixels that are averaged.
// Deliberate: the fraction of the scale is dropped, so that some columns and rows are never read.
struct Box {
  Box(const Scale& scale, int pixel_size)
      : columns(TruncateToInt(scale.x)),
        rows(TruncateToInt(scale.y)),
        pixel_bytes(pixel_size),
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

/// Averages boxes of any size. Areas and sums are taken modulo 2^32.
[[gnu::noinline]] void AverageLargeBoxes(const ImageView& source, const ImageView& dest,
                                         const Scale& scale, const Box& box) {
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

/// The reciprocal of an area from 2 to `kLargestSmallBox`: with 2^s below the area, a factor of 16
/// bits, rounded up, is exact for all sums of that many bytes.
SmallBox SmallBoxOf(const Box& box) {
  int shift = 0;
  while ((2u << shift) < box.area) ++shift;
  const uint32_t factor = ((65536u << shift) + box.area - 1) / box.area;
  return {static_cast<size_t>(box.columns), static_cast<size_t>(box.rows),
          static_cast<size_t>(box.pixel_bytes), static_cast<uint16_t>(factor),
          static_cast<uint16_t>(shift)};
}

/// Averages boxes whose sums fit 16 bits.
[[gnu::noinline]] void AverageSmallBoxes(const ImageView& source, const ImageView& dest,
                                         const Scale& scale, const Box& box) {
  const SmallBox small = SmallBoxOf(box);
  // Rows go in parts whose sums stay in the nearest cache.
  constexpr size_t kPart = 2048;
  const size_t reach = (small.columns - 1) * small.pixel_bytes;
  alignas(64) uint16_t scratch[3 * (kPart + kLargestSmallBox * kMaxChannels)];
  constexpr int64_t kMostMeans = 15 * 1024;
  alignas(64) uint8_t means[kMostMeans];
  Picker<25 * 1024> picker(box.pixel_bytes, true, LiesClose(source, scale));
  int64_t begin = 0;
  size_t count = 0;
  WriteTiles(
      dest, box.pixel_bytes, false,
      [&](int64_t x) {
        return BoxTileAt(x, std::min(picker.most_pixels(), dest.Columns() - x), scale, box,
                         kMostMeans);
      },
      [&](const Columns& tile) {
        const auto offset_of = [&](int64_t i) {
          return ColumnOffset(tile.first + i, scale, box.pixel_bytes);
        };
        begin = offset_of(0);
        count = static_cast<size_t>(offset_of(tile.count - 1) - begin + box.Bytes());
        picker.Describe(tile.count, [&](int64_t i) { return offset_of(i) - begin; });
      },
      [&](int64_t y) { return RowOffset(y, scale, source.stride); },
      [&](uint8_t* to, int64_t y, int64_t row) {
        const int64_t ahead = RowOffset(y + 1, scale, source.stride) - row;
        for (size_t i = 0; i + reach < count; i += kPart) {
          ActiveBoxMeanKernels().box_means(
              means + i, source.bits + row + begin + static_cast<int64_t>(i), source.stride, ahead,
              std::min(kPart + reach, count - i), small, scratch);
        }
        picker.Pick(to, means);
      });
}

// Deliberate: alpha of 32-bit images is not averaged; it stays as the new image had it.
void AverageBoxes(const ImageView& source, const ImageView& dest, const Scale& scale,
                  int pixel_bytes) {
  const Box box(scale, pixel_bytes);
  if (box.area == 1) {
    CopyNearest(source, dest, scale, pixel_bytes, true);
  } else if (box.area > kLargestSmallBox) {
    AverageLargeBoxes(source, dest, scale, box);
  } else {
    AverageSmallBoxes(source, dest, scale, box);
  }
}

/// The positions in the source of the columns or rows of a destination: pixel centres are aligned.
class SamplePositions {
 public:
  SamplePositions(int64_t count, float scale) : count_(count), scale_(scale) {}

  int64_t size() const { return count_; }
  float scale() const { return scale_; }
  float operator[](int64_t i) const { return (static_cast<float>(i) + 0.5f) * scale_ - 0.5f; }
  template <typename Predicate>
  bool AllOf(Predicate&& predicate) const {
    for (int64_t i = 0; i < count_; ++i) {
      if (!predicate((*this)[i])) return false;
    }
    return true;
  }

 private:
  const int64_t count_;
  const float scale_;
};

/// Samples pixel by pixel: what every quicker way must equal.
void InterpolateSingly(const ImageView& source, const ImageView& dest,
                       const SamplePositions& columns, const SamplePositions& rows, int method) {
  for (int64_t y = 0; y < rows.size(); ++y) {
    for (int64_t x = 0; x < columns.size(); ++x) {
      const uint32_t colour =
          GetPixelColorInterpolated(source.bits, columns[x], rows[y], source.width, source.height,
                                    source.stride, method, source.bit_count);
      SetPixelColor(dest.bits, static_cast<int>(x), static_cast<int>(y), dest.width, dest.height,
                    dest.stride, colour, dest.bit_count);
    }
  }
}

/// Methods that take one source pixel per destination pixel. False when some lie outside.
[[gnu::noinline]] bool PickPixels(const ImageView& source, const ImageView& dest,
                                  const SamplePositions& columns, const SamplePositions& rows,
                                  Sampling sampling) {
  const auto tap = sampling == Sampling::kNearest ? [](float v) { return NearestTap(v); }
                                                  : [](float v) { return TruncateToInt(v); };
  const auto within = [&](const SamplePositions& positions, int size) {
    return positions.AllOf([&](float v) { return tap(v) >= 0 && tap(v) < size; });
  };
  if (!within(columns, source.width) || !within(rows, source.height)) return false;
  const int pixel_bytes = source.bit_count == 8 ? 1 : DirectPixelBytes(source.bit_count);
  const auto column_of = [&](int64_t x) { return tap(columns[x]); };
  const bool opaque = sampling == Sampling::kBilinear && source.bit_count == 32;
  PickTiles(
      source, dest, {columns.scale(), rows.scale()}, pixel_bytes, false,
      [&](int64_t x) { return int64_t{column_of(x)} * pixel_bytes; },
      [&](int64_t y) { return int64_t{tap(rows[y])} * source.stride; },
      [&](uint8_t* to, int64_t y, const Columns& tile) {
        // The last column and row keep their alpha.
        if (!opaque || tap(rows[y]) == source.height - 1) return;
        int64_t count = tile.count;
        while (count > 0 && column_of(tile.first + count - 1) >= source.width - 1) --count;
        ActiveResampleKernels().make_opaque(to, static_cast<size_t>(count));
      });
  return true;
}

/// Interpolates by weighted taps in tiles of a few columns and a band of rows. The taps of a source
/// row are spread out once per tile and serve all destination rows that they reach.
class TileInterpolator {
 public:
  TileInterpolator(const ImageView& source, const ImageView& dest, const SamplePositions& columns,
                   const SamplePositions& rows, const InterpolationMethod& method)
      : source_(source),
        dest_(dest),
        columns_(columns),
        positions_(rows),
        kernel_(method.kernel),
        window_(method.sampling == Sampling::kKernel4 ? kTaps4 : kTaps12),
        taps_(static_cast<size_t>(window_.count)),
        channels_(
            static_cast<size_t>(source.bit_count == 8 ? 1 : DirectPixelBytes(source.bit_count))),
        outside_(OutsideColor(source)) {}

  /// False when some positions are too far out to have taps, or when there is no memory; nothing is
  /// written then.
  bool Run() {
    const auto has_taps = [&](const SamplePositions& positions, int size) {
      return positions.AllOf([&](float v) { return !window_.Misses(TapOrigin(v), size); });
    };
    if (!has_taps(columns_, source_.width) || !has_taps(positions_, source_.height)) return false;
    tile_.taps = taps_;
    tile_.channels = channels_;
    tile_.row_bytes = source_.Columns() * static_cast<int64_t>(channels_);
    // The planes of all slots fit the innermost cache, or nearly so.
    const size_t most = taps_ == kMaxTaps ? (channels_ > 1 ? 16 : 64)
                        : channels_ > 1   ? 64
                                          : kMaxTileColumns;
    constexpr size_t kUnit = 32;
    tile_.columns =
        std::min(most, (static_cast<size_t>(columns_.size()) + kUnit - 1) / kUnit * kUnit);
    plane_size_ = taps_ * channels_ * tile_.columns;
    const size_t planes = (kSlots + 1) * plane_size_ + kAlignment;
    memory_.reset(new (std::nothrow) float[planes + kBandRows * taps_]);
    if (memory_ == nullptr) return false;
    row_weights_ = memory_.get() + planes;
    for (band_ = 0; band_ < positions_.size(); band_ += kBandRows) {
      row_count_ = static_cast<size_t>(std::min(kBandRows, positions_.size() - band_));
      for (size_t y = 0; y < row_count_; ++y) DescribeRow(y);
      const auto columns = static_cast<int64_t>(tile_.columns);
      for (int64_t x = 0; x < columns_.size(); x += columns) RunTile(x);
    }
    return true;
  }

 private:
  /// Rows that tiles go down: each lies in a page of its own, and the processor remembers where
  /// some two thousand pages are.
  static constexpr int64_t kBandRows = 600;
  /// Slots for source rows: more than the taps of one destination row, for others nearby.
  static constexpr int kSlots = 16;
  static constexpr size_t kAlignment = 16;
  static constexpr int64_t kNoRow = -1;
  /// Rows of a tile that the memory brings in advance.
  static constexpr int kRowsAhead = 16;

  /// One destination row: where its taps are.
  struct TapRow {
    int64_t first;         // first source row, maybe outside
    const float* weights;  // at the same address as two rows before, where they are the same
    bool with_alpha;       // whether its samples have alpha
  };

  /// Row `y` of the band.
  void DescribeRow(size_t y) {
    const float position = positions_[band_ + static_cast<int64_t>(y)];
    const int origin = TapOrigin(position);
    rows_[y] = {int64_t{origin} + window_.first, &row_weights_[y * taps_],
                taps_ == kMaxTaps || window_.Inside(origin, source_.height)};
    TapWeights(window_, kernel_, position, origin, &row_weights_[y * taps_]);
    if (y < 2) return;
    const float* const weights = rows_[y - 2].weights;
    if (std::equal(weights, weights + taps_, rows_[y].weights)) rows_[y].weights = weights;
  }

  void DescribeTile(int64_t first) {
    const uint8_t outside[] = {BlueOf(outside_), GreenOf(outside_), RedOf(outside_),
                               AlphaOf(outside_)};
    std::copy(std::begin(outside), std::end(outside), tile_.outside);
    for (size_t i = 0; i < tile_.columns; ++i) {
      // The last tile repeats its last column.
      const float position =
          columns_[std::min(first + static_cast<int64_t>(i), columns_.size() - 1)];
      const int origin = TapOrigin(position);
      float weights[kMaxTaps];
      TapWeights(window_, kernel_, position, origin, weights);
      for (size_t tap = 0; tap < taps_; ++tap) {
        const int64_t column = int64_t{origin} + window_.first + static_cast<int64_t>(tap);
        const bool inside = column >= 0 && column < source_.width;
        tile_.offsets[tap][i] = inside ? column * static_cast<int64_t>(channels_) : -1;
        tile_.weights[tap][i] = weights[tap];
      }
      // 4 by 4 samples have alpha only where no tap is outside; 12 by 12 samples everywhere.
      const bool with_alpha = taps_ == kMaxTaps || window_.Inside(origin, source_.width);
      tile_.alpha_mask[i] = with_alpha ? 255 : 0;
    }
    for (size_t i = 0; i < tile_.columns; i += kGroupColumns) DescribeGroup(i);
    const auto clamped = [&](int64_t i, int tap) {
      const int64_t column = int64_t{TapOrigin(columns_[i])} + window_.first + tap;
      return std::clamp<int64_t>(column, 0, source_.width - 1) * static_cast<int64_t>(channels_);
    };
    const int64_t last = std::min(first + static_cast<int64_t>(tile_.columns), columns_.size()) - 1;
    first_byte_ = clamped(first, 0);
    read_bytes_ = clamped(last, window_.count - 1) - first_byte_ + static_cast<int64_t>(channels_);
  }

  /// The group of columns that begins at column `first` of the tile.
  void DescribeGroup(size_t first) {
    TapGroup& group = tile_.groups[first / kGroupColumns];
    group.base = tile_.offsets[0][first];
    const int64_t last = tile_.offsets[taps_ - 1][first + kGroupColumns - 1];
    group.bytes = last + static_cast<int64_t>(channels_) - group.base;
    if (group.base < 0 || last < 0 || group.bytes > kMostGroupBytes) group.bytes = 0;
    for (size_t i = 0; i < kGroupColumns; ++i) {
      group.index[i] = static_cast<int32_t>(tile_.offsets[0][first + i] - group.base);
    }
  }

  /// Where the planes of a slot begin, at a whole vector.
  float* PlanesOf(size_t slot) {
    const auto address = reinterpret_cast<uintptr_t>(memory_.get()) / sizeof(float);
    return memory_.get() + (kAlignment - address % kAlignment) + slot * plane_size_;
  }

  /// The planes of source row `row`, gathered when they are not there.
  const float* RowPlanes(int64_t row) {
    if (row < 0 || row >= source_.height) return PlanesOf(kSlots);
    const auto slot = static_cast<size_t>(row) % kSlots;
    if (plane_rows_[slot] != row) {
      if (row + kRowsAhead < source_.height) {
        Fetch(source_.Row(row + kRowsAhead) + first_byte_, read_bytes_);
      }
      ActiveResampleKernels().gather(PlanesOf(slot), source_.Row(row), tile_);
      plane_rows_[slot] = row;
    }
    return PlanesOf(slot);
  }

  BlendRow RowOf(size_t y, int64_t first_column) {
    BlendRow row;
    row.dest =
        dest_.Row(band_ + static_cast<int64_t>(y)) + first_column * static_cast<int64_t>(channels_);
    if (y + kRowsAhead < row_count_) {
      Fetch<1>(row.dest + kRowsAhead * dest_.stride,
               static_cast<int64_t>(tile_.columns * channels_));
    }
    for (size_t j = 0; j < taps_; ++j) {
      row.planes[j] = RowPlanes(rows_[y].first + static_cast<int64_t>(j));
    }
    row.weights = rows_[y].weights;
    row.with_alpha = rows_[y].with_alpha;
    return row;
  }

  /// The columns from `first` on of the band.
  void RunTile(int64_t first) {
    DescribeTile(first);
    std::ranges::fill(plane_rows_, kNoRow);
    float* const outside = PlanesOf(kSlots);
    for (size_t i = 0; i < plane_size_; ++i) {
      outside[i] = tile_.outside[i / tile_.columns % channels_];
    }
    const ResampleKernels& kernels = ActiveResampleKernels();
    const BlendPair blend_pair = kernels.blend_pair(taps_, channels_);
    const BlendBlock blend_block = kernels.blend_block(taps_, channels_);
    const size_t count = std::min(tile_.columns, static_cast<size_t>(columns_.size() - first));
    for (size_t y = 0; y < row_count_;) {
      if (IsBlock(y)) {
        blend_block(
            {RowOf(y, first), RowOf(y + 1, first), RowOf(y + 2, first), RowOf(y + 3, first)}, tile_,
            count);
        y += 4;
      } else {
        const size_t rows = ShareSlots(y, y + 1) && !IsBlock(y + 1) ? 2 : 1;
        const BlendRow upper = RowOf(y, first);
        blend_pair({upper, rows == 1 ? upper : RowOf(y + 1, first)}, tile_, count);
        y += rows;
      }
    }
  }

  /// True when the slots have room for the taps of both rows. Those of rows further apart overwrite
  /// each other.
  bool ShareSlots(size_t y, size_t other) const {
    return other < row_count_ &&
           std::abs(rows_[other].first - rows_[y].first) <= kSlots - window_.count;
  }
  /// True for four rows as `BlendBlock` wants them: most rows of a picture of twice the size.
  bool IsBlock(size_t y) const {
    const auto same_taps = [&](size_t row) { return rows_[row].first == rows_[row + 1].first; };
    const auto same_weights = [&](size_t row) {
      return rows_[row].weights == rows_[row + 2].weights;
    };
    return ShareSlots(y, y + 2) && y + 3 < row_count_ && same_taps(y) && same_taps(y + 2) &&
           same_weights(y) && same_weights(y + 1);
  }

  const ImageView& source_;
  const ImageView& dest_;
  const SamplePositions columns_;
  const SamplePositions positions_;  // of rows
  const KernelFunction kernel_;
  const TapWindow window_;
  const size_t taps_;
  const size_t channels_;
  const uint32_t outside_;
  int64_t band_ = 0;  // its first row
  size_t row_count_ = 0;
  TapRow rows_[kBandRows];
  float* row_weights_ = nullptr;
  TileTaps tile_;
  int64_t first_byte_ = 0;  // of those in a source row that the tile reads
  int64_t read_bytes_ = 0;
  size_t plane_size_ = 0;
  // Planes of the rows in the slots and of a row that is outside, then weights of the band's rows.
  std::unique_ptr<float[]> memory_;
  int64_t plane_rows_[kSlots];
};

/// Interpolates in tiles, as far as `TileInterpolator` can.
[[gnu::noinline]] bool InterpolateTiles(const ImageView& source, const ImageView& dest,
                                        const SamplePositions& columns, const SamplePositions& rows,
                                        const InterpolationMethod& how) {
  return TileInterpolator(source, dest, columns, rows, how).Run();
}

void Interpolate(const ImageView& source, const ImageView& dest, const Scale& scale, int method) {
  const SamplePositions columns(dest.Columns(), scale.x);
  const SamplePositions rows(dest.Rows(), scale.y);
  const InterpolationMethod& how = MethodOf(method);
  if (source.HasPixels() && (source.bit_count == 8 || source.bit_count >= 24)) {
    const bool picks = how.sampling == Sampling::kNearest || how.sampling == Sampling::kBilinear;
    if (picks && PickPixels(source, dest, columns, rows, how.sampling)) return;
    if (!picks && InterpolateTiles(source, dest, columns, rows, how)) return;
  }
  InterpolateSingly(source, dest, columns, rows, method);
}

/// Bytes per pixel of box averages: depths other than 24 and 32 bits count as one byte.
int BoxPixelBytes(int bit_count) { return bit_count == 32 ? 4 : bit_count == 24 ? 3 : 1; }

void Resize(const ImageView& source, const ImageView& dest, const Scale& scale, int method,
            bool nearest_only) {
  if (!dest.HasPixels()) return;
  const bool copies = CopiesNearest(scale, method, nearest_only, source.bit_count);
  if (!copies && !AveragesBoxes(scale, nearest_only)) {
    Interpolate(source, dest, scale, method);
    return;
  }
  if (source.Empty()) return;
  const int pixel_bytes = copies ? source.bit_count / 8 : BoxPixelBytes(source.bit_count);
  if (source.bits == nullptr) {
    // Every pixel of a source without memory is black with the outside marker.
    uint8_t black[4] = {0, 0, 0, kOutsideMarker};
    ImageView pixel = source;
    pixel.bits = black;
    CopyNearest(pixel, dest, {0.0f, 0.0f}, pixel_bytes, !copies);
  } else if (copies) {
    CopyNearest(source, dest, scale, pixel_bytes, false);
  } else {
    AverageBoxes(source, dest, scale, pixel_bytes);
  }
}

}  // namespace

result_t CQELImageTransform::Resample(IQEL* source, IQEL** result, int new_width, int new_height,
                                      int method, int nearest_only) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  ImageShape shape;
  const result_t read = ReadFormat(*source, shape);
  if (Failed(read)) return read;
  ReadSize(*source, shape);
  const ImageView view = ReadPlane(*source, shape, 0);
  const Scale scale = {static_cast<float>(shape.width) / static_cast<float>(new_width),
                       static_cast<float>(shape.height) / static_cast<float>(new_height)};
  // The caller owns the new image from here on, also when a host call throws.
  SmartPtr<IQELImageDIB> made = QELObject::CreateImageDIB();
  *result = made.Detach();
  if (*result == nullptr) return kFail;
  const auto output = QueryFor<IQELImage>(*result);
  if (!output) return kOk;
  ImageShape resized = shape;
  resized.width = new_width;
  resized.height = new_height;
  const ImageView dest = NewPixels(*output, resized).Plane(0);
  if (new_width == shape.width && new_height == shape.height) {
    output->Assign(source, 0);
  } else {
    Resize(view, dest, scale, method, nearest_only != 0);
  }
  return kOk;
}

}  // namespace qel
