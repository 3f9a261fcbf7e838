#ifndef QEL_FILTER_CONVOLUTION_ROW_PAIR_KERNELS_H_
#define QEL_FILTER_CONVOLUTION_ROW_PAIR_KERNELS_H_

#include "filter/convolution/convolution_kernels.h"

namespace qel {

// Two output rows, one below the other, see their source rows as the same pairs: rows 0 and 1 of
// the upper row's windows, then 2 and 3. Bytes of both rows of a pair lie side by side, so that one
// instruction weighs them.

/// What two output rows take from a pair of rows in one column, one array each.
struct RowPairTaps {
  uint16_t* places;  ///< of the pair in the column of the first window
  // For each of them the weights of both rows of the pair as signed bytes, twice. Sums of two bytes
  // weighed by them fit signed 16 bits.
  int32_t* upper;
  int32_t* lower;
};

/// Taps up to number `end` whose sums fit 16 bits, counted from where they start.
struct RowPairGroup {
  uint16_t end;
  int16_t upper_start;
  int16_t lower_start;
};

/// Most groups of weights whose sums are divided in single precision: the weights of two groups in
/// sequence add up to more than UINT16_MAX / 255 for one of the output rows, and all of both rows
/// to 4 * kSingleRange / 255 at most, which are 128 times that.
inline constexpr size_t kMostRowPairGroups = 256;

/// A kernel as taps of row pairs.
struct RowPairWeights {
  const uint8_t* pairs;  ///< where all places are counted from
  RowPairTaps taps;
  size_t tap_count;
  const RowPairGroup* groups;
  size_t group_count;

  bool is_short;  ///< one group, from 0 on, has all; then `finish`, ...
  ShortFinish finish;
  Division division;   ///< ... else this, in single precision and with an offset of 15 bits, ...
  int32_t upper_bias;  ///< ... after what takes the starts out again
  int32_t lower_bias;

  /// Of pixels of four bytes: where the bytes of the pair lie whose fourth ones are those of the
  /// upper output row and of the lower one, and whether these are the pair's second row.
  struct Alpha {
    uint16_t place;
    bool is_second;
  };
  bool takes_alpha;  ///< else all bytes are sums
  Alpha alphas[2];
};

/// Where two rows of outputs go, and rows that are soon read or written, to be brought near
/// meanwhile. Both may go to the same place, where the upper one remains.
struct RowPairOutputs {
  static constexpr size_t kRowsAhead = 4;
  uint8_t* upper;
  uint8_t* lower;
  const uint8_t* ahead[kRowsAhead];
};

/// Outputs that are computed at once, at most.
inline constexpr size_t kMostRowPairBytes = 128;

/// Row functions of convolutions by pairs of rows.
struct RowPairKernels {
  /// pairs[2 i] = upper[i], pairs[2 i + 1] = lower[i]
  void (*interleave)(uint8_t* pairs, const uint8_t* upper, const uint8_t* lower, size_t count);
  /// Writes `count` bytes of outputs in each of two rows. Of the pairs of rows, what
  /// `kMostRowPairBytes` outputs need may be read where there are fewer.
  void (*weigh)(const RowPairOutputs& outputs, const RowPairWeights& weights, size_t count);
};

QEL_TABLES_PER_LEVEL(RowPairKernels)

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_ROW_PAIR_KERNELS_H_
