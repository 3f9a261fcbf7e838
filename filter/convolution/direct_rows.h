#ifndef QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_
#define QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_

#include "filter/convolution/quotients.h"
#include "simd/interleaved.h"

// Rows weighed by whole kernels: one weight at a time, two, or four.

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

/// Four neighbours at a time: a shuffle lays them side by side for the dot product. Lane i of block
/// p of accumulator a is output 16 * p + 4 * a + i, which is the order that narrowing undoes; its
/// neighbours lie in the same block as itself. Pixels of a byte lie in fours already, from each of
/// four places on: lane i of accumulator a is output 4 * i + a.
template <bool kInSingle, bool kIsByte>
void QuadRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  alignas(64) uint8_t places[kVectorBytes];
  for (size_t i = 0; i < kVectorBytes; ++i) {
    places[i] = static_cast<uint8_t>(i / 4 % 4 + i % 4 * weights.step);
  }
  const U8 order = LoadU<U8>(places);
  const uint8_t* const alpha = AlphaOf(weights, rows);
  for (size_t k = 0; k < count; k += kVectorBytes) {
    I32 sums[4] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 4 * weights.step) {
        if (words[i] == 0) continue;
        const auto weight = SetPairs<I8>(words[i]);
        for (size_t a = 0; a < 4; ++a) {
          const U8 quads =
              kIsByte ? LoadU<U8>(from + a) : TableLookupBytesOr0(LoadU<U8>(from + 4 * a), order);
          sums[a] = SumOfMulQuadAccumulate(quads, weight, sums[a]);
        }
      }
    }
    const U8 bytes = Quotients<kInSingle>(sums, division);
    StoreOutputs(kIsByte ? ShuffleBlocks(bytes, kByChannelOf4) : bytes, alpha, dest, k, count);
  }
}

/// Bytes of even place before those of odd place in each block, and back.
constexpr auto kEvenAndOdd = MakePattern<16>([](size_t i) { return i % 2 * 8 + i / 2; });

/// Outputs `k` on, `kVectors` vectors of them side by side, from two neighbours at a time as
/// products of bytes; their sums stay at 16 bits until they must widen. Pixels of a byte lie in
/// pairs already, from even places on and from odd ones.
template <bool kInSingle, bool kIsByte, size_t kVectors>
QEL_SIMD_INLINE void WeighBytePairs(uint8_t* dest, const uint8_t* const* rows,
                                    const DirectWeights& weights, const Division& division,
                                    size_t k, size_t count) {
  const I16 zero = Zero<I16>();
  I32 sums[kVectors][4] = {};
  Accumulator some[kVectors];
  const auto widen = [&] {
    const auto high = [](I16 v) { return ShiftRight<16>(BitCast<I32>(v)); };
    for (size_t v = 0; v < kVectors; ++v) {
      sums[v][0] += high(InterleaveLower(zero, some[v].lower));
      sums[v][1] += high(InterleaveUpper(zero, some[v].lower));
      sums[v][2] += high(InterleaveLower(zero, some[v].upper));
      sums[v][3] += high(InterleaveUpper(zero, some[v].upper));
      some[v] = {};
    }
  };
  for (size_t j = 0; j < weights.rows; ++j) {
    const uint8_t* from = rows[j] + k;
    const int32_t* const words = weights.words + j * weights.stride;
    const uint8_t* const widens = weights.widens + j * weights.stride;
    for (size_t i = 0; i < weights.words_per_row; ++i, from += 2 * weights.step) {
      if (words[i] == 0) continue;
      if (widens[i] != 0) widen();
      const PairLanes pair = SetPairs(words[i]);
      for (size_t v = 0; v < kVectors; ++v) {
        const uint8_t* const left = from + v * kVectorBytes;
        if constexpr (kIsByte) {
          some[v].AddPairs({LoadU<U8>(left), LoadU<U8>(left + 1)}, pair);
        } else {
          some[v].Add(LoadU<U8>(left), LoadU<U8>(left + weights.step), pair);
        }
      }
    }
  }
  widen();
  for (size_t v = 0; v < kVectors; ++v) {
    const size_t at = k + v * kVectorBytes;
    const U8 bytes = Quotients<kInSingle>(sums[v], division);
    StoreOutputs(kIsByte ? ShuffleBlocks(bytes, kEvenAndOdd) : bytes, AlphaOf(weights, rows), dest,
                 at, count);
  }
}

template <bool kInSingle, bool kIsByte>
void BytePairRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
                  const Division& division, size_t count) {
  // What is done for each pair of weights is done for all of these.
  constexpr size_t kSideBySide = 4, kBytes = kSideBySide * kVectorBytes;
  if (count >= kBytes) {
    for (size_t k = 0; k < count; k += kBytes) {
      // The last ones overlap those before them.
      const size_t at = Smaller(k, count - kBytes);
      WeighBytePairs<kInSingle, kIsByte, kSideBySide>(dest, rows, weights, division, at, count);
    }
    return;
  }
  for (size_t k = 0; k < count; k += kVectorBytes) {
    WeighBytePairs<kInSingle, kIsByte, 1>(dest, rows, weights, division, k, count);
  }
}

void Direct8(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
             const Division& division, size_t count) {
  const auto run = [&]<bool kInSingle, bool kIsByte>() {
    constexpr auto kFunction =
        kHasDotProducts ? &QuadRows<kInSingle, kIsByte> : &BytePairRows<kInSingle, kIsByte>;
    kFunction(dest, rows, weights, division, count);
  };
  if (weights.step == 1) {
    division.in_single ? run.template operator()<true, true>()
                       : run.template operator()<false, true>();
  } else {
    division.in_single ? run.template operator()<true, false>()
                       : run.template operator()<false, false>();
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_DIRECT_ROWS_H_
