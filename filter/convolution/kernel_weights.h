#ifndef QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_
#define QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_

#include <algorithm>
#include <cstdint>

#include "filter/convolution/convolution_kernels.h"
#include "filter/convolution/row_pair_kernels.h"
#include "filter/neighbourhood.h"

namespace qel {

// The weights of a convolution, and the forms that they can be brought into.

/// The caller's kernel of `size` x `size` weights without the zero rows and columns round it. A
/// kernel of zeros keeps its first weight. The kernel must live on.
class Weights {
 public:
  Weights(const int* kernel, int size);

  size_t columns() const { return columns_; }
  size_t rows() const { return rows_; }
  /// True when nothing was left out: the last weight is that of the pixel that gives the alpha.
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
  int64_t LowestSum() const { return lowest_sum_; }
  int64_t HighestSum() const { return highest_sum_; }
  /// Weights other than 0.
  size_t Count() const { return count_; }
  bool AllEqual() const;
  /// True when every weight lies in [-limit, limit - 1].
  bool Within(int32_t limit) const { return lowest_ >= -limit && highest_ < limit; }

 private:
  const int* kernel_;
  int size_;
  int64_t left_;
  int64_t top_;
  size_t columns_;
  size_t rows_;
  size_t count_ = 0;
  int32_t lowest_ = 0;  // of the weights and 0
  int32_t highest_ = 0;
  int64_t lowest_sum_ = 0;
  int64_t highest_sum_ = 0;
};

/// The rank-1 factors of a kernel: weight (j, i) = down[j] * across[i].
class Factors {
 public:
  /// Looks for them; false when the kernel has another rank or more than kMostTaps rows or columns.
  bool Find(const Weights& weights) {
    return Find(weights.Row(0), weights.stride(), weights.rows(), weights.columns());
  }
  /// The same for rows that lie `stride` weights apart.
  bool Find(const int32_t* weights, size_t stride, size_t rows, size_t columns);

  /// True when the weights across, and the sums down the columns from a suitable start, fit 16
  /// signed bits.
  bool ShortDown() const;
  /// True when the sums across fit 15 bits, of weights that are not negative.
  bool ShortAcross() const;
  /// The weights as 16 bits, written to `down` and `across`. Sums that would not fit signed lanes
  /// start as low as those go. `step` are the bytes from a pixel to its right neighbour.
  SeparableWeights Store(int16_t* down, int16_t* across, size_t step) const;

 private:
  size_t rows_ = 0;
  size_t columns_ = 0;
  int64_t down_[kMostTaps];
  int64_t across_[kMostTaps];
  int64_t lowest_ = 0;  // of the sums down a column
  int64_t highest_ = 0;
};

/// False when sums of 16 bits do not hold those of `weights`, or no reciprocal division is exact.
bool FindShortFinish(const Weights& weights, int32_t divisor, int32_t offset, ShortFinish& finish);

/// A kernel as pairs of weights, whose sums need 16 bits.
class Pairs {
 public:
  /// Looks for them; false when there are too many weights, or the sums need more bits. `step` are
  /// the bytes from a pixel to its right neighbour.
  bool Find(const Weights& weights, size_t step, int32_t divisor, int32_t offset);
  PairWeights Stored() const { return {pairs_, (taps_ + 1) / 2, finish_}; }

 private:
  TapPair pairs_[kMostPairs];
  size_t taps_ = 0;
  ShortFinish finish_;
};

/// A kernel as taps of pairs of rows.
class RowPairs {
 public:
  /// Looks for them; false when there are too many, or they or their sums are too large. Sums that
  /// need more than 16 bits are to be divided `in_single` precision.
  bool Find(const Weights& weights, int32_t divisor, int32_t offset, bool in_single);
  /// Taps that `Store` needs room for, at most `kMostTapRoom`. Groups are no more than
  /// `kMostRowPairGroups`.
  size_t TapRoom() const { return tap_room_; }
  /// Writes taps and groups for pairs that lie `pitch` bytes apart, 64 KiB in all at most; `step`
  /// are the bytes from a pixel to its right neighbour. Where the pairs are, division and alpha are
  /// left open.
  RowPairWeights Store(const Weights& weights, size_t pitch, size_t step, const RowPairTaps& taps,
                       RowPairGroup* groups) const;

  /// Taps are made this many at a time, as a vector has lanes.
  static constexpr size_t kTapsAtOnce = 4;
  static constexpr size_t kMostTapRoom = kMostTaps * (kMostTaps / 2 + 1) + kTapsAtOnce - 1;

 private:
  size_t tap_room_ = 0;
  bool is_short_ = false;
  ShortFinish finish_;
};

/// Brings a 3 x 3 kernel into the form of `Square3Weights`; false when it has none. `step` are the
/// bytes from a pixel to its right neighbour.
bool FindSquare3(const Weights& weights, size_t step, int32_t divisor, int32_t offset,
                 Square3Weights& square);

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_KERNEL_WEIGHTS_H_
