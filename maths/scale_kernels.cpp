#include "maths/scale_kernels.h"

#include "image/channel_sums.h"
#include "image/line_lookup.h"
#include "maths/one_by_one.h"
#include "maths/value_vectors.h"
#include "simd/convert.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

/// `ScaleMap` for vectors of integers.
class LinearMap {
 public:
  explicit LinearMap(const ScaleMap& map)
      : factor_(Set<F32>(map.factor)), offset_(Set<F32>(map.offset)) {}
  QEL_SIMD_INLINE F32 operator()(F32 values) const { return values * factor_ + offset_; }

 private:
  F32 factor_, offset_;
};

/// `ScaleMap` for sums of channels, as bytes.
class SumMap {
 public:
  explicit SumMap(const ScaleMap& map) : product_(map.factor), offset_(Set<F32>(map.offset)) {}
  QEL_SIMD_INLINE U8 operator()(const ChannelSums& sums) const {
    return ReorderDemote2To<U8>(Scale(BitCast<U16>(sums.lower)), Scale(BitCast<U16>(sums.upper)));
  }

 private:
  QEL_SIMD_INLINE I16 Scale(U16 sums) const {
    return DemoteFloats(product_.Lower(sums) + offset_, product_.Upper(sums) + offset_);
  }
  Product product_;
  F32 offset_;
};

void MapBytes(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  if (!kHasTableLookupBytes && !map.line) return one_by_one::MapBytes(dest, source, count, map);
  WithLookup(map.OfBytes(), [=](const auto& lookup) {
    WalkBlocks<64>(
        count,
        [&](uint8_t* to, const uint8_t* from) {
          for (size_t i = 0; i < 64; i += kVectorBytes) {
            StoreU(lookup(LoadU<U8>(from + i)), to + i);
          }
        },
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
  WalkBlocks<16>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        for (size_t i = 0; i < 64; i += kVectorBytes) {
          const F32 scaled = scale(ConvertTo<F32>(LoadU<I32>(from + i)));
          const Mask<I32> below = RebindMask<I32>(scaled < Zero<F32>());
          StoreU(IfThenElse(below, Zero<I32>(), ConvertTo<I32>(scaled)), to + i);
        }
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

template <bool k>
constexpr ScaleKernels MakeScaleKernels() {
  return {
      .prefers_lines = k && kPrefersLines,
      .map_bytes = Choose<k>(&MapBytes, &one_by_one::MapBytes),
      .map_to_3 = Choose<k>(&MapTo3, &one_by_one::MapTo3),
      .map_4_to_3 = Choose<k>(&Map4To3, &one_by_one::Map4To3),
      .gray_of_3 = Choose<k>(&GrayOf3, &one_by_one::GrayOf<3>),
      .gray_of_4 = Choose<k>(&GrayOf4, &one_by_one::GrayOf<4>),
      .words_to_1 = Choose<k>(&WordsTo1, one_by_one::WordsTo1),
      .words_to_3 = Choose<k>(&WordsTo3, one_by_one::WordsTo3),
      .words_to_4 = Choose<k>(&WordsTo4, one_by_one::WordsTo4),
      .words_to_words = Choose<k>(&WordsToWords, &one_by_one::WordsToWords),
      .map_bytes_where = Choose<k>(&MapBytesWhere, &one_by_one::MapBytesWhere),
      .scale8 = ChooseShuffled<k>(&Scale8<double>, &one_by_one::Scale8<double>),
      .scale8_single = Choose<k>(&Scale8<float>, &one_by_one::Scale8<float>),
  };
}

}  // namespace

extern const ScaleKernels kScaleKernels;
constinit const ScaleKernels kScaleKernels = MakeScaleKernels<kGoesByVectors>();
// Of these, the lowest level's are asked for.
extern const ScaleKernels kScaleOneByOne;
constinit const ScaleKernels kScaleOneByOne = MakeScaleKernels<(kVectorBytes > 16)>();

}  // namespace qel::QEL_LEVEL
