#include "maths/arithmetic_kernels.h"

#include "image/line_lookup.h"
#include "image/widen_rows.h"
#include "maths/one_by_one.h"
#include "maths/value_vectors.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

void Add(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        StoreU(SaturatedAdd(LoadU<U8>(from_a), LoadU<U8>(from_b)), to);
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
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        const U8 first = LoadU<U8>(from_a), second = LoadU<U8>(from_b);
        StoreU(ReorderDemote2To<U8>(scaled(InterleaveLower(first, second)),
                                    scaled(InterleaveUpper(first, second))),
               to);
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
  WalkBlocks<kVectorBytes / kBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        const U8 first = LoadU<U8>(from_a);
        const U8 second = LoadU<U8>(from_b);
        U8 d = SaturatedSub(first, second);
        if constexpr (kAbsolute) d |= SaturatedSub(second, first);
        d &= color;
        tally += SumsOf8(Min(SaturatedSub(d, one), one));
        StoreU(d | opacity, to);
      },
      To<kBytes>{dest}, From<kBytes>{a}, From<kBytes>{b});
  uint64_t sum = 0;
  for (const uint64_t lane : LanesOf(tally).at) sum += lane;
  return sum;
}

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

/// Mixes all bytes of the selected pixels in one part of a block.
template <size_t kBytes, size_t kPart>
void MixPart(uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, U8 mask, const Mixer& mix) {
  U8 repeated;
  if constexpr (!kHasTableLookupBytes) {
    repeated = Shuffled<U8>(mask, mask, [](size_t i) { return (kPart * 16 + i) / kBytes; });
  } else if constexpr (kBytes == 3 && !kHasByteLookup) {
    // Nothing is taken apart: the mask alone moves between blocks.
    constexpr size_t kAt = kPart * kVectorBytes;
    const Mask<U8> chosen = Repeated3<kPart>(mask) != Zero<U8>();
    const U8 colors = mix(LoadU<U8>(from_a + kAt), LoadU<U8>(from_b + kAt));
    StoreU(IfThenElse(chosen, colors, LoadU<U8>(to + kAt)), to + kAt);
    return;
  } else {
    repeated = Repeat<kBytes, kPart>(mask);
  }
  const Mask<U8> selected = repeated != Zero<U8>();
  const U8 mixed = mix(LoadPart<kBytes, kPart>(from_a), LoadPart<kBytes, kPart>(from_b));
  StorePart<kBytes, kPart>(IfThenElse(selected, mixed, LoadPart<kBytes, kPart>(to)), to);
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

void MapBytes(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  if (!kHasTableLookupBytes && !map.line) return one_by_one::MapBytes(dest, source, count, map);
  WithLookup(map.OfBytes(), [=](const auto& lookup) {
    WalkBlocks<kVectorBytes>(
        count, [&](uint8_t* to, const uint8_t* from) { StoreU(lookup(LoadU<U8>(from)), to); },
        To<1>{dest}, From<1>{source});
  });
}
void MapTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  WithLookup(map.OfBytes(), [=](const auto& lookup) {
    WalkBlocks<kVectorBytes>(
        count,
        [&](uint8_t* to, const uint8_t* from) { StoreRepeated3(lookup(LoadU<U8>(from)), to); },
        To<3>{dest}, From<1>{source});
  });
}
void Map4To3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  WithLookup(map.OfBytes(), [=](const auto& lookup) {
    WalkBlocks<kVectorBytes>(
        count,
        [&](uint8_t* to, const uint8_t* from) {
          U8 channels[4];
          LoadInterleaved<4>(from, channels);
          for (size_t c = 0; c < 3; ++c) channels[c] = lookup(channels[c]);
          StoreInterleaved<3>(channels, to);
        },
        To<3>{dest}, From<4>{source});
  });
}
void MapBytesWhere(uint8_t* dest, const uint8_t* source, const uint8_t* mask, size_t count,
                   const ScaleMap& map) {
  if (!kHasTableLookupBytes && !map.line) {
    return one_by_one::MapBytesWhere(dest, source, mask, count, map);
  }
  WithLookup(map.OfBytes(), [=](const auto& lookup) {
    WalkBlocks<kVectorBytes>(
        count,
        [&](uint8_t* to, const uint8_t* from, const uint8_t* from_mask) {
          const Mask<U8> selected = LoadU<U8>(from_mask) != Zero<U8>();
          StoreU(IfThenElse(selected, lookup(LoadU<U8>(from)), LoadU<U8>(to)), to);
        },
        To<1>{dest}, From<1>{source}, From<1>{mask});
  });
}

void GrayOf3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const SumMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        U8 channels[3];
        LoadInterleaved<3>(from, channels);
        StoreU(scale(ChannelSums(channels)), to);
      },
      To<1>{dest}, From<3>{source});
}
void GrayOf4(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        const auto scaled = [&](size_t k) {
          const I32 sums = SumsOf3In4(LoadU<U32>(from + k * kVectorBytes));
          return ConvertTo<I32>(scale(ConvertTo<F32>(sums)));
        };
        StoreU(OrderedDemote4To8(scaled(0), scaled(1), scaled(2), scaled(3)), to);
      },
      To<1>{dest}, From<4>{source});
}

/// The bytes of a block of 32-bit integers.
template <bool kFits>
QEL_SIMD_INLINE U8 BytesOfIntegers(const uint8_t* integers, const LinearMap& scale) {
  const auto bytes = [&](size_t k) {
    const F32 scaled = scale(ConvertTo<F32>(LoadU<I32>(integers + k * kVectorBytes)));
    if (kFits) return ConvertTo<I32>(scaled);  // clamped when they become bytes
    // The operands stand so that what is not a number gives 0.
    return ConvertTo<I32>(Min(Max(scaled, Zero<F32>()), Set<F32>(255.0f)));
  };
  return OrderedDemote4To8(bytes(0), bytes(1), bytes(2), bytes(3));
}
/// Calls `walk(bytes_of)` with a function that makes the bytes of a block of 32-bit integers.
template <typename Walk>
void WithBytesOfIntegers(const ScaleMap& map, const Walk& walk) {
  const LinearMap scale(map);
  if (map.words_fit) {
    return walk([=](const uint8_t* from) { return BytesOfIntegers<true>(from, scale); });
  }
  walk([=](const uint8_t* from) { return BytesOfIntegers<false>(from, scale); });
}
void WordsTo1(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  WithBytesOfIntegers(map, [=](const auto& bytes_of) {
    WalkBlocks<kVectorBytes>(
        count, [&](uint8_t* to, const uint8_t* from) { StoreU(bytes_of(from), to); }, To<1>{dest},
        From<4>{source});
  });
}
void WordsTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  WithBytesOfIntegers(map, [=](const auto& bytes_of) {
    WalkBlocks<kVectorBytes>(
        count, [&](uint8_t* to, const uint8_t* from) { StoreRepeated3(bytes_of(from), to); },
        To<3>{dest}, From<4>{source});
  });
}
void WordsTo4(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        U8 channels[4];
        LoadInterleaved<4>(to, channels);
        channels[0] = channels[1] = channels[2] = BytesOfIntegers<false>(from, scale);
        StoreInterleaved<4>(channels, to);
      },
      To<4>{dest}, From<4>{source});
}
void WordsToWords(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes / 4>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        const F32 scaled = scale(ConvertTo<F32>(LoadU<I32>(from)));
        const Mask<I32> below = RebindMask<I32>(scaled < Zero<F32>());
        StoreU(IfThenElse(below, Zero<I32>(), ConvertTo<I32>(scaled)), to);
      },
      To<4>{dest}, From<4>{source});
}

template <typename Factor>
void Scale8(uint8_t* dest, const uint8_t* source, size_t count, Factor factor, int32_t offset) {
  const I32 offsets = Set<I32>(offset);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        const auto scaled = [&](size_t k) {
          return MulTruncated(LoadU<I32>(from + k * kVectorBytes), factor) + offsets;
        };
        StoreU(OrderedDemote4To8(scaled(0), scaled(1), scaled(2), scaled(3)), to);
      },
      To<1>{dest}, From<4>{source});
}

constexpr bool kGoesByVectors = kVectorBytes > 16 || kHasSaturatedWords;

template <bool kByVectors, typename Row>
constexpr Row Choose(Row vectors, Row singly) {
  return kByVectors ? vectors : singly;
}
/// For what shuffles bytes or looks them up.
template <bool kByVectors, typename Row>
constexpr Row ChooseShuffled(Row vectors, Row singly) {
  return kByVectors && kHasTableLookupBytes ? vectors : singly;
}
template <bool kByVectors, size_t kDest, size_t kA, size_t kB>
constexpr ArithmeticKernels::MixPixels MixColorsRow() {
  return {
      kDest, kA, kB, 3,
      ChooseShuffled<kByVectors>(&MixColors<kDest, kA, kB>, &one_by_one::MixColors<kDest, kA, kB>)};
}
template <bool kByVectors, size_t kBytes>
constexpr ArithmeticKernels::MixPixels MixWhereRow() {
  return {kBytes, kBytes, kBytes, kBytes,
          Choose<kByVectors>(&MixWhere<kBytes>, one_by_one::MixWhere<kBytes>)};
}

template <bool k>
constexpr ArithmeticKernels MakeKernels() {
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
      .prefers_lines = k && kPrefersLines,
      .map_bytes = Choose<k>(&MapBytes, &one_by_one::MapBytes),
      .map_to_3 = ChooseShuffled<k>(&MapTo3, &one_by_one::MapTo3),
      .map_4_to_3 = ChooseShuffled<k>(&Map4To3, &one_by_one::Map4To3),
      .gray_of_3 = ChooseShuffled<k>(&GrayOf3, &one_by_one::GrayOf<3>),
      .gray_of_4 = Choose<k>(&GrayOf4, &one_by_one::GrayOf<4>),
      .words_to_1 = Choose<k>(&WordsTo1, one_by_one::WordsTo1),
      .words_to_3 = ChooseShuffled<k>(&WordsTo3, one_by_one::WordsTo3),
      .words_to_4 = ChooseShuffled<k>(&WordsTo4, one_by_one::WordsTo4),
      .words_to_words = Choose<k>(&WordsToWords, &one_by_one::WordsToWords),
      .map_bytes_where = Choose<k>(&MapBytesWhere, &one_by_one::MapBytesWhere),
      .scale8 = ChooseShuffled<k>(&Scale8<double>, &one_by_one::Scale8<double>),
      .scale8_single = Choose<k>(&Scale8<float>, &one_by_one::Scale8<float>),
  };
}

}  // namespace

extern const ArithmeticKernels kArithmeticKernels;
constinit const ArithmeticKernels kArithmeticKernels = MakeKernels<kGoesByVectors>();
// Of these, the lowest level's are asked for.
extern const ArithmeticKernels kOneByOneKernels;
constinit const ArithmeticKernels kOneByOneKernels = MakeKernels<(kVectorBytes > 16)>();

}  // namespace qel::QEL_LEVEL
