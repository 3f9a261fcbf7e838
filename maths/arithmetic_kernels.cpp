#include "maths/arithmetic_kernels.h"

#include "maths/one_by_one.h"
#include "maths/value_vectors.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"
#include "simd/table_lookup.h"

namespace qel::QEL_LEVEL {
namespace {

void Add(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  WalkBlocks<64>(
      count,
      [](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          StoreU(SaturatedAdd(LoadU<U8>(from_a + i), LoadU<U8>(from_b + i)), to + i);
        }
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

bool Divides(const SumFactor& scale, float divisor) {
  const U32 most = Set<U32>(255);
  Mask<U32> differs = Zero<U32>() != Zero<U32>();
  for (uint32_t first = 0; first < 512; first += U32::kLanes) {
    // The last one is no sum; it stands for the one before.
    const U32 sums = Min(Iota<U32>(first), Set<U32>(kLargestByteSum));
    const U32 products = ShiftRight<16>(ShiftLeft<6>(sums) * Set<U32>(scale.factor));
    const F32 quotients = ConvertTo<F32>(BitCast<I32>(sums)) / Set<F32>(divisor);
    const U32 expected = BitCast<U32>(ConvertTo<I32>(quotients));
    differs = differs | (Min(ShiftRightSame(products, scale.shift), most) != Min(expected, most));
  }
  return AllFalse(differs);
}

void AddScaled(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
               const SumFactor& scale) {
  const I8 weights = Set<I8>(64);
  const U16 factor = Set<U16>(scale.factor);
  const U16 most = Set<U16>(255);
  const int shift = scale.shift;
  const auto scaled = [=](U8 pairs) {
    const U16 products = MulHigh(BitCast<U16>(SatWidenMulPairwiseAdd(pairs, weights)), factor);
    return BitCast<I16>(Min(ShiftRightSame(products, shift), most));
  };
  WalkBlocks<64>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          const U8 first = LoadU<U8>(from_a + i), second = LoadU<U8>(from_b + i);
          StoreU(ReorderDemote2To<U8>(scaled(InterleaveLower(first, second)),
                                      scaled(InterleaveUpper(first, second))),
                 to + i);
        }
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

void AddByTable(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                const uint8_t* table) {
  const TableLookup below_256(table), from_256(table + 256);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        const U8 first = LoadU<U8>(from_a);
        const U8 sum = first + LoadU<U8>(from_b);
        StoreU(IfThenElse(sum >= first, below_256(sum), from_256(sum)), to);
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

template <bool kAbsolute, size_t kBytes>
uint64_t Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count, uint8_t alpha) {
  const U8 color = BitCast<U8>(Set<U32>(kBytes == 4 ? 0x00FFFFFFu : 0xFFFFFFFFu));
  const U8 opacity = BitCast<U8>(Set<U32>(kBytes == 4 ? uint32_t{alpha} << 24 : 0));
  const U8 one = Set<U8>(1);
  U64 tally = Zero<U64>();
  WalkBlocks<64 / kBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          const U8 first = LoadU<U8>(from_a + i), second = LoadU<U8>(from_b + i);
          U8 d = SaturatedSub(first, second);
          if constexpr (kAbsolute) d |= SaturatedSub(second, first);
          d &= color;
          tally += SumsOf8(Min(SaturatedSub(d, one), one));
          StoreU(d | opacity, to + i);
        }
      },
      To<kBytes>{dest}, From<kBytes>{a}, From<kBytes>{b});
  uint64_t sum = 0;
  for (const uint64_t lane : LanesOf(tally).at) sum += lane;
  return sum;
}

/// `MixWeights` for vectors of bytes.
class Mixer {
 public:
  explicit Mixer(const MixWeights& weights)
      : product_a_(weights.factor_a),
        product_b_(weights.factor_b),
        offset_(Set<F32>(weights.offset)) {}

  QEL_SIMD_INLINE U8 operator()(U8 a, U8 b) const {
    const U8 zero = Zero<U8>();
    return ReorderDemote2To<U8>(Mix(InterleaveLower(a, zero), InterleaveLower(b, zero)),
                                Mix(InterleaveUpper(a, zero), InterleaveUpper(b, zero)));
  }

 private:
  QEL_SIMD_INLINE I16 Mix(U8 wide_a, U8 wide_b) const {
    const U16 a = BitCast<U16>(wide_a), b = BitCast<U16>(wide_b);
    return DemoteFloats((product_a_.Lower(a) + product_b_.Lower(b)) + offset_,
                        (product_a_.Upper(a) + product_b_.Upper(b)) + offset_);
  }
  Product product_a_, product_b_;
  F32 offset_;
};

void Mix(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
         const MixWeights& weights) {
  const Mixer mix(weights);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        StoreU(mix(LoadU<U8>(from_a), LoadU<U8>(from_b)), to);
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

/// Mixes the selected pixels of a block channel by channel.
template <size_t kDest, size_t kA, size_t kB>
void MixColors(uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, Mask<U8> selected,
               const Mixer& mix) {
  U8 first[kA], second[kB], channels[kDest];
  LoadInterleaved<kA>(from_a, first);
  LoadInterleaved<kB>(from_b, second);
  LoadInterleaved<kDest>(to, channels);
  for (size_t c = 0; c < 3; ++c) {
    channels[c] = IfThenElse(selected, mix(first[c], second[c]), channels[c]);
  }
  StoreInterleaved<kDest>(channels, to);
}
template <size_t kDest, size_t kA, size_t kB>
void MixColors(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
               size_t pixels, const MixWeights& weights) {
  const Mixer mix(weights);
  if (mask == nullptr) {
    WalkBlocks<kVectorBytes>(
        pixels,
        [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
          MixColors<kDest, kA, kB>(to, from_a, from_b, FirstN<U8>(kVectorBytes), mix);
        },
        To<kDest>{dest}, From<kA>{a}, From<kB>{b});
    return;
  }
  WalkBlocks<kVectorBytes>(
      pixels,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, const uint8_t* from_mask) {
        MixColors<kDest, kA, kB>(to, from_a, from_b, LoadU<U8>(from_mask) != Zero<U8>(), mix);
      },
      To<kDest>{dest}, From<kA>{a}, From<kB>{b}, From<1>{mask});
}

/// Mixes all bytes of the selected pixels in one part of a block. Nothing is taken apart: the mask
/// alone moves.
template <size_t kBytes, size_t kPart>
void MixPart(uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, U8 mask, const Mixer& mix) {
  constexpr size_t kAt = kPart * kVectorBytes;
  const Mask<U8> selected = Repeated<kBytes, kPart>(mask) != Zero<U8>();
  const U8 mixed = mix(LoadU<U8>(from_a + kAt), LoadU<U8>(from_b + kAt));
  StoreU(IfThenElse(selected, mixed, LoadU<U8>(to + kAt)), to + kAt);
}
template <size_t kBytes>
void MixWhere(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask, size_t pixels,
              const MixWeights& weights) {
  const Mixer mix(weights);
  WalkBlocks<kVectorBytes>(
      pixels,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, const uint8_t* from_mask) {
        const U8 selected = LoadU<U8>(from_mask);
        MixPart<kBytes, 0>(to, from_a, from_b, selected, mix);
        if constexpr (kBytes >= 3) {
          MixPart<kBytes, 1>(to, from_a, from_b, selected, mix);
          MixPart<kBytes, 2>(to, from_a, from_b, selected, mix);
        }
        if constexpr (kBytes == 4) MixPart<kBytes, 3>(to, from_a, from_b, selected, mix);
      },
      To<kBytes>{dest}, From<kBytes>{a}, From<kBytes>{b}, From<1>{mask});
}

template <bool kByVectors, size_t kDest, size_t kA, size_t kB>
constexpr ArithmeticKernels::MixPixels MixColorsRow() {
  return {kDest, kA, kB, 3,
          Choose<kByVectors>(&MixColors<kDest, kA, kB>, &one_by_one::MixColors<kDest, kA, kB>)};
}
template <bool kByVectors, size_t kBytes>
constexpr ArithmeticKernels::MixPixels MixWhereRow() {
  return {kBytes, kBytes, kBytes, kBytes,
          Choose<kByVectors>(&MixWhere<kBytes>, one_by_one::MixWhere<kBytes>)};
}

template <bool k>
constexpr ArithmeticKernels MakeArithmeticKernels() {
  return {
      .add = Choose<k>(&Add, &one_by_one::Add),
      .divides = &Divides,
      .add_scaled = Choose<k>(&AddScaled, &one_by_one::AddScaled),
      .add_by_table = ChooseShuffled<k>(&AddByTable, &one_by_one::AddByTable),
      .subtract_bytes = Choose<k>(&Subtract<false, 1>, &one_by_one::Subtract<false, 1>),
      .difference_bytes = Choose<k>(&Subtract<true, 1>, &one_by_one::Subtract<true, 1>),
      .subtract_pixels = Choose<k>(&Subtract<false, 4>, &one_by_one::Subtract<false, 4>),
      .difference_pixels = Choose<k>(&Subtract<true, 4>, &one_by_one::Subtract<true, 4>),
      .mix = Choose<k>(&Mix, &one_by_one::Mix),
      .mix_pixels = {MixWhereRow<k, 1>(), MixWhereRow<k, 3>(), MixWhereRow<k, 4>(),
                     MixColorsRow<k, 3, 3, 4>(), MixColorsRow<k, 3, 4, 3>(),
                     MixColorsRow<k, 3, 4, 4>(), MixColorsRow<k, 4, 3, 3>(),
                     MixColorsRow<k, 4, 3, 4>(), MixColorsRow<k, 4, 4, 3>(),
                     MixColorsRow<k, 4, 4, 4>()},
  };
}

}  // namespace

extern const ArithmeticKernels kArithmeticKernels;
constinit const ArithmeticKernels kArithmeticKernels = MakeArithmeticKernels<kGoesByVectors>();
// Of these, the lowest level's are asked for.
extern const ArithmeticKernels kArithmeticOneByOne;
constinit const ArithmeticKernels kArithmeticOneByOne =
    MakeArithmeticKernels<(kVectorBytes > 16)>();

}  // namespace qel::QEL_LEVEL
