#include "pictures/png_filter.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qel::pictures {
namespace {

using U8 = uint8_t __attribute__((vector_size(16)));
using U16 = uint16_t __attribute__((vector_size(16)));

constexpr size_t kLanes = sizeof(U8);

U8 Load(const uint8_t* from) {
  U8 value;
  std::memcpy(&value, from, kLanes);
  return value;
}

U8 Min(U8 a, U8 b) { return a < b ? a : b; }
U8 Max(U8 a, U8 b) { return a > b ? a : b; }
U8 AbsDiff(U8 a, U8 b) { return Max(a, b) - Min(a, b); }

/// (a + b) / 2, rounded down.
U8 Average(U8 a, U8 b) { return (a & b) + (((a ^ b) >> 1) & 0x7F); }

/// Which of the three is nearest to left + above - corner, the first one if several are.
U8 Paeth(U8 left, U8 above, U8 corner) {
  const U8 from_left = AbsDiff(above, corner);
  const U8 from_above = AbsDiff(left, corner);
  // |from_left + from_above| with their signs; without signs, no less than either when they agree.
  const U8 opposed = (above > corner) ^ (left > corner);
  const U8 from_corner = opposed ? AbsDiff(from_left, from_above) : U8{} + 255;
  const auto takes_left = (from_left <= from_above) & (from_left <= from_corner);
  return takes_left ? left : (from_above <= from_corner ? above : corner);
}

/// Sum of the magnitudes of `count` bytes as signed ones.
uint64_t SumOfMagnitudes(const uint8_t* bytes, size_t count) {
  constexpr size_t kRun = 128 * kLanes;  // before the sums of 16 bits overflow
  uint64_t sum = 0;
  while (count > 0) {
    const size_t run = std::min(count, kRun);
    U16 sums{};
    for (size_t i = 0; i < run; i += kLanes) {
      const U8 value = Load(bytes + i);
      const auto pairs = reinterpret_cast<U16>(Min(value, -value));
      sums += (pairs & 0xFF) + (pairs >> 8);
    }
    for (size_t lane = 0; lane < kLanes / 2; ++lane) sum += sums[lane];
    bytes += run;
    count -= run;
  }
  return sum;
}

}  // namespace

PngFilter::Line::Line(size_t row_bytes)
    : memory_(kBefore + (row_bytes + kLanes - 1) / kLanes * kLanes) {}

PngFilter::PngFilter(size_t row_bytes, size_t pixel_bytes, bool adaptive)
    : row_bytes_(row_bytes),
      pixel_bytes_(pixel_bytes),
      adaptive_(adaptive),
      row_(row_bytes),
      above_(row_bytes),
      best_(row_bytes),
      candidate_(row_bytes) {}

/// Keeps the row's differences from what `predict` makes of its neighbours if they are the least.
template <typename Predict>
void PngFilter::Try(uint8_t filter, const Predict& predict) {
  const uint8_t* const row = row_.Bytes();
  const uint8_t* const above = above_.Bytes();
  uint8_t* const out = candidate_.Bytes();
  for (size_t i = 0; i < row_bytes_; i += kLanes) {
    const U8 difference = Load(row + i) - predict(Load(row + i - pixel_bytes_), Load(above + i),
                                                  Load(above + i - pixel_bytes_));
    std::memcpy(out + i, &difference, kLanes);
  }
  const size_t whole = (row_bytes_ + kLanes - 1) / kLanes * kLanes;
  std::fill(out + row_bytes_, out + whole, 0);
  const uint64_t sum = SumOfMagnitudes(out, row_bytes_);
  if (filter > 0 && sum >= best_sum_) return;
  best_sum_ = sum;
  out[-1] = filter;
  std::swap(best_, candidate_);
}

Bytes PngFilter::Run() {
  if (!adaptive_) {
    row_.Bytes()[-1] = 0;
    return {row_.Bytes() - 1, row_bytes_ + 1};
  }
  Try(0, [](U8, U8, U8) { return U8{}; });
  Try(1, [](U8 left, U8, U8) { return left; });
  Try(2, [](U8, U8 above, U8) { return above; });
  Try(3, [](U8 left, U8 above, U8) { return Average(left, above); });
  Try(4, [](U8 left, U8 above, U8 corner) { return Paeth(left, above, corner); });
  std::swap(row_, above_);
  return {best_.Bytes() - 1, row_bytes_ + 1};
}

}  // namespace qel::pictures
