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

bool FindShortFinish(const Weights& weights, int32_t divisor, int32_t offset, ShortFinish& finish) {
  int64_t lowest = 0;
  int64_t highest = 0;
  weights.Range(lowest, highest);
  finish = {};
  if (lowest == 0 && offset == 0 && divisor >= 0 && highest <= UINT16_MAX) {
    finish.sums = ShortSums::kUnsigned;
    return FindShortDivision(divisor, highest, finish.division);
  }
  if (lowest < INT16_MIN || highest > INT16_MAX) return false;
  if (offset < INT16_MIN || offset > INT16_MAX || divisor == INT32_MIN) return false;
  finish.sums = offset == 0 && divisor >= 0 ? ShortSums::kCutAtZero : ShortSums::kSigned;
  finish.negate = divisor < 0;
  finish.offset = static_cast<int16_t>(offset);
  return FindShortDivision(std::abs(divisor), -int64_t{INT16_MIN}, finish.division);
}

bool FindSquare(const Weights& weights, size_t step, int32_t divisor, int32_t offset,
                SquareWeights& square) {
  if (weights.rows() != 3 || weights.columns() != 3 || !weights.Within(1 << 7)) return false;
  if (!FindShortFinish(weights, divisor, offset, square.finish)) return false;
  // The corner gives the middle that would make a product of it.
  const int32_t corner = weights.At(0, 0);
  const int32_t edges = weights.At(0, 1) * weights.At(1, 0);
  if (corner == 0 || edges % corner != 0) return false;
  int outer[9];
  for (size_t i = 0; i < 9; ++i) outer[i] = weights.At(i / 3, i % 3);
  outer[4] = edges / corner;
  const Factors factors(Weights(outer, 3));
  if (!factors.Found()) return false;
  int16_t down[3];
  int16_t across[3];
  factors.Store(down, across, step);
  const int32_t middle = weights.At(1, 1) - outer[4];
  const auto is_byte = [](int32_t value) { return value >= INT8_MIN && value <= INT8_MAX; };
  const auto in_range = [](int32_t sum) {
    return 255 * sum >= INT16_MIN && 255 * sum <= INT16_MAX;
  };
  if (!std::all_of(down, down + 3, is_byte) || !is_byte(middle)) return false;
  if (!in_range(std::max(down[0], int16_t{0}) + std::max(down[1], int16_t{0})) ||
      !in_range(std::min(down[0], int16_t{0}) + std::min(down[1], int16_t{0}))) {
    return false;
  }
  const auto twice = [](int32_t first, int32_t second) {
    const uint32_t word =
        (static_cast<uint32_t>(first) & 0xFF) | (static_cast<uint32_t>(second) & 0xFF) << 8;
    return static_cast<int32_t>(word * 0x10001);
  };
  square.upper = twice(down[0], down[1]);
  square.lower = twice(down[2], 0);
  std::copy(across, across + 3, square.across);
  square.middle = twice(middle, 0);
  square.step = step;
  return true;
}

}  // namespace qel
