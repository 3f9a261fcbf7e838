#include "filter/convolution/kernel_weights.h"

#include <cstdlib>
#include <numeric>

namespace qel {

Weights::Weights(const int* kernel, int size) : kernel_(kernel), size_(size) {
  constexpr int64_t kFar = int64_t{1} << 50;
  int64_t left = size, right = -1, top = size, bottom = -1;
  int32_t lowest = INT32_MAX, highest = INT32_MIN;
  for (int64_t j = 0; j < size; ++j) {
    const int* const row = kernel + j * size;
    const size_t before = count_;
    int64_t below = 0, above = 0;
    for (int64_t i = 0; i < size; ++i) {
      const int32_t weight = row[i];
      if (weight == 0) continue;
      left = std::min(left, i);
      right = std::max(right, i);
      lowest = std::min(lowest, weight);
      highest = std::max(highest, weight);
      below += std::min(weight, 0);
      above += std::max(weight, 0);
      ++count_;
    }
    if (count_ == before) continue;
    top = std::min(top, j);
    bottom = j;
    lowest_sum_ = std::max(lowest_sum_ + 255 * below, -kFar);
    highest_sum_ = std::min(highest_sum_ + 255 * above, kFar);
  }
  const bool is_empty = right < 0;
  lowest_ = is_empty ? 0 : lowest;
  highest_ = is_empty ? 0 : highest;
  left_ = is_empty ? 0 : left;
  top_ = is_empty ? 0 : top;
  columns_ = is_empty ? 1 : static_cast<size_t>(right - left + 1);
  rows_ = is_empty ? 1 : static_cast<size_t>(bottom - top + 1);
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

namespace {

/// True for sums of bytes weighed by two weights that fit signed 16 bits.
bool FitsPair(int32_t first, int32_t second) {
  const int32_t highest = 255 * (std::max(first, 0) + std::max(second, 0));
  const int32_t lowest = 255 * (std::min(first, 0) + std::min(second, 0));
  return highest <= INT16_MAX && lowest >= INT16_MIN;
}

/// Two signed bytes, twice.
int32_t BytePair(int32_t first, int32_t second) {
  const uint32_t word =
      (static_cast<uint32_t>(first) & 0xFF) | (static_cast<uint32_t>(second) & 0xFF) << 8;
  return static_cast<int32_t>(word * 0x10001);
}

/// The weights of two rows in one column.
struct ColumnPair {
  int32_t first;
  int32_t second;
  bool IsZero() const { return first == 0 && second == 0; }
  bool FitsWord() const { return FitsPair(first, second); }
  int32_t Bytes() const { return BytePair(first, second); }
};
/// What two output rows take from a pair of rows in one column. For the lower one, windows begin a
/// row further down.
struct OutputPairs {
  ColumnPair upper;
  ColumnPair lower;
};

/// Calls visit(pair, column, OutputPairs) with all that weighs anything, until it gives false; true
/// when it never does.
template <typename Visitor>
bool EachRowPairTap(const Weights& weights, Visitor&& visit) {
  const size_t rows = weights.rows();
  for (size_t j = 0; j <= rows; j += 2) {
    for (size_t i = 0; i < weights.columns(); ++i) {
      const int32_t above = j > 0 ? weights.At(j - 1, i) : 0;
      const int32_t first = j < rows ? weights.At(j, i) : 0;
      const int32_t second = j + 1 < rows ? weights.At(j + 1, i) : 0;
      const OutputPairs pairs = {{first, second}, {above, first}};
      if (pairs.upper.IsZero() && pairs.lower.IsZero()) continue;
      if (!visit(j / 2, i, pairs)) return false;
    }
  }
  return true;
}

/// Where sums may lie.
struct SumRange {
  int32_t lowest = 0;
  int32_t highest = 0;
  SumRange With(const ColumnPair& pair) const {
    return {lowest + 255 * (std::min(pair.first, 0) + std::min(pair.second, 0)),
            highest + 255 * (std::max(pair.first, 0) + std::max(pair.second, 0))};
  }
  bool Fits() const { return highest - lowest <= UINT16_MAX; }
  /// What they start from so that they fit signed 16 bits.
  int16_t Start() const {
    const bool fits = lowest >= INT16_MIN && highest <= INT16_MAX;
    return static_cast<int16_t>(fits ? 0 : INT16_MIN - lowest);
  }
};

}  // namespace

bool RowPairs::Find(const Weights& weights, int32_t divisor, int32_t offset) {
  constexpr int32_t kMostOffset = 1 << 14;
  *this = {};
  is_short_ = FindShortFinish(weights, divisor, offset, finish_);
  if (weights.Count() == 0 || !weights.Within(1 << 7) ||
      weights.columns() * (weights.rows() / 2 + 1) > kMostRowPairTaps ||
      (!is_short_ && (offset < -kMostOffset || offset > kMostOffset))) {
    return false;
  }
  SumRange upper, lower;
  const auto end_group = [&] {
    if (group_count_ == kMostGroups) return false;
    const auto end = static_cast<uint16_t>(tap_count_);
    groups_[group_count_++] =
        is_short_ ? RowPairGroup{end, 0, 0} : RowPairGroup{end, upper.Start(), lower.Start()};
    return true;
  };
  const bool fits = EachRowPairTap(weights, [&](size_t, size_t, const OutputPairs& pairs) {
    if (!pairs.upper.FitsWord() || !pairs.lower.FitsWord()) return false;
    SumRange next_upper = upper.With(pairs.upper), next_lower = lower.With(pairs.lower);
    if (!is_short_ && !(next_upper.Fits() && next_lower.Fits())) {
      if (!end_group()) return false;
      next_upper = SumRange().With(pairs.upper);
      next_lower = SumRange().With(pairs.lower);
    }
    upper = next_upper;
    lower = next_lower;
    ++tap_count_;
    return true;
  });
  if (!fits || !end_group()) return false;
  upper = lower = {};
  return is_short_ || group_count_ % 2 == 0 || end_group();
}

RowPairWeights RowPairs::Store(const Weights& weights, size_t pitch, size_t step,
                               RowPairTap* taps) const {
  RowPairWeights stored = {};
  stored.taps = taps;
  stored.groups = groups_;
  stored.group_count = group_count_;
  stored.is_short = is_short_;
  stored.finish = finish_;
  for (size_t i = 0; i < group_count_; ++i) {
    stored.upper_bias -= groups_[i].upper_start;
    stored.lower_bias -= groups_[i].lower_start;
  }
  EachRowPairTap(weights, [&](size_t pair, size_t column, const OutputPairs& outputs) {
    *taps++ = {static_cast<uint32_t>(pair * pitch + 2 * column * step), outputs.upper.Bytes(),
               outputs.lower.Bytes()};
    return true;
  });
  return stored;
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

bool IsByte(int32_t weight) { return weight >= INT8_MIN && weight <= INT8_MAX; }

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
  if (square.across[0] < 0) {
    for (int16_t& weight : down) weight = static_cast<int16_t>(-weight);
    for (int16_t& weight : square.across) weight = static_cast<int16_t>(-weight);
  }
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
