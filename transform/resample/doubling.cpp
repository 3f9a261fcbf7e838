#include <cstring>
#include <memory>
#include <new>

#include "transform/resample/doubling_kernels.h"
#include "transform/resample/doubling_rows.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

/// Doubles an image in tiles of a few columns and a band of rows, channel by channel. Every source
/// row goes once into the sums of all rows that it is a tap of, which wait in rings.
class Doubler {
 public:
  Doubler(const ResamplePlan& plan, const ImageView& source, const ImageView& dest)
      : plan_(plan),
        source_(source),
        dest_(dest),
        rows_(source, dest, plan),
        channels_(static_cast<size_t>(plan.pixel_bytes)) {}

  /// False when there is no memory; nothing is written then.
  bool Run() {
    memory_.reset(new (std::nothrow) float[channels_ * (kChannelSums + kDoubledValues)]());
    if (memory_ == nullptr) return false;
    values_ = memory_.get() + channels_ * kChannelSums;
    for (int64_t band = 0; band < source_.Rows(); band += kBandRows) {
      const int64_t end = std::min(source_.Rows(), band + kBandRows);
      for (int64_t x = 0; x < source_.Columns(); x += static_cast<int64_t>(kColumns)) {
        RunTile(x, band, end);
      }
    }
    return true;
  }

 private:
  static constexpr size_t kTaps = kDoublingTaps;
  static constexpr int64_t kHalf = kTaps / 2;
  static constexpr size_t kColumns = kDoubledColumns;
  static constexpr size_t kRowSums = 2 * kColumns;
  static constexpr size_t kChannelSums = 2 * kTaps * kRowSums;
  /// Source rows that tiles go down: each lies in a page of its own, as do the two rows made of it,
  /// and the processor remembers where some two thousand pages are.
  static constexpr int64_t kBandRows = 300;

  /// The columns from `first` on of the rows from `begin` to `end`.
  void RunTile(int64_t first, int64_t begin, int64_t end) {
    const auto count = static_cast<size_t>(
        std::min<int64_t>(static_cast<int64_t>(kColumns), source_.Columns() - first));
    step_.weights = plan_.weights;
    step_.columns = (count + kDoubledUnit - 1) / kDoubledUnit * kDoubledUnit;
    for (int64_t row = begin - kHalf; row < end + kHalf; ++row) {
      step_.needed = 0;
      for (int64_t k = 0; k < static_cast<int64_t>(kTaps); ++k) {
        const auto is_inside = [=](int64_t y) { return y >= begin && y < end; };
        const bool any = is_inside(row + kHalf - k) || is_inside(row - kHalf + k);
        step_.needed |= uint32_t{any} << k;
      }
      rows_.Spread(values_, kDoubledValues, row, first - kHalf,
                   first + static_cast<int64_t>(count) + kHalf);
      for (size_t c = 0; c < channels_; ++c) AddChannel(row, c);
      // The rows whose last tap this was.
      const int64_t even = row - kHalf + 1;
      const int64_t odd = row - kHalf;
      if (even >= begin && even < end) StoreRow(2 * even, bytes_[0], first, count);
      if (odd >= begin) StoreRow(2 * odd + 1, bytes_[1], first, count);
    }
  }

  void AddChannel(int64_t row, size_t channel) {
    float* const sums = memory_.get() + channel * kChannelSums;
    step_.values = values_ + channel * kDoubledValues;
    // The source row is tap k of even row `row` + kHalf - k, and has the same weight for odd row
    // `row` - kHalf + k.
    constexpr auto kRing = static_cast<int64_t>(kTaps);
    for (int64_t k = 0; k < kRing; ++k) {
      const int64_t even = (row + kHalf - k + 2 * kRing) % kRing;
      const int64_t odd = (row - kHalf + k + 2 * kRing) % kRing;
      step_.even_row[k] = sums + static_cast<size_t>(even) * kRowSums;
      step_.odd_row[k] = sums + (kTaps + static_cast<size_t>(odd)) * kRowSums;
    }
    step_.even_bytes = bytes_[0][channel];
    step_.odd_bytes = bytes_[1][channel];
    ActiveDoublingKernels().add4(step_);
  }

  using Bytes = uint8_t[4][2 * kColumns];

  /// Stores destination row `y` of a tile.
  void StoreRow(int64_t y, Bytes& bytes, int64_t first, size_t count) {
    if (channels_ == 4) HideAlpha(y, bytes[3], 2 * first, 2 * count);
    rows_.Store(y, 2 * first, bytes[0], sizeof(bytes[0]), 2 * count);
  }

  /// Of samples of 4 by 4 pixels, those with a tap outside have no alpha.
  void HideAlpha(int64_t y, uint8_t* alpha, int64_t first, size_t count) const {
    // The first tap of column or row i is (i + 1) / 2 - 2.
    const auto all_inside = [](int64_t i, int64_t size) {
      return i >= 3 && (i + 1) / 2 + 2 <= size;
    };
    if (!all_inside(y, source_.Rows())) {
      std::memset(alpha, 0, count);
      return;
    }
    for (size_t i = 0; i < count && !all_inside(first + static_cast<int64_t>(i), source_.Columns());
         ++i) {
      alpha[i] = 0;
    }
    for (size_t i = count;
         i > 0 && !all_inside(first + static_cast<int64_t>(i) - 1, source_.Columns()); --i) {
      alpha[i - 1] = 0;
    }
  }

  const ResamplePlan& plan_;
  const ImageView& source_;
  const ImageView& dest_;
  const DoublingRows rows_;
  const size_t channels_;
  DoublingStep step_;
  Bytes bytes_[2];  // of the even and the odd row that are complete
  // Rings of sums for each channel, those of even rows first; then values of each channel.
  std::unique_ptr<float[]> memory_;
  float* values_ = nullptr;
};

}  // namespace

bool DoubleByTaps(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  return Doubler(plan, source, dest).Run();
}

}  // namespace qel
