#include "filter/convolution/kernel_weights.h"

#include <cstdlib>

#include "filter/convolution/exact_division.h"

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

namespace {

/// True for sums of bytes weighed by two weights that fit signed 16 bits.
bool FitsWord(int32_t first, int32_t second) {
  const int32_t highest = 255 * (std::max(first, 0) + std::max(second, 0));
  const int32_t lowest = 255 * (std::min(first, 0) + std::min(second, 0));
  return highest <= INT16_MAX && lowest >= INT16_MIN;
}
bool IsByte(int32_t weight) { return weight >= INT8_MIN && weight <= INT8_MAX; }

/// Two signed bytes, twice.
int32_t BytePair(int32_t first, int32_t second) {
  const uint32_t word =
      (static_cast<uint32_t>(first) & 0xFF) | (static_cast<uint32_t>(second) & 0xFF) << 8;
  return static_cast<int32_t>(word * 0x10001);
}

/// Looks for a product of a column and a row that only the middle departs from.
bool FindProduct(const Weights& weights, SquareWeights& square) {
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
  factors.Store(down, square.across, square.step);
  const int32_t middle = weights.At(1, 1) - outer[4];
  if (!std::all_of(down, down + 3, IsByte) || !IsByte(middle)) return false;
  if (!FitsWord(down[0], down[1])) return false;
  square.columns[0] = {BytePair(down[0], down[1]), BytePair(down[2], 0)};
  square.middle = BytePair(middle, 0);
  return true;
}

}  // namespace

bool FindSquare(const Weights& weights, size_t step, int32_t divisor, int32_t offset,
                SquareWeights& square) {
  if (weights.rows() != 3 || weights.columns() != 3 || !weights.Within(1 << 7)) return false;
  if (!FindShortFinish(weights, divisor, offset, square.finish)) return false;
  square.step = step;
  square.is_product = FindProduct(weights, square);
  if (square.is_product) return true;
  // Few weights are sooner weighed two by two.
  constexpr int kFewWeights = 4;
  int count = 0;
  for (size_t i = 0; i < 9; ++i) count += weights.At(i / 3, i % 3) != 0 ? 1 : 0;
  if (count <= kFewWeights) return false;
  for (size_t i = 0; i < 3; ++i) {
    if (!FitsWord(weights.At(0, i), weights.At(1, i))) return false;
    square.columns[i] = {BytePair(weights.At(0, i), weights.At(1, i)),
                         BytePair(weights.At(2, i), 0)};
  }
  return true;
}

}  // namespace qel
