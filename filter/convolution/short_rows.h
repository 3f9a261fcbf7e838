#ifndef QEL_FILTER_CONVOLUTION_SHORT_ROWS_H_
#define QEL_FILTER_CONVOLUTION_SHORT_ROWS_H_

#include "filter/convolution/quotients.h"
#include "simd/prefetch.h"

// Rows weighed by pairs of bytes: few weights, and squares of 3 x 3.

namespace qel::QEL_LEVEL {
namespace {

/// The pairs of one row. `kPairs` is their number, or 0 where it is only known at run time.
template <ShortSums kSums, size_t kPairs>
void WeighPairs(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights,
                size_t count) {
  const uint8_t* left[kMostPairs];
  const uint8_t* right[kMostPairs];
  PairLanes words[kMostPairs];
  const size_t pairs = kPairs != 0 ? kPairs : weights.count;
  for (size_t i = 0; i < pairs; ++i) {
    const TapPair& pair = weights.pairs[i];
    left[i] = rows[pair.rows[0]] + pair.offsets[0];
    right[i] = rows[pair.rows[1]] + pair.offsets[1];
    words[i] = SetPairs(pair.weights);
  }
  const uint8_t* const alphas =
      weights.alpha != nullptr ? rows[weights.alpha->row] + weights.alpha->offset : nullptr;
  const ShortQuotients<kSums> quotients(weights.finish);
  StoreVectors(dest, count, [&](size_t k) {
    PrefetchAhead<kVectorBytes>(right[pairs - 1] + k);
    Accumulator sums;
    for (size_t i = 0; i < pairs; ++i) {
      sums.Add(LoadOnce(left[i] + k), LoadOnce(right[i] + k), words[i]);
    }
    const U8 bytes = quotients(sums);
    return alphas != nullptr ? WithFourthBytes(bytes, LoadU<U8>(alphas + k)) : bytes;
  });
}

void Sparse(uint8_t* dest, const uint8_t* const* rows, const PairWeights& weights, size_t count) {
  WithSums(weights.finish.sums, [&]<ShortSums kSums>(Constant<kSums>) {
    // Up to 3 x 3 weights stay in registers.
    constexpr decltype(ConvolutionKernels::sparse) kFunctions[] = {
        &WeighPairs<kSums, 0>, &WeighPairs<kSums, 1>, &WeighPairs<kSums, 2>,
        &WeighPairs<kSums, 3>, &WeighPairs<kSums, 4>, &WeighPairs<kSums, 5>};
    kFunctions[weights.count <= 5 ? weights.count : 0](dest, rows, weights, count);
  });
}

/// The bytes of a column, interleaved for sums of pairs.
struct Interleaved {
  QEL_SIMD_INLINE Interleaved(U8 a, U8 b, U8 c)
      : first_two{InterleaveLower(a, b), InterleaveUpper(a, b)},
        third{InterleaveLower(c, Zero<U8>()), InterleaveUpper(c, Zero<U8>())} {}
  Halves<U8> first_two;  ///< rows
  Halves<U8> third;
};
template <size_t kBytes>
QEL_SIMD_INLINE Interleaved ShiftedWindow(Interleaved v, const Interleaved& next) {
  v.first_two = ShiftedWindow<kBytes>(v.first_two, next.first_two);
  v.third = ShiftedWindow<kBytes>(v.third, next.third);
  return v;
}

/// The weights of a column in vectors.
struct ColumnVectors {
  explicit ColumnVectors(const Square3Weights::Column& column)
      : first_two(SetPairs(column.upper)), third(SetPairs(column.lower)) {}
  PairLanes first_two;
  PairLanes third;
};
QEL_SIMD_INLINE void AddColumn(Accumulator& sums, const Interleaved& column,
                               const ColumnVectors& weights) {
  sums.AddPairs(column.first_two, weights.first_two);
  sums.AddFirsts(column.third, weights.third);
}

template <ShortSums kSums, size_t kStep>
class Square3Row {
 public:
  Square3Row(const uint8_t* const* rows, const Square3Weights& weights)
      : rows_(rows), weights_(weights), quotients_(weights.finish) {}

  /// Sums down each column once, then across.
  void WeighSeparable(uint8_t* dest, size_t count) const {
    const ColumnVectors down(weights_.columns[0]);
    const PairLanes center_pair = SetPairs(weights_.center);
    const I16 across[] = {Set<I16>(static_cast<int16_t>(weights_.across[0])),
                          Set<I16>(static_cast<int16_t>(weights_.across[1])),
                          Set<I16>(static_cast<int16_t>(weights_.across[2]))};
    const bool has_center = weights_.center != 0;
    const bool is_mirrored = weights_.across[0] == 1 && weights_.across[2] == 1;
    StoreWindows<3, kStep>(
        dest, count,
        [&](size_t k) -> Halves<I16> {
          Accumulator sums;
          AddColumn(sums, At(k), down);
          return sums;
        },
        [&](size_t k, const Halves<I16>& left, const Halves<I16>& center,
            const Halves<I16>& right) {
          Accumulator sums;
          sums.Add(center, across[1]);
          if (is_mirrored) {
            sums.Add(left);
            sums.Add(right);
          } else {
            sums.Add(left, across[0]);
            sums.Add(right, across[2]);
          }
          if (has_center) sums.Add(LoadOnce(rows_[1] + k + kStep), Zero<U8>(), center_pair);
          return Finish(k, sums);
        });
  }

  /// Columns of different weights.
  void WeighColumns(uint8_t* dest, size_t count) const {
    const ColumnVectors left(weights_.columns[0]), center(weights_.columns[1]),
        right(weights_.columns[2]);
    StoreWindows<3, kStep>(
        dest, count, [&](size_t k) { return At(k); },
        [&](size_t k, const Interleaved& a, const Interleaved& b, const Interleaved& c) {
          Accumulator sums;
          AddColumn(sums, a, left);
          AddColumn(sums, b, center);
          AddColumn(sums, c, right);
          return Finish(k, sums);
        });
  }

 private:
  QEL_SIMD_INLINE Interleaved At(size_t k) const {
    PrefetchAhead<kVectorBytes>(rows_[2] + k);
    return {LoadOnce(rows_[0] + k), LoadOnce(rows_[1] + k), LoadOnce(rows_[2] + k)};
  }
  QEL_SIMD_INLINE U8 Finish(size_t k, const Halves<I16>& sums) const {
    const U8 bytes = quotients_(sums);
    return kStep == 4 ? WithFourthBytes(bytes, LoadU<U8>(rows_[2] + k + 2 * kStep)) : bytes;
  }

  const uint8_t* const* const rows_;
  const Square3Weights& weights_;
  const ShortQuotients<kSums> quotients_;
};

template <ShortSums kSums, size_t kStep>
void WeighSquare3(uint8_t* dest, const uint8_t* const* rows, const Square3Weights& weights,
                  size_t count) {
  // Copies, so that the stores cannot change them.
  const uint8_t* const here[] = {rows[0], rows[1], rows[2]};
  const Square3Row<kSums, kStep> row(here, weights);
  if (weights.is_separable) {
    row.WeighSeparable(dest, count);
  } else {
    row.WeighColumns(dest, count);
  }
}

void Square3(uint8_t* dest, const uint8_t* const* rows, const Square3Weights& weights,
             size_t count) {
  WithSums(weights.finish.sums, [&]<ShortSums kSums>(Constant<kSums>) {
    const auto function = weights.step == 4   ? &WeighSquare3<kSums, 4>
                          : weights.step == 3 ? &WeighSquare3<kSums, 3>
                                              : &WeighSquare3<kSums, 1>;
    function(dest, rows, weights, count);
  });
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_SHORT_ROWS_H_
