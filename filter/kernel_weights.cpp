#include "filter/kernel_weights.h"

#include <cstdlib>

#include "filter/exact_division.h"

namespace qel {

bool Factors::Find(const Weights& weights) {
  rows_ = weights.rows();
  columns_ = weights.columns();
  // The first row is not all zeros: its shortest multiple is the row that all others repeat.
  int64_t divisor = 0;
  size_t lead = 0;
  for (size_t i = columns_; i-- > 0;) {
    divisor = std::gcd(divisor, int64_t{weights.At(0, i)});
    if (weights.At(0, i) != 0) lead = i;
  }
  if (divisor == 0) return false;
  for (size_t i = 0; i < columns_; ++i) across_[i] = weights.At(0, i) / divisor;
  for (size_t j = 0; j < rows_; ++j) {
    if (weights.At(j, lead) % across_[lead] != 0) return false;
    down_[j] = weights.At(j, lead) / across_[lead];
    (down_[j] < 0 ? lowest_ : highest_) += 255 * down_[j];
    for (size_t i = 0; i < columns_; ++i) {
      if (weights.At(j, i) != down_[j] * across_[i]) return false;
    }
  }
  return true;
}

bool Pairs::Split(const Weights& weights, size_t step) {
  int32_t highest = 0;
  for (size_t j = 0; j < weights.rows(); ++j) {
    for (size_t i = 0; i < weights.columns(); ++i) {
      const int32_t weight = weights.At(j, i);
      if (weight == 0) continue;
      if (taps_ == 2 * kMostPairs || weight < INT8_MIN || weight > INT8_MAX) return false;
      TapPair& pair = pairs_[taps_ / 2];
      const size_t place = taps_++ % 2;
      if (place == 0) highest = 0;
      highest += std::max(weight, 0);
      highest_pair_ = std::max(highest_pair_, 255 * highest);
      // The last tap may remain alone: its partner weighs nothing.
      for (size_t p = place; p < 2; ++p) {
        pair.rows[p] = j;
        pair.offsets[p] = i * step;
      }
      const auto byte = static_cast<uint32_t>(weight) & 0xFF;
      pair.weights |= static_cast<int32_t>(byte * 0x10001 << 8 * place);
    }
  }
  return taps_ > 0;
}

bool Pairs::Choose(const Weights& weights, int32_t divisor, int32_t offset) {
  int64_t lowest = 0;
  int64_t highest = 0;
  weights.Range(lowest, highest);
  if (lowest == 0 && offset == 0 && divisor >= 0 && highest <= UINT16_MAX) {
    sums_ = PairSums::kUnsigned;
    return highest_pair_ <= INT16_MAX && FindShortDivision(divisor, highest, division_);
  }
  if (lowest < INT16_MIN || highest > INT16_MAX) return false;
  if (offset < INT16_MIN || offset > INT16_MAX || divisor == INT32_MIN) return false;
  sums_ = offset == 0 && divisor >= 0 ? PairSums::kCutAtZero : PairSums::kSigned;
  negate_ = divisor < 0;
  offset_ = static_cast<int16_t>(offset);
  return FindShortDivision(std::abs(divisor), -int64_t{INT16_MIN}, division_);
}

}  // namespace qel
