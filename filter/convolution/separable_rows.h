#ifndef QEL_FILTER_CONVOLUTION_SEPARABLE_ROWS_H_
#define QEL_FILTER_CONVOLUTION_SEPARABLE_ROWS_H_

#include "filter/convolution/quotients.h"

// Rows weighed by a column and a row of weights.

namespace qel::QEL_LEVEL {
namespace {

/// Products of 16-bit lanes in unsigned arithmetic: lanes would be promoted to signed integers.
inline uint16_t Product(uint16_t weight, uint32_t value) {
  return static_cast<uint16_t>(uint32_t{weight} * value);
}

/// sum[i] = weights[0] * rows[0][first + i] + ... for rows of bytes or of sums; 3 or 5 taps at
/// once.
template <size_t kTaps, typename Value>
void SumFew(uint16_t* __restrict sums, const Value* const* rows, const int16_t* weights,
            uint16_t start, size_t count) {
  const Value* const a = rows[0];
  const Value* const b = rows[1];
  const Value* const c = rows[2];
  const Value* const d = rows[kTaps > 3 ? 3 : 0];
  const Value* const e = rows[kTaps > 4 ? 4 : 0];
  const auto w0 = static_cast<uint16_t>(weights[0]);
  const auto w1 = static_cast<uint16_t>(weights[1]);
  const auto w2 = static_cast<uint16_t>(weights[2]);
  const auto w3 = static_cast<uint16_t>(kTaps > 3 ? weights[3] : 0);
  const auto w4 = static_cast<uint16_t>(kTaps > 4 ? weights[4] : 0);
  for (size_t i = 0; i < count; ++i) {
    auto sum =
        static_cast<uint16_t>(start + Product(w0, a[i]) + Product(w1, b[i]) + Product(w2, c[i]));
    if constexpr (kTaps > 3) {
      sum = static_cast<uint16_t>(sum + Product(w3, d[i]) + Product(w4, e[i]));
    }
    sums[i] = sum;
  }
}

template <typename Value>
void Sum(uint16_t* __restrict sums, const Value* const* rows, const int16_t* weights, size_t taps,
         uint16_t start, size_t count) {
  if (taps == 3) return SumFew<3>(sums, rows, weights, start, count);
  if (taps == 5) return SumFew<5>(sums, rows, weights, start, count);
  for (size_t i = 0; i < count; ++i) sums[i] = start;
  size_t tap = 0;
  for (; tap + 2 <= taps; tap += 2) {
    const Value* const a = rows[tap];
    const Value* const b = rows[tap + 1];
    const auto w0 = static_cast<uint16_t>(weights[tap]);
    const auto w1 = static_cast<uint16_t>(weights[tap + 1]);
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<uint16_t>(sums[i] + Product(w0, a[i]) + Product(w1, b[i]));
    }
  }
  for (; tap < taps; ++tap) {
    const Value* const a = rows[tap];
    const auto w0 = static_cast<uint16_t>(weights[tap]);
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<uint16_t>(sums[i] + Product(w0, a[i]));
    }
  }
}

/// The sums down the columns, a stretch of a row at a time.
class ColumnSums {
 public:
  ColumnSums(const uint8_t* const* rows, const SeparableWeights& weights)
      : rows_(rows), weights_(weights) {}

  /// Computes the sums that `count` outputs from `first` on need.
  const uint16_t* At(size_t first, size_t count) {
    const uint8_t* here[kMostTaps];
    for (size_t j = 0; j < weights_.rows; ++j) here[j] = rows_[j] + first;
    Sum(sums_, here, weights_.down, weights_.rows, weights_.start,
        count + (weights_.columns - 1) * weights_.step);
    return sums_;
  }

 private:
  const uint8_t* const* const rows_;
  const SeparableWeights& weights_;
  // Room for whole vectors, the last of which may lie behind the sums that count.
  alignas(64) uint16_t sums_[kStretch + kMostTaps * kMostStep + kBlock];
};

/// Sums of each vector of bytes in the order of interleaving, low halves first.
void Across16(uint16_t* sums, const uint8_t* row, const SeparableWeights& weights, size_t count) {
  int32_t pairs[(kMostTaps + 1) / 2];
  const size_t pair_count = (weights.columns + 1) / 2;
  for (size_t i = 0; i < pair_count; ++i) {
    const int left = weights.across[2 * i];
    const int right = 2 * i + 1 < weights.columns ? weights.across[2 * i + 1] : 0;
    pairs[i] = (right << 8 | left) * 0x10001;
  }
  const bool odd = weights.columns % 2 != 0;
  ForEachVector(count, [&](size_t k, size_t place) {
    Accumulator sum;
    const uint8_t* from = row + k;
    for (size_t i = 0; i < pair_count; ++i, from += 2 * weights.step) {
      // An odd tap has no partner: reading one would lead beyond the row.
      const uint8_t* const right = odd && i + 1 == pair_count ? from : from + weights.step;
      sum.Add(LoadOnce(from), LoadOnce(right), SetPairs(pairs[i]));
    }
    StoreU(sum.lower, sums + place);
    StoreU(sum.upper, sums + place + I16::kLanes);
  });
}

template <bool kWeighs>
void SumDown(uint8_t* dest, const uint16_t* const* sums, const SeparableWeights& weights,
             const ShortFinish& finish, size_t count) {
  const ShortQuotients<ShortSums::kUnsigned> quotients(finish);
  ForEachVector(count, [&](size_t k, size_t place) {
    Accumulator sum;
    for (size_t j = 0; j < weights.rows; ++j) {
      I16 lower = LoadU<I16>(sums[j] + place);
      I16 upper = LoadU<I16>(sums[j] + place + I16::kLanes);
      if constexpr (kWeighs) {
        const I16 weight = Set<I16>(weights.down[j]);
        lower *= weight;
        upper *= weight;
      }
      sum.lower += lower;
      sum.upper += upper;
    }
    StoreN(quotients(sum), dest + k, count - k);
  });
}

void Down16(uint8_t* dest, const uint16_t* const* sums, const SeparableWeights& weights,
            const ReciprocalDivision& division, size_t count) {
  bool ones = true;
  for (size_t j = 0; j < weights.rows; ++j) ones = ones && weights.down[j] == 1;
  const ShortFinish finish{ShortSums::kUnsigned, division, false, 0};
  const auto function = ones ? &SumDown<false> : &SumDown<true>;
  function(dest, sums, weights, finish, count);
}

/// Two sums side by side at a time. Interleaving within blocks puts the outputs of the first vector
/// of sums into the lower half of each block and those of the second into the upper half.
template <bool kInSingle>
void SeparableRows(uint8_t* dest, const uint8_t* const* rows, const SeparableWeights& weights,
                   const Division& division, size_t count) {
  ColumnSums columns(rows, weights);
  int32_t pairs[(kMostTaps + 1) / 2];
  const size_t pair_count = (weights.columns + 1) / 2;
  const I32 bias = Set<I32>(static_cast<int32_t>(weights.bias));
  for (size_t i = 0; i < pair_count; ++i) {
    const auto left = static_cast<uint16_t>(weights.across[2 * i]);
    const bool odd = 2 * i + 1 == weights.columns;
    const auto right = static_cast<uint16_t>(odd ? 0 : weights.across[2 * i + 1]);
    pairs[i] = static_cast<int32_t>(left | uint32_t{right} << 16);
  }
  for (size_t first = 0; first < count; first += kStretch) {
    const size_t stretch = Smaller(kStretch, count - first);
    const uint16_t* const down = columns.At(first, stretch);
    for (size_t k = 0; k < stretch; k += kVectorBytes) {
      I32 sums[4] = {bias, bias, bias, bias};
      const uint16_t* from = down + k;
      for (size_t i = 0; i < pair_count; ++i, from += 2 * weights.step) {
        const I16 weight = BitCast<I16>(Set<I32>(pairs[i]));
        for (size_t half = 0; half < 2; ++half) {
          const I16 left = LoadU<I16>(from + half * I16::kLanes);
          const I16 right = LoadU<I16>(from + half * I16::kLanes + weights.step);
          sums[2 * half] += WidenMulPairwiseAdd(InterleaveLower(left, right), weight);
          sums[2 * half + 1] += WidenMulPairwiseAdd(InterleaveUpper(left, right), weight);
        }
      }
      const U8 bytes = LowerThenUpperHalves(Quotients<kInSingle>(sums, division));
      StoreN(bytes, dest + first + k, stretch - k);
    }
  }
}

void Separable32(uint8_t* dest, const uint8_t* const* rows, const SeparableWeights& weights,
                 const Division& division, size_t count) {
  const auto function = division.in_single ? &SeparableRows<true> : &SeparableRows<false>;
  function(dest, rows, weights, division, count);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_SEPARABLE_ROWS_H_
