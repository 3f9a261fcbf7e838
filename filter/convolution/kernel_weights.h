#ifndef QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_
#define QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_

#include <algorithm>
#include <cstdint>
#include <numeric>

#include "filter/convolution/convolution_kernels.h"
#include "filter/neighbourhood.h"

namespace qel {

// The weights of a convolution, and the forms that they can be brought into.

/// The caller's kernel without the zero rows and columns round it.
class Weights {
 public:
  Weights(const int* kernel, int size) : kernel_(kernel), size_(size) {
    int64_t left = size, right = -1, top = size, bottom = -1;
    for (int64_t j = 0; j < size; ++j) {
      for (int64_t i = 0; i < size; ++i) {
        if (kernel[j * size + i] == 0) continue;
        left = std::min(left, i);
        right = std::max(right, i);
        top = std::min(top, j);
        bottom = j;
      }
    }
    // A kernel of zeros keeps its first weight.
    left_ = right < 0 ? 0 : left;
    top_ = right < 0 ? 0 : top;
    columns_ = right < 0 ? 1 : static_cast<size_t>(right - left + 1);
    rows_ = right < 0 ? 1 : static_cast<size_t>(bottom - top + 1);
  }

  size_t columns() const { return columns_; }
  size_t rows() const { return rows_; }
  /// True when nothing was left out: the last weight is that of the sample that gives the alpha.
  bool Whole() const { return columns_ == stride() && rows_ == stride(); }
  int32_t At(size_t j, size_t i) const { return Row(j)[i]; }
  const int32_t* Row(size_t j) const {
    return kernel_ + (top_ + static_cast<int64_t>(j)) * size_ + left_;
  }
  size_t stride() const { return static_cast<size_t>(size_); }
  /// First column and row of the neighbourhood of pixel 0.
  int64_t FirstColumn() const { return left_ - Reach(size_).before; }
  int64_t FirstRow() const { return top_ - Reach(size_).before; }

  /// Smallest and largest sum over bytes, were sums not to wrap; far beyond 32 bits it stays put.
  void Range(int64_t& lowest, int64_t& highest) const {
    constexpr int64_t kFar = int64_t{1} << 50;
    lowest = highest = 0;
    ForEach([&](int32_t weight) {
      int64_t& bound = weight < 0 ? lowest : highest;
      bound = std::clamp(bound + int64_t{255} * weight, -kFar, kFar);
    });
  }
  bool AllEqual() const {
    bool equal = true;
    ForEach([&](int32_t weight) { equal = equal && weight == At(0, 0); });
    return equal;
  }
  /// True when every weight lies in [-limit, limit - 1].
  bool Within(int32_t limit) const {
    bool within = true;
    ForEach([&](int32_t weight) { within = within && weight >= -limit && weight < limit; });
    return within;
  }

 private:
  template <typename Visitor>
  void ForEach(Visitor&& visit) const {
    for (size_t j = 0; j < rows_; ++j) {
      for (size_t i = 0; i < columns_; ++i) visit(At(j, i));
    }
  }

  const int* kernel_;
  int64_t size_;
  int64_t left_;
  int64_t top_;
  size_t columns_;
  size_t rows_;
};

/// A kernel as a column of weights times a row of weights.
class Factors {
 public:
  /// Looks for them; `weights` has at most kMostTaps rows and columns.
  explicit Factors(const Weights& weights) { found_ = Find(weights); }

  /// False when the kernel is no such product.
  bool Found() const { return found_; }
  /// True when the weights across, and the sums down the columns from a suitable start, fit 16
  /// signed bits.
  bool ShortDown() const {
    return highest_ - lowest_ <= UINT16_MAX &&
           std::all_of(across_, across_ + columns_,
                       [](int64_t value) { return value >= INT16_MIN && value <= INT16_MAX; });
  }
  /// True when the sums across fit 15 bits, of weights that are not negative.
  bool ShortAcross() const {
    return std::accumulate(across_, across_ + columns_, int64_t{0}) <= INT16_MAX / 255 &&
           std::all_of(across_, across_ + columns_, [](int64_t value) { return value >= 0; });
  }
  /// The weights as 16 bits, written to `down` and `across`. Sums that would not fit signed lanes
  /// start as low as those go.
  SplitWeights Store(int16_t* down, int16_t* across, size_t step) const {
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
            .balance = static_cast<uint32_t>(-start * sum)};
  }

 private:
  bool Find(const Weights& weights);

  size_t rows_ = 0;
  size_t columns_ = 0;
  int64_t down_[kMostTaps];
  int64_t across_[kMostTaps];
  int64_t lowest_ = 0;  // of the sums down a column
  int64_t highest_ = 0;
  bool found_;
};

/// False when sums of 16 bits do not hold those of `weights`, or no short division is exact.
bool FindShortFinish(const Weights& weights, int32_t divisor, int32_t offset, ShortFinish& finish);

/// A kernel as pairs of taps, whose sums need 16 bits.
class Pairs {
 public:
  /// Looks for them. `step` are the bytes from a sample to its right neighbour.
  Pairs(const Weights& weights, size_t step, int32_t divisor, int32_t offset) {
    found_ = Split(weights, step) && FindShortFinish(weights, divisor, offset, finish_) &&
             highest_pair_ <= INT16_MAX;
  }

  /// False when there are too many taps, or the sums need more bits.
  bool Found() const { return found_; }
  PairWeights Stored() const { return {pairs_, (taps_ + 1) / 2, finish_}; }

 private:
  bool Split(const Weights& weights, size_t step);

  TapPair pairs_[kMostPairs] = {};
  size_t taps_ = 0;
  int32_t highest_pair_ = 0;
  ShortFinish finish_;
  bool found_;
};

/// Brings a 3 x 3 kernel into the form of `SquareWeights`; false when it has none, or too few
/// weights for that to pay. `step` are the bytes from a sample to its right neighbour.
bool FindSquare(const Weights& weights, size_t step, int32_t divisor, int32_t offset,
                SquareWeights& square);

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_
