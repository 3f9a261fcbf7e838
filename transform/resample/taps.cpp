#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "image/interpolated_sampling.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/resample/resample_kernels.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

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

  /// False when there is no memory; nothing is written then.
  bool Run() {
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
        PrefetchRun(source_.Row(row + kRowsAhead) + first_byte_, read_bytes_);
      }
      ActiveResampleKernels().gather_planes(PlanesOf(slot), source_.Row(row), tile_);
      plane_rows_[slot] = row;
    }
    return PlanesOf(slot);
  }

  BlendRow RowOf(size_t y, int64_t first_column) {
    BlendRow row;
    row.dest =
        dest_.Row(band_ + static_cast<int64_t>(y)) + first_column * static_cast<int64_t>(channels_);
    if (y + kRowsAhead < row_count_) {
      PrefetchRun<1>(row.dest + kRowsAhead * dest_.stride,
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

}  // namespace

bool SumTapsByTiles(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  return TileInterpolator(source, dest, {dest.Columns(), plan.scale.x}, {dest.Rows(), plan.scale.y},
                          MethodOf(plan.interpolation))
      .Run();
}

}  // namespace qel
