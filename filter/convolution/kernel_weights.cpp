#include "filter/convolution/kernel_weights.h"

#include <cstdlib>
#include <numeric>

#include "filter/convolution/exact_division.h"

namespace qel {

Weights::Weights(const int* kernel, int size) : kernel_(kernel), size_(size) {
  constexpr int64_t kFar = int64_t{1} << 50;
  int64_t left = size, right = -1, top = size, bottom = -1;
  for (int64_t j = 0; j < size; ++j) {
    for (int64_t i = 0; i < size; ++i) {
      const int32_t weight = kernel[j * size + i];
      if (weight == 0) continue;
      left = std::min(left, i);
      right = std::max(right, i);
      top = std::min(top, j);
      bottom = j;
      lowest_ = count_ == 0 ? weight : std::min(lowest_, weight);
      highest_ = count_ == 0 ? weight : std::max(highest_, weight);
      ++count_;
      int64_t& sum = weight < 0 ? lowest_sum_ : highest_sum_;
      sum = std::clamp(sum + int64_t{255} * weight, -kFar, kFar);
    }
  }
  left_ = right < 0 ? 0 : left;
  top_ = right < 0 ? 0 : top;
  columns_ = right < 0 ? 1 : static_cast<size_t>(right - left + 1);
  rows_ = right < 0 ? 1 : static_cast<size_t>(bottom - top + 1);
}

bool Factors::Find(const Weights& weights) {
  rows_ = weights.rows();
  columns_ = weights.columns();
  lowest_ = highest_ = 0;
  if (rows_ > kMostTaps || columns_ > kMostTaps) return false;
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

bool Factors::ShortDown() const {
  return highest_ - lowest_ <= UINT16_MAX &&
         std::all_of(across_, across_ + columns_,
                     [](int64_t value) { return value >= INT16_MIN && value <= INT16_MAX; });
}

bool Factors::ShortAcross() const {
  return std::accumulate(across_, across_ + columns_, int64_t{0}) <= INT16_MAX / 255 &&
         std::all_of(across_, across_ + columns_, [](int64_t value) { return value >= 0; });
}

SeparableWeights Factors::Store(int16_t* down, int16_t* across, size_t step) const {
  const auto narrow = [](int64_t value) { return static_cast<int16_t>(value); };
  std::transform(down_, down_ + rows_, down, narrow);
  std::transform(across_, across_ + columns_, across, narrow);
  const bool fits = lowest_ >= INT16_MIN && highest_ <= INT16_MAX;
  const int64_t start = fits ? 0 : INT16_MIN - lowest_;
  const int64_t sum = std::accumulate(across_, across_ + columns_, int64_t{0});
  return {.down = down,
          .rows = rows_,
          .across = across,
          .columns = columns_,
          .step = step,
          .start = static_cast<uint16_t>(start),
          .bias = static_cast<uint32_t>(-start * sum)};
}

bool FindShortFinish(const Weights& weights, int32_t divisor, int32_t offset, ShortFinish& finish) {
  const int64_t lowest = weights.LowestSum();
  const int64_t highest = weights.HighestSum();
  finish = {};
  if (lowest == 0 && offset == 0 && divisor >= 0 && highest <= UINT16_MAX) {
    finish.sums = ShortSums::kUnsigned;
    return FindReciprocalDivision(divisor, highest, finish.division);
  }
  if (lowest < INT16_MIN || highest > INT16_MAX) return false;
  if (offset < INT16_MIN || offset > INT16_MAX || divisor == INT32_MIN) return false;
  finish.sums = offset == 0 && divisor >= 0 ? ShortSums::kCutAtZero : ShortSums::kSigned;
  finish.negate = divisor < 0;
  finish.offset = static_cast<int16_t>(offset);
  return FindReciprocalDivision(std::abs(divisor), -int64_t{INT16_MIN}, finish.division);
}

bool Pairs::Find(const Weights& weights, size_t step, int32_t divisor, int32_t offset) {
  *this = {};
  if (weights.Count() == 0 || weights.Count() > 2 * kMostPairs || !weights.Within(1 << 7) ||
      weights.rows() > kMostTaps || weights.columns() > kMostTaps ||
      !FindShortFinish(weights, divisor, offset, finish_)) {
    return false;
  }
  int32_t highest = 0;
  for (size_t j = 0; j < weights.rows(); ++j) {
    for (size_t i = 0; i < weights.columns(); ++i) {
      const int32_t weight = weights.At(j, i);
      if (weight == 0) continue;
      TapPair& pair = pairs_[taps_ / 2];
      const size_t place = taps_++ % 2;
      if (place == 0) highest = 0;
      highest += std::max(weight, 0);
      if (255 * highest > INT16_MAX) return false;
      // The last tap may remain alone: its partner weighs nothing.
      for (size_t p = place; p < 2; ++p) {
        pair.rows[p] = j;
        pair.offsets[p] = i * step;
      }
      const auto byte = static_cast<uint32_t>(weight) & 0xFF;
      pair.weights |= static_cast<int32_t>(byte * 0x10001 << 8 * place);
    }
  }
  return true;
}

namespace {

/// True for sums of bytes weighed by two weights that fit signed 16 bits.
bool FitsPair(int32_t first, int32_t second) {
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

/// Looks for kernel = column x row + centre weight.
bool FindProduct(const Weights& weights, Square3Weights& square) {
  // The corner gives the centre that would make a product of it.
  const int32_t corner = weights.At(0, 0);
  const int32_t edges = weights.At(0, 1) * weights.At(1, 0);
  if (corner == 0 || edges % corner != 0) return false;
  int outer[9];
  for (size_t i = 0; i < 9; ++i) outer[i] = weights.At(i / 3, i % 3);
  outer[4] = edges / corner;
  Factors factors;
  if (!factors.Find(Weights(outer, 3))) return false;
  int16_t down[3];
  factors.Store(down, square.across, square.step);
  const int32_t center = weights.At(1, 1) - outer[4];
  if (!std::all_of(down, down + 3, IsByte) || !IsByte(center)) return false;
  if (!FitsPair(down[0], down[1])) return false;
  square.columns[0] = {BytePair(down[0], down[1]), BytePair(down[2], 0)};
  square.center = BytePair(center, 0);
  return true;
}

}  // namespace

bool FindSquare3(const Weights& weights, size_t step, int32_t divisor, int32_t offset,
                 Square3Weights& square) {
  if (weights.rows() != 3 || weights.columns() != 3 || !weights.Within(1 << 7)) return false;
  if (!FindShortFinish(weights, divisor, offset, square.finish)) return false;
  square.step = step;
  square.is_separable = FindProduct(weights, square);
  if (square.is_separable) return true;
  for (size_t i = 0; i < 3; ++i) {
    if (!FitsPair(weights.At(0, i), weights.At(1, i))) return false;
    square.columns[i] = {BytePair(weights.At(0, i), weights.At(1, i)),
                         BytePair(weights.At(2, i), 0)};
  }
  return true;
}

}  // namespace qel
