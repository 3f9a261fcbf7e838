#include <algorithm>
#include <iterator>
#include <memory>
#include <new>

#include "transform/resample/doubling_kernels.h"
#include "transform/resample/doubling_rows.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

constexpr auto kTaps = static_cast<int64_t>(kBoundedTaps);

/// The tolerance where columns and rows have these weights or the same in reverse.
Tolerance ToleranceOf(const float (&weights)[kBoundedTaps]) {
  WeightLine line = LineOf(weights, 1);
  const WeightLine reversed = LineOf(std::end(weights) - 1, -1);
  line.running_sum = std::max(line.running_sum, reversed.running_sum);
  line.running_sizes = std::max(line.running_sizes, reversed.running_sizes);
  return ToleranceOf(line, line, 0);
}

/// Doubles an image in tiles, channel by channel.
class BoundedDoubling {
 public:
  BoundedDoubling(const ResamplePlan& plan, const ImageView& source, const ImageView& dest)
      : source_(source), rows_(source, dest, plan) {
    tile_.weights = plan.weights;
    tile_.products = products_;
    tile_.tolerance = ToleranceOf(plan.weights);
    for (size_t of = 0; of < 4; ++of) {
      for (size_t i = 0; i < kBoundedTaps * kBoundedTaps; ++i) {
        const size_t row = i / kBoundedTaps;
        const size_t column = i % kBoundedTaps;
        products_[of][row][column] =
            plan.weights[of % 2 == 0 ? column : kBoundedTaps - 1 - column] *
            plan.weights[of / 2 == 0 ? row : kBoundedTaps - 1 - row];
      }
    }
  }

  /// False when there is no memory; nothing is written then.
  bool Run() {
    const auto rows = static_cast<size_t>(std::min<int64_t>(kBoundedRows, source_.Rows()));
    value_plane_ = (rows + kBoundedTaps) * kDoubledValues;
    byte_plane_ = 4 * rows * kDoubledColumns;
    const size_t bytes = rows_.channels() * (value_plane_ * sizeof(float) + byte_plane_);
    memory_.reset(new (std::nothrow) Line[bytes / sizeof(Line)]);
    if (memory_ == nullptr) return false;
    values_ = reinterpret_cast<float*>(memory_.get());
    for (int64_t band = 0; band < source_.Rows(); band += kBandRows) {
      const int64_t end = std::min(source_.Rows(), band + kBandRows);
      for (int64_t x = 0; x < source_.Columns(); x += kDoubledColumns) RunTiles(x, band, end);
    }
    return true;
  }

 private:
  struct alignas(64) Line {
    uint8_t bytes[64];
  };
  static_assert(kDoubledValues * sizeof(float) % sizeof(Line) == 0);
  static_assert(4 * kDoubledColumns % sizeof(Line) == 0);

  /// Source rows that tiles go down: each lies in a page of its own, as do the two rows made of it,
  /// and the processor remembers where some two thousand pages are.
  static constexpr int64_t kBandRows = 304;
  static_assert(kBandRows % kBoundedRows == 0);

  /// The columns from `x` on of the rows from `begin` to `end`.
  void RunTiles(int64_t x, int64_t begin, int64_t end) {
    const auto columns =
        static_cast<size_t>(std::min<int64_t>(kDoubledColumns, source_.Columns() - x));
    tile_.columns = (columns + kDoubledUnit - 1) / kDoubledUnit * kDoubledUnit;
    size_t known = 0;  // rows of values that the tile before had
    for (int64_t y = begin; y < end; y += kBoundedRows) {
      tile_.rows = static_cast<size_t>(std::min<int64_t>(kBoundedRows, end - y));
      for (size_t row = known; row < tile_.rows + kBoundedTaps; ++row) {
        rows_.Spread(values_ + row * kDoubledValues, value_plane_,
                     y - kTaps / 2 + static_cast<int64_t>(row), x - kTaps / 2,
                     x + static_cast<int64_t>(columns) + kTaps / 2);
      }
      RunTile(x, y, columns);
      known = kBoundedTaps;
    }
  }

  void RunTile(int64_t x, int64_t y, size_t columns) {
    auto* const bytes = reinterpret_cast<uint8_t*>(values_ + rows_.channels() * value_plane_);
    for (size_t c = 0; c < rows_.channels(); ++c) {
      tile_.values = values_ + c * value_plane_;
      tile_.bytes = bytes + c * byte_plane_;
      ActiveDoublingKernels().bounded12(tile_);
      std::copy_n(tile_.values + tile_.rows * kDoubledValues, kBoundedTaps * kDoubledValues,
                  values_ + c * value_plane_);
    }
    for (size_t row = 0; row < 2 * tile_.rows; ++row) {
      rows_.Store(2 * y + static_cast<int64_t>(row), 2 * x, bytes + row * 2 * kDoubledColumns,
                  byte_plane_, 2 * columns);
    }
  }

  const ImageView source_;
  const DoublingRows rows_;
  BoundedTile tile_;
  TapProducts products_[4];
  size_t value_plane_ = 0;
  size_t byte_plane_ = 0;
  // Values of the taps of a tile for each channel, then its bytes.
  std::unique_ptr<Line[]> memory_;
  float* values_ = nullptr;
};

}  // namespace

bool DoubleByBoundedTaps(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  return BoundedDoubling(plan, source, dest).Run();
}

}  // namespace qel
