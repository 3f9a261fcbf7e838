#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "image/pixel_access.h"
#include "simd/prefetch.h"
#include "transform/resample/doubling_kernels.h"
#include "transform/resample/resample_methods.h"

namespace qel {
namespace {

/// Doubles an image in tiles of a few columns and a band of rows, channel by channel. Every source
/// row goes once into the sums of all rows that it is a tap of, which wait in rings.
template <size_t kTaps>
class Doubler {
 public:
  Doubler(const ResamplePlan& plan, const ImageView& source, const ImageView& dest)
      : plan_(plan),
        source_(source),
        dest_(dest),
        channels_(static_cast<size_t>(plan.pixel_bytes)),
        outside_(OutsideColor(source)) {}

  /// False when there is no memory; nothing is written then.
  bool Run() {
    memory_.reset(new (std::nothrow) float[channels_ * (kChannelSums + kValues)]());
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
  static constexpr int64_t kHalf = kTaps / 2;
  static constexpr size_t kColumns = kDoubledColumns<kTaps>;
  static constexpr size_t kValues = kColumns + kDoubledMargin;
  static constexpr size_t kRowSums = 2 * kColumns;
  static constexpr size_t kChannelSums = 2 * kTaps * kRowSums;
  /// Source rows that tiles go down: each lies in a page of its own, as do the two rows made of it,
  /// and the processor remembers where some two thousand pages are.
  static constexpr int64_t kBandRows = 300;
  /// Source rows of a tile that the memory brings in advance.
  static constexpr int64_t kRowsAhead = 8;

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
      SpreadRow(row, first, count);
      for (size_t c = 0; c < channels_; ++c) AddChannel(row, c);
      // The rows whose last tap this was.
      const int64_t even = row - kHalf + 1;
      const int64_t odd = row - kHalf;
      if (even >= begin && even < end) StoreRow(2 * even, bytes_[0], first, count);
      if (odd >= begin) StoreRow(2 * odd + 1, bytes_[1], first, count);
    }
  }

  /// Makes values of the taps of a tile in a source row, which may be outside.
  void SpreadRow(int64_t row, int64_t first, size_t count) {
    const bool inside = row >= 0 && row < source_.Rows();
    const int64_t from = first - kHalf;
    const int64_t begin = inside ? std::max<int64_t>(from, 0) : from;
    const int64_t end =
        inside ? std::min(first + static_cast<int64_t>(count) + kHalf, source_.Columns()) : from;
    const auto before = static_cast<size_t>(begin - from);
    const size_t past = before + static_cast<size_t>(end - begin);
    const uint8_t outside[] = {BlueOf(outside_), GreenOf(outside_), RedOf(outside_),
                               AlphaOf(outside_)};
    for (size_t c = 0; c < channels_; ++c) {
      float* const values = values_ + c * kValues;
      std::fill(values, values + before, outside[c]);
      std::fill(values + past, values + kValues, outside[c]);
    }
    if (!inside) return;
    const int64_t offset = begin * static_cast<int64_t>(channels_);
    if (row + kRowsAhead < source_.Rows()) {
      PrefetchRun(source_.Row(row + kRowsAhead) + offset,
                  (end - begin) * static_cast<int64_t>(channels_));
    }
    ActiveDoublingKernels().spread(values_ + before, kValues, source_.Row(row) + offset,
                                   past - before, channels_);
  }

  void AddChannel(int64_t row, size_t channel) {
    float* const sums = memory_.get() + channel * kChannelSums;
    step_.values = values_ + channel * kValues;
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
    if constexpr (kTaps == 4) {
      ActiveDoublingKernels().add4(step_);
    } else {
      ActiveDoublingKernels().add12(step_);
    }
  }

  using Bytes = uint8_t[4][2 * kColumns];

  /// Stores destination row `y` of a tile.
  void StoreRow(int64_t y, Bytes& bytes, int64_t first, size_t count) {
    const size_t pixels = 2 * count;
    uint8_t* const to = dest_.Row(y) + 2 * first * static_cast<int64_t>(channels_);
    if (y + 2 * kRowsAhead < dest_.Rows()) {
      PrefetchRun<1>(to + 2 * kRowsAhead * dest_.stride, static_cast<int64_t>(pixels * channels_));
    }
    if (channels_ == 1) {
      std::memcpy(to, bytes[0], pixels);
      return;
    }
    if (channels_ == 4 && kTaps == 4) HideAlpha(y, bytes[3], 2 * first, pixels);
    ActiveDoublingKernels().join(to, bytes[0], sizeof(bytes[0]), pixels, channels_);
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
  const size_t channels_;
  const uint32_t outside_;
  DoublingStep<kTaps> step_;
  Bytes bytes_[2];  // of the even and the odd row that are complete
  // Rings of sums for each channel, those of even rows first; then values of each channel.
  std::unique_ptr<float[]> memory_;
  float* values_ = nullptr;
};

}  // namespace

bool DoubleByTaps(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  return MethodOf(plan.interpolation).sampling == Sampling::kKernel4
             ? Doubler<4>(plan, source, dest).Run()
             : Doubler<12>(plan, source, dest).Run();
}

}  // namespace qel
