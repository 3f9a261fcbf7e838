#ifndef QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_
#define QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_

#include "filter/convolution/quotients.h"

// Rows weighed by whole kernels: one weight at a time, or two.

namespace qel::QEL_LEVEL {
namespace {

void Accumulate(uint32_t* __restrict sums, const uint8_t* __restrict row, uint32_t weight,
                size_t count) {
  for (size_t i = 0; i < count; ++i) sums[i] += weight * row[i];
}

/// The bytes whose fourths are the alpha of outputs; null where these keep what was summed.
inline const uint8_t* AlphaOf(const DirectWeights& weights, const uint8_t* const* rows) {
  return weights.takes_alpha ? rows[weights.rows - 1] + weights.last_column : nullptr;
}
/// Stores outputs `k` on, at most a vector.
QEL_SIMD_INLINE void StoreOutputs(U8 bytes, const uint8_t* alpha, uint8_t* dest, size_t k,
                                  size_t count) {
  if (alpha != nullptr) bytes = WithFourthBytes(bytes, LoadU<U8>(alpha + k));
  StoreN(bytes, dest + k, count - k);
}

void Direct32(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const uint8_t* const alpha = AlphaOf(weights, rows);
  for (size_t first = 0; first < count; first += kBlock) {
    const size_t block = count - first < kBlock ? count - first : kBlock;
    uint32_t sums[kBlock] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      for (size_t i = 0; i < weights.words_per_row; ++i) {
        const auto weight = static_cast<uint32_t>(weights.words[j * weights.stride + i]);
        if (weight == 0) continue;
        const uint8_t* const row = rows[j] + first + i * weights.step;
        for (size_t k = 0; k < kBlock; ++k) sums[k] += weight * row[k];
      }
    }
    FinishSums(dest + first, sums, division, alpha == nullptr ? nullptr : alpha + first, block);
  }
}

/// Two neighbours at a time: their bytes are interleaved, widened and summed in pairs. Interleaving
/// within blocks gives the sums the order that narrowing undoes.
template <bool kInSingle>
void PairRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const U8 zero = Zero<U8>();
  const uint8_t* const alpha = AlphaOf(weights, rows);
  for (size_t k = 0; k < count; k += kVectorBytes) {
    I32 sums[4] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 2 * weights.step) {
        if (words[i] == 0) continue;
        const I16 weight = BitCast<I16>(Set<I32>(words[i]));
        const U8 left = LoadU<U8>(from);
        const U8 right = LoadU<U8>(from + weights.step);
        const U8 lower = InterleaveLower(left, right);
        const U8 upper = InterleaveUpper(left, right);
        const auto weighed = [&](U8 pairs) {
          return WidenMulPairwiseAdd(BitCast<I16>(pairs), weight);
        };
        sums[0] += weighed(InterleaveLower(lower, zero));
        sums[1] += weighed(InterleaveUpper(lower, zero));
        sums[2] += weighed(InterleaveLower(upper, zero));
        sums[3] += weighed(InterleaveUpper(upper, zero));
      }
    }
    StoreOutputs(Quotients<kInSingle>(sums, division), alpha, dest, k, count);
  }
}

void Direct16(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const auto function = division.in_single ? &PairRows<true> : &PairRows<false>;
  function(dest, rows, weights, division, count);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_
