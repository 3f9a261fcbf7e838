#include "filter/convolution/kernel_weights.h"

#include <cstdlib>
#include <numeric>
#include <utility>

namespace qel {

namespace {

/// Adds up `count` weights, few enough for `Sum`: those below 0, and all.
template <typename Sum>
std::pair<Sum, Sum> SumsOf(const int32_t* weights, int64_t count) {
  Sum below = 0, all = 0;
  for (int64_t i = 0; i < count; ++i) {
    below += std::min(weights[i], 0);
    all += weights[i];
  }
  return {below, all};
}

bool IsNotZero(int32_t weight) { return weight != 0; }

}  // namespace

Weights::Weights(const int* kernel, int size) : kernel_(kernel), size_(size) {
  constexpr int64_t kFar = int64_t{1} << 50;
  constexpr int64_t kPiece = 1 << 12;
  constexpr int32_t kSmall = INT32_MAX / kPiece;
  const int64_t all = int64_t{size} * size;
  // Pieces rather than rows, which are short: the compiler makes vectors of these loops.
  for (int64_t i = 0; i < all; i += kPiece) {
    const int64_t count = std::min(all - i, kPiece);
    const int32_t* const piece = kernel + i;
    int32_t zeros = 0, lowest = lowest_, highest = highest_;
    for (int64_t k = 0; k < count; ++k) {
      zeros += piece[k] == 0;
      lowest = std::min(lowest, piece[k]);
      highest = std::max(highest, piece[k]);
    }
    lowest_ = lowest;
    highest_ = highest;
    count_ += static_cast<size_t>(count - zeros);
    const auto [below, sum] = Within(kSmall)
                                  ? std::pair<int64_t, int64_t>(SumsOf<int32_t>(piece, count))
                                  : SumsOf<int64_t>(piece, count);
    lowest_sum_ = std::max(lowest_sum_ + 255 * below, -kFar);
    highest_sum_ = std::min(highest_sum_ + 255 * (sum - below), kFar);
  }
  left_ = top_ = 0;
  columns_ = rows_ = 1;
  if (count_ == 0) return;
  const int32_t* const end = kernel + all;
  int64_t left = size, right = -1;
  const int32_t* last = end - 1;
  while (*last == 0) --last;
  top_ = (std::find_if(kernel, end, IsNotZero) - kernel) / size;
  const int64_t bottom = (last - kernel) / size;
  for (int64_t j = top_; j <= bottom; ++j) {
    // Other columns than these are known to weigh something.
    const int32_t* const row = kernel + j * size;
    left = std::find_if(row, row + left, IsNotZero) - row;
    for (int64_t i = size - 1; i > right; --i) {
      if (row[i] != 0) right = i;
    }
  }
  left_ = left;
  columns_ = static_cast<size_t>(right - left + 1);
  rows_ = static_cast<size_t>(bottom - top_ + 1);
}

bool Weights::AllEqual() const {
  if (count_ != columns_ * rows_) return count_ == 0;
  const int32_t first = At(0, 0);
  for (size_t j = 0; j < rows_; ++j) {
    const int32_t* const row = Row(j);
    if (std::any_of(row, row + columns_, [=](int32_t weight) { return weight != first; })) {
      return false;
    }
  }
  return true;
}

bool Factors::Find(const int32_t* weights, size_t stride, size_t rows, size_t columns) {
  rows_ = rows;
  columns_ = columns;
  lowest_ = highest_ = 0;
  if (rows > kMostTaps || columns > kMostTaps) return false;
  // The first row is not all zeros: all others are multiples of it, or there are no factors.
  const auto lead =
      static_cast<size_t>(std::find_if(weights, weights + columns, IsNotZero) - weights);
  if (lead == columns) return false;
  for (size_t j = 1; j < rows; ++j) {
    const int32_t* const row = weights + j * stride;
    for (size_t i = 0; i < columns; ++i) {
      if (int64_t{row[i]} * weights[lead] != int64_t{row[lead]} * weights[i]) return false;
    }
  }
  // Its shortest multiple has no common divisor, so that whole numbers of it make all rows.
  int64_t divisor = 0;
  for (size_t i = 0; i < columns && divisor != 1; ++i) {
    divisor = std::gcd(divisor, int64_t{weights[i]});
  }
  for (size_t i = 0; i < columns; ++i) across_[i] = weights[i] / divisor;
  for (size_t j = 0; j < rows; ++j) {
    down_[j] = weights[j * stride + lead] / across_[lead];
    (down_[j] < 0 ? lowest_ : highest_) += 255 * down_[j];
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
  return static_cast<int32_t>(word | word << 16);
}

/// Two small numbers in one, that of the upper one of two output rows in the lower half.
constexpr int32_t OfBoth(int32_t upper, int32_t lower) { return upper + lower * (1 << 16); }

/// Weights that come into one group, of both output rows.
class GroupRange {
 public:
  /// True when the ranges of sums with more weights, of these sizes, are those of 16 bits.
  bool Takes(int32_t sizes) const {
    constexpr int32_t kLeft = INT16_MAX - UINT16_MAX / 255;  // more of them reach the highest bit
    return ((static_cast<uint32_t>(sizes_ + sizes) + OfBoth(kLeft, kLeft)) & 0x8000'8000) == 0;
  }
  void Add(int32_t sizes, int32_t sums) {
    sizes_ += sizes;
    sums_ += sums;
  }
  /// The group up to `end`.
  RowPairGroup Finish(size_t end) const {
    const auto upper_sum = static_cast<int16_t>(sums_);
    return {static_cast<uint16_t>(end), StartOf(sizes_ & 0xFFFF, upper_sum),
            StartOf(sizes_ >> 16, (sums_ - upper_sum) / (1 << 16))};
  }

 private:
  /// What sums start from so that they fit signed 16 bits.
  static int16_t StartOf(int32_t sizes, int32_t sum) {
    const int32_t lowest = 255 * ((sum - sizes) / 2);
    const int32_t highest = 255 * ((sum + sizes) / 2);
    const bool fits = lowest >= INT16_MIN && highest <= INT16_MAX;
    return static_cast<int16_t>(fits ? 0 : INT16_MIN - lowest);
  }
  int32_t sizes_ = 0;
  int32_t sums_ = 0;
};

constexpr size_t kTapsAtOnce = RowPairs::kTapsAtOnce;
constexpr size_t WholeVectors(size_t count) {
  return (count + kTapsAtOnce - 1) & ~(kTapsAtOnce - 1);
}

/// What groups are formed from, of some columns of a pair of rows.
struct PairColumns {
  static constexpr size_t kMost = 64;
  int32_t sizes[kMost + kTapsAtOnce];  ///< of weights, of both output rows
  int32_t sums[kMost + kTapsAtOnce];
};

/// Makes taps but for their places, and what is in `pairs`, of `count` columns in whole vectors;
/// what these have in excess weighs nothing in `pairs`. Returns how many columns weigh nothing.
int32_t MakeTaps(const int32_t* above, const int32_t* first, const int32_t* second, size_t count,
                 int32_t* __restrict upper, int32_t* __restrict lower,
                 PairColumns& __restrict pairs) {
  const size_t whole = WholeVectors(count);
  int32_t zeros = 0;
  for (size_t i = 0; i < whole; ++i) {
    const int32_t a = above[i], b = first[i], c = second[i];
    upper[i] = BytePair(b, c);
    lower[i] = BytePair(a, b);
    pairs.sizes[i] = OfBoth(std::abs(b) + std::abs(c), std::abs(a) + std::abs(b));
    pairs.sums[i] = OfBoth(b + c, a + b);
    zeros += (a | b | c) == 0;
  }
  for (size_t i = count; i < whole; ++i) {
    zeros -= pairs.sizes[i] == 0;
    pairs.sizes[i] = pairs.sums[i] = 0;
  }
  return zeros;
}

/// Writes the taps of all pairs of rows to `taps` and calls end_group(group) for each group. Pairs
/// lie `pitch` bytes apart, and their columns `step`. For the lower one of two output rows, windows
/// begin a row further down.
template <typename EndGroup>
void DivideIntoGroups(const Weights& weights, size_t pitch, size_t step, const RowPairTaps& taps,
                      const EndGroup& end_group) {
  static constexpr int32_t kNothing[PairColumns::kMost] = {};
  const size_t rows = weights.rows();
  GroupRange range;
  size_t count = 0;
  PairColumns pairs;
  // Column `i` of `pairs` becomes this tap.
  const auto add = [&](size_t i, size_t number) {
    if (!range.Takes(pairs.sizes[i])) {
      end_group(range.Finish(number));
      range = {};
    }
    range.Add(pairs.sizes[i], pairs.sums[i]);
  };
  for (size_t j = 0; j <= rows; j += 2) {
    for (size_t left = 0; left < weights.columns(); left += PairColumns::kMost) {
      const size_t columns = std::min(weights.columns() - left, PairColumns::kMost);
      // Whole vectors are read: after all rows but the last one there are others.
      int32_t copies[3][PairColumns::kMost + kTapsAtOnce];
      const auto row = [&](size_t number, int32_t* copy) -> const int32_t* {
        if (number >= rows) return kNothing;
        const int32_t* const from = weights.Row(number) + left;
        if (number + 1 < rows && weights.stride() >= kTapsAtOnce) return from;
        std::fill_n(std::copy(from, from + columns, copy), kTapsAtOnce, 0);
        return copy;
      };
      const RowPairTaps next = {taps.places + count, taps.upper + count, taps.lower + count};
      const int32_t zeros = MakeTaps(row(j - 1, copies[0]), row(j, copies[1]),
                                     row(j + 1, copies[2]), columns, next.upper, next.lower, pairs);
      const size_t place = j / 2 * pitch + left * step;
      if (zeros == 0) {
        for (size_t i = 0; i < WholeVectors(columns); ++i) {
          next.places[i] = static_cast<uint16_t>(place + i * step);
        }
        for (size_t i = 0; i < columns; i += kTapsAtOnce) {
          const auto sum = [=](const int32_t* of) {
            return of[i] + of[i + 1] + of[i + 2] + of[i + 3];
          };
          const int32_t sizes = sum(pairs.sizes);
          if (range.Takes(sizes)) {
            range.Add(sizes, sum(pairs.sums));
          } else {
            for (size_t k = i; k < std::min(i + kTapsAtOnce, columns); ++k) add(k, count + k);
          }
        }
        count += columns;
        continue;
      }
      size_t kept = 0;
      for (size_t i = 0; i < columns; ++i) {
        if (pairs.sizes[i] == 0) continue;
        add(i, count + kept);
        next.places[kept] = static_cast<uint16_t>(place + i * step);
        next.upper[kept] = next.upper[i];
        next.lower[kept] = next.lower[i];
        ++kept;
      }
      count += kept;
    }
  }
  end_group(range.Finish(count));
}

/// True when the sums of any two weights, one below the other, fit 16 bits.
bool NeighboursFitWords(const Weights& weights) {
  if (weights.Within(1 << 6)) return true;
  for (size_t j = 1; j < weights.rows(); ++j) {
    for (size_t i = 0; i < weights.columns(); ++i) {
      if (!FitsPair(weights.At(j - 1, i), weights.At(j, i))) return false;
    }
  }
  return true;
}

}  // namespace

bool RowPairs::Find(const Weights& weights, int32_t divisor, int32_t offset, bool in_single) {
  constexpr int32_t kMostOffset = 1 << 14;
  is_short_ = FindShortFinish(weights, divisor, offset, finish_);
  const size_t places = weights.columns() * (weights.rows() / 2 + 1);
  // Those of a pair of rows are made before what weighs nothing is left out.
  tap_room_ =
      std::min(places, 2 * weights.Count() + std::min(weights.columns(), PairColumns::kMost)) +
      kTapsAtOnce - 1;
  // Longer rows than those of the largest square leave less of the scratch memory.
  constexpr size_t kMostOfLongRows = 1536;
  const bool is_small = weights.rows() <= kMostTaps && weights.columns() <= kMostTaps;
  return weights.Count() != 0 && weights.Within(1 << 7) &&
         (is_small || places <= kMostOfLongRows) && NeighboursFitWords(weights) &&
         (is_short_ || (in_single && offset >= -kMostOffset && offset <= kMostOffset));
}

RowPairWeights RowPairs::Store(const Weights& weights, size_t pitch, size_t step,
                               const RowPairTaps& taps, RowPairGroup* groups) const {
  RowPairWeights stored = {};
  stored.taps = taps;
  stored.groups = groups;
  stored.is_short = is_short_;
  stored.finish = finish_;
  DivideIntoGroups(weights, pitch, 2 * step, taps, [&](const RowPairGroup& group) {
    groups[stored.group_count++] = is_short_ ? RowPairGroup{group.end, 0, 0} : group;
    stored.tap_count = group.end;
    stored.upper_bias -= group.upper_start;
    stored.lower_bias -= group.lower_start;
  });
  // They widen two by two.
  if (!is_short_ && stored.group_count % 2 != 0) {
    groups[stored.group_count++] = {static_cast<uint16_t>(stored.tap_count), 0, 0};
  }
  return stored;
}

bool Pairs::Find(const Weights& weights, size_t step, int32_t divisor, int32_t offset) {
  taps_ = 0;
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
      if (place == 0) highest = pair.weights = 0;
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
  if (!factors.Find(outer, 3, 3, 3)) return false;
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
