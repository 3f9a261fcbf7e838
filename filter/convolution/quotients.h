#ifndef QEL_FILTER_CONVOLUTION_QUOTIENTS_H_
#define QEL_FILTER_CONVOLUTION_QUOTIENTS_H_

#include "filter/convolution/convolution_kernels.h"
#include "image/numeric.h"
#include "simd/convert.h"
#include "simd/window.h"

// Sums and what becomes of them: divided, offset and clamped. Included by kernel sources.

namespace qel::QEL_LEVEL {
namespace {

/// Outputs that are computed side by side, and those whose sums are kept between two steps.
constexpr size_t kBlock = 64;
constexpr size_t kStretch = 768;
constexpr size_t kMostStep = 4;

inline size_t Smaller(size_t a, size_t b) { return a < b ? a : b; }

inline uint8_t FinishOne(int32_t quotient, int32_t offset) {
  return ClampToByte(WrapAdd(quotient, offset));
}

inline void Finish32(uint8_t* __restrict dest, const uint32_t* __restrict sums,
                     const Division& division, size_t count) {
  const int32_t offset = division.offset;
  if (division.in_single) {
    const float factor = division.single_factor;
    for (size_t i = 0; i < count; ++i) {
      const auto sum = static_cast<float>(static_cast<int32_t>(sums[i]));
      dest[i] = FinishOne(static_cast<int32_t>(sum * factor), offset);
    }
    return;
  }
  const double factor = division.factor;
  for (size_t i = 0; i < count; ++i) {
    // The lowest sum divided by -1 leaves the range and comes back as itself.
    dest[i] = FinishOne(TruncateToInt(static_cast<int32_t>(sums[i]) * factor), offset);
  }
}

inline void Finish16(uint8_t* __restrict dest, const uint16_t* __restrict sums,
                     const ReciprocalDivision& division, size_t count) {
  if (division.multiplier == 0) {
    for (size_t i = 0; i < count; ++i) {
      dest[i] = static_cast<uint8_t>(sums[i] < 255 ? sums[i] : 255);
    }
    return;
  }
  const uint32_t multiplier = division.multiplier;
  const int shift = division.shift;
  for (size_t i = 0; i < count; ++i) {
    const auto high = static_cast<uint16_t>(sums[i] * multiplier >> 16);
    const auto quotient = static_cast<uint16_t>(high >> shift);
    dest[i] = static_cast<uint8_t>(quotient < 255 ? quotient : 255);
  }
}

/// Calls block(k, place) for vectors of bytes from `k` on. The last one overlaps the one before it
/// where there are enough; `place` counts whole vectors all the same.
template <typename Block>
inline void ForEachVector(size_t count, Block&& block) {
  for (size_t k = 0; k < count; k += kVectorBytes) {
    const bool overlaps = count - k < kVectorBytes && count >= kVectorBytes;
    block(overlaps ? count - kVectorBytes : k, k);
  }
}

/// Bytes of sums; every fourth one is that of `alpha`, unless that is null.
template <typename Sum, typename Quotient>
void FinishSums(uint8_t* dest, const Sum* sums, const Quotient& division, const uint8_t* alpha,
                size_t count) {
  if constexpr (sizeof(Sum) == 2) {
    Finish16(dest, sums, division, count);
  } else {
    Finish32(dest, sums, division, count);
  }
  if (alpha == nullptr) return;
  if (count < kVectorBytes) {
    for (size_t i = 3; i < count; i += 4) dest[i] = alpha[i];
    return;
  }
  ForEachVector(count, [=](size_t k, size_t) {
    StoreU(WithFourthBytes(LoadU<U8>(dest + k), LoadU<U8>(alpha + k)), dest + k);
  });
}

/// The halves of blocks of bytes so that InterleaveLower and InterleaveUpper leave neighbours in
/// their order.
QEL_SIMD_INLINE U8 HalvesByTurns(U8 v) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  return BitCast<U8>(Shuffled<U64>(BitCast<U64>(v), BitCast<U64>(v),
                                   [](size_t i) { return i % 2 * kBlocks + i / 2; }));
}

QEL_SIMD_INLINE U8 LoadOnce(const uint8_t* from) { return KeepInRegister(LoadU<U8>(from)); }

/// Divides, offsets and clamps sums. Narrowing saturates twice, which is the clamp.
template <bool kInSingle>
inline U8 Quotients(const I32 (&sums)[4], const Division& division) {
  const I32 offset = Set<I32>(division.offset);
  I32 out[4];
  for (size_t a = 0; a < 4; ++a) {
    out[a] = (kInSingle ? MulTruncated(sums[a], division.single_factor)
                        : MulTruncated(sums[a], division.factor)) +
             offset;
  }
  return ReorderDemote4To8(out[0], out[1], out[2], out[3]);
}

/// Bytes from 16-bit sums.
template <ShortSums kSums>
class ShortQuotients {
 public:
  explicit ShortQuotients(const ShortFinish& finish)
      : divides_(finish.division.multiplier != 0),
        negates_(finish.negate),
        shifts_(finish.division.shift != 0),
        multiplier_(Set<U16>(static_cast<uint16_t>(finish.division.multiplier))),
        shift_(Set<U16>(static_cast<uint16_t>((1 << 16) >> finish.division.shift))),
        sign_(Set<I16>(finish.negate ? -1 : 0)),
        offset_(Set<I16>(static_cast<int16_t>(finish.offset))) {}

  QEL_SIMD_INLINE U8 operator()(const Halves<I16>& sums) const {
    return ReorderDemote2To<U8>(Of(sums.lower), Of(sums.upper));
  }

 private:
  QEL_SIMD_INLINE I16 Of(I16 sums) const {
    if constexpr (kSums == ShortSums::kUnsigned) {
      // Narrowing takes signed lanes.
      return BitCast<I16>(Min(Divide(BitCast<U16>(sums)), Set<U16>(255)));
    } else if constexpr (kSums == ShortSums::kCutAtZero) {
      return BitCast<I16>(Divide(BitCast<U16>(Max(sums, Zero<I16>()))));
    } else {
      I16 quotients = sums;
      if (divides_ || negates_) {
        const I16 signs = ShiftRight<15>(sums) ^ sign_;
        quotients = (BitCast<I16>(Divide(BitCast<U16>(Abs(sums)))) ^ signs) - signs;
      }
      return SaturatedAdd(quotients, offset_);
    }
  }
  QEL_SIMD_INLINE U16 Divide(U16 sizes) const {
    if (divides_) sizes = MulHigh(sizes, multiplier_);
    if (shifts_) sizes = MulHigh(sizes, shift_);
    return sizes;
  }

  const bool divides_;
  const bool negates_;
  const bool shifts_;
  const U16 multiplier_;
  const U16 shift_;  ///< as a factor: shifts by a variable take two instructions
  const I16 sign_;
  const I16 offset_;
};

/// Calls run(Constant<sums>) with the sums that `finish` takes.
template <ShortSums kSums>
struct Constant {};
template <typename Run>
inline void WithSums(ShortSums sums, Run&& run) {
  switch (sums) {
    case ShortSums::kUnsigned:
      return run(Constant<ShortSums::kUnsigned>());
    case ShortSums::kCutAtZero:
      return run(Constant<ShortSums::kCutAtZero>());
    case ShortSums::kSigned:
      return run(Constant<ShortSums::kSigned>());
  }
}

/// Weights of the first and of the second byte of each pair.
struct SplitPairs {
  I16 first, second;
};
/// Pairs of weights, as the level multiplies them.
using PairLanes = std::conditional_t<kHasTableLookupBytes, I8, SplitPairs>;
/// Those given as the bytes of an integer.
template <typename Lanes = PairLanes>
QEL_SIMD_INLINE Lanes SetPairs(int32_t pairs) {
  const I16 words = BitCast<I16>(Set<I32>(pairs));
  if constexpr (std::is_same_v<Lanes, I8>) {
    return BitCast<I8>(words);
  } else {
    return {ShiftRight<8>(ShiftLeft<8>(words)), ShiftRight<8>(words)};
  }
}
/// Sums of pairs of bytes, which fit their lanes.
QEL_SIMD_INLINE I16 SumPairs(U8 pairs, I8 weights) {
  return SatWidenMulPairwiseAdd(pairs, weights);
}
QEL_SIMD_INLINE I16 SumPairs(U8 pairs, const SplitPairs& weights) {
  const U16 words = BitCast<U16>(pairs);
  return BitCast<I16>(words & Set<U16>(0xFF)) * weights.first +
         BitCast<I16>(ShiftRight<8>(words)) * weights.second;
}
/// The same where the second byte of each pair is 0.
QEL_SIMD_INLINE I16 SumFirsts(U8 pairs, I8 weights) { return SumPairs(pairs, weights); }
QEL_SIMD_INLINE I16 SumFirsts(U8 pairs, const SplitPairs& weights) {
  return BitCast<I16>(pairs) * weights.first;
}

/// The weighted sums of one vector of outputs.
struct Accumulator : Halves<I16> {
  Accumulator() : Halves<I16>{Zero<I16>(), Zero<I16>()} {}

  QEL_SIMD_INLINE void Add(U8 a, U8 b, I8 weights) {
    AddPairs({InterleaveLower(a, b), InterleaveUpper(a, b)}, weights);
  }
  QEL_SIMD_INLINE void Add(U8 a, U8 b, const SplitPairs& weights) {
    const U8 zero = Zero<U8>();
    const auto add = [&](U8 v, I16 weight) {
      Add({BitCast<I16>(InterleaveLower(v, zero)), BitCast<I16>(InterleaveUpper(v, zero))}, weight);
    };
    add(a, weights.first);
    add(b, weights.second);
  }
  template <typename Lanes>
  QEL_SIMD_INLINE void AddPairs(const Halves<U8>& pairs, const Lanes& weights) {
    lower += SumPairs(pairs.lower, weights);
    upper += SumPairs(pairs.upper, weights);
  }
  QEL_SIMD_INLINE void AddFirsts(const Halves<U8>& pairs, const PairLanes& weights) {
    lower += SumFirsts(pairs.lower, weights);
    upper += SumFirsts(pairs.upper, weights);
  }
  QEL_SIMD_INLINE void Add(const Halves<I16>& sums) {
    lower += sums.lower;
    upper += sums.upper;
  }
  QEL_SIMD_INLINE void Add(const Halves<I16>& sums, I16 weight) {
    lower += sums.lower * weight;
    upper += sums.upper * weight;
  }
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_CONVOLUTION_QUOTIENTS_H_
