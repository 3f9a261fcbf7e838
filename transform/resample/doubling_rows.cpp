#include "transform/resample/doubling_rows.h"

#include <algorithm>
#include <cstring>

#include "image/pixel_access.h"
#include "simd/prefetch.h"
#include "transform/resample/doubling_kernels.h"

namespace qel {
namespace {

/// Source rows that the memory brings in advance.
constexpr int64_t kRowsAhead = 8;

}  // namespace

DoublingRows::DoublingRows(const ImageView& source, const ImageView& dest, const ResamplePlan& plan)
    : source_(source), dest_(dest), channels_(static_cast<size_t>(plan.pixel_bytes)) {
  const uint32_t outside = OutsideColor(source);
  const uint8_t channels[] = {BlueOf(outside), GreenOf(outside), RedOf(outside), AlphaOf(outside)};
  std::copy(std::begin(channels), std::end(channels), outside_);
}

void DoublingRows::Spread(float* values, size_t stride, int64_t row, int64_t from,
                          int64_t past) const {
  const bool inside = row >= 0 && row < source_.Rows();
  const int64_t begin = inside ? std::max<int64_t>(from, 0) : from;
  const int64_t end = inside ? std::min(past, source_.Columns()) : from;
  const auto before = static_cast<size_t>(begin - from);
  const size_t behind = before + static_cast<size_t>(end - begin);
  for (size_t c = 0; c < channels_; ++c) {
    float* const of_channel = values + c * stride;
    std::fill(of_channel, of_channel + before, outside_[c]);
    std::fill(of_channel + behind, of_channel + kDoubledValues, outside_[c]);
  }
  if (!inside) return;
  const int64_t offset = begin * static_cast<int64_t>(channels_);
  if (row + kRowsAhead < source_.Rows()) {
    PrefetchRun(source_.Row(row + kRowsAhead) + offset,
                (end - begin) * static_cast<int64_t>(channels_));
  }
  ActiveDoublingKernels().spread(values + before, stride, source_.Row(row) + offset,
                                 behind - before, channels_);
}

void DoublingRows::Store(int64_t y, int64_t first, const uint8_t* bytes, size_t stride,
                         size_t pixels) const {
  uint8_t* const to = dest_.Row(y) + first * static_cast<int64_t>(channels_);
  if (y + 2 * kRowsAhead < dest_.Rows()) {
    PrefetchRun<1>(to + 2 * kRowsAhead * dest_.stride, static_cast<int64_t>(pixels * channels_));
  }
  if (channels_ == 1) {
    std::memcpy(to, bytes, pixels);
  } else {
    ActiveDoublingKernels().join(to, bytes, stride, pixels, channels_);
  }
}

}  // namespace qel
