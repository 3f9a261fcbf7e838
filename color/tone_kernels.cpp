#include "color/tone_kernels.h"

#include "color/line_walk.h"
#include "image/brightness.h"
#include "image/channel_sums.h"
#include "image/curve_lookup.h"
#include "simd/convert.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

/// Calls `walk(lookup)` with what is quickest for this map.
template <typename Walk>
void WithToneLookup(const ByteMap& map, const Walk& walk) {
  if (!kPrefersCurves || !map.curve) return WithLookup(map, walk);
  if (map.curve->has_start) return walk(CurveLookup<true>(*map.curve));
  walk(CurveLookup<false>(*map.curve));
}

// Where bytes cannot be shuffled, plain loops are quicker.

void LutBytesSingly(uint8_t* row, size_t count, const uint8_t* table) {
  // Eight are read at once: the next ones need not wait for what was stored.
  ForEachBlock<1, 32>(row, row, count, [=](uint8_t* to, const uint8_t* from) {
    for (size_t k = 0; k < 32; k += 8) {
      uint32_t old[2];
      __builtin_memcpy(old, from + k, sizeof(old));
      for (size_t i = 0; i < 8; ++i) to[k + i] = table[old[i / 4] >> (8 * (i % 4)) & 0xFF];
    }
  });
}
void LutPixelsSingly(uint8_t* row, size_t count, const uint8_t* table) {
  ForEachBlock<4, 8>(row, row, count, [=](uint8_t* to, const uint8_t* from) {
    uint32_t old[8];
    __builtin_memcpy(old, from, sizeof(old));
    for (size_t i = 0; i < 8; ++i) {
      for (size_t c = 0; c < 3; ++c) to[4 * i + c] = table[old[i] >> (8 * c) & 0xFF];
    }
  });
}
void LutBytes(uint8_t* row, size_t count, const ByteMap& map) {
  if (!kHasTableLookupBytes && !map.line) return LutBytesSingly(row, count, map.table);
  WithToneLookup(map, [=](const auto& lookup) {
    ForEachBlock<1, kVectorBytes>(row, row, count, [&](uint8_t* to, const uint8_t* from) {
      StoreU(lookup(LoadU<U8>(from)), to);
    });
  });
}
void LutPixels(uint8_t* row, size_t count, const ByteMap& map) {
  if (!kHasTableLookupBytes && !map.line) return LutPixelsSingly(row, count, map.table);
  WithToneLookup(map, [=](const auto& lookup) {
    const U8 color = BitCast<U8>(Set<U32>(0x00FFFFFFu));
    ForEachBlock<4, kVectorBytes / 4>(row, row, count, [&](uint8_t* to, const uint8_t* from) {
      const U8 old = LoadU<U8>(from);
      StoreU(old ^ ((old ^ lookup(old)) & color), to);
    });
  });
}

void ShiftBytes(uint8_t* row, size_t count, const uint8_t* add, const uint8_t* subtract) {
  constexpr size_t kParts = kShiftPeriod / kVectorBytes;
  U8 adds[kParts], subtracts[kParts];
  for (size_t k = 0; k < kParts; ++k) {
    adds[k] = LoadU<U8>(add + k * kVectorBytes);
    subtracts[k] = LoadU<U8>(subtract + k * kVectorBytes);
  }
  const auto shift = [&](uint8_t* at, size_t k) {
    StoreU(SaturatedSub(SaturatedAdd(LoadU<U8>(at), adds[k]), subtracts[k]), at);
  };
  for (; count >= kShiftPeriod; count -= kShiftPeriod, row += kShiftPeriod) {
    PrefetchInSteps<kShiftPeriod>(row);
    for (size_t k = 0; k < kParts; ++k) shift(row + k * kVectorBytes, k);
  }
  size_t k = 0;
  for (; count >= kVectorBytes; count -= kVectorBytes, row += kVectorBytes) shift(row, k++);
  uint8_t rest[kVectorBytes] = {};
  __builtin_memcpy(rest, row, count);
  shift(rest, k % kParts);
  __builtin_memcpy(row, rest, count);
}

/// The first `kAdded` offsets are added, the others subtracted.
template <size_t kAdded>
void ShiftGraysBy(uint8_t* row, size_t count, const uint8_t (&offsets)[3]) {
  const I16 one = Set<I16>(1);
  const U8 by[3] = {Set<U8>(offsets[0]), Set<U8>(offsets[1]), Set<U8>(offsets[2])};
  ForEachBlock<1, kVectorBytes>(row, row, count, [=](uint8_t* to, const uint8_t* from) {
    const U8 gray = LoadU<U8>(from);
    U8 channels[3];
    for (size_t c = 0; c < 3; ++c) {
      channels[c] = c < kAdded ? SaturatedAdd(gray, by[c]) : SaturatedSub(gray, by[c]);
    }
    ChannelSums sums(channels);
    sums.lower += one;
    sums.upper += one;
    StoreU(Mean(sums), to);
  });
}
void ShiftGrays(uint8_t* row, size_t count, const uint8_t* add, const uint8_t* subtract) {
  // The order of the channels does not matter.
  uint8_t offsets[3];
  size_t added = 0, subtracted = 3;
  for (size_t c = 0; c < 3; ++c) {
    if (subtract[c] == 0) {
      offsets[added++] = add[c];
    } else {
      offsets[--subtracted] = subtract[c];
    }
  }
  constexpr decltype(&ShiftGraysBy<0>) kByAdded[] = {&ShiftGraysBy<0>, &ShiftGraysBy<1>,
                                                     &ShiftGraysBy<2>, &ShiftGraysBy<3>};
  kByAdded[added](row, count, offsets);
}

/// 255 * 2^z for z up to 0, z cut into a whole part and a fraction from -1 to 0. The remainder of
/// the Taylor series is below 2e-7 of 2^fraction.
QEL_SIMD_INLINE F32 Power(F32 z) {
  struct Terms {
    float of[9];
  };
  static constexpr Terms kTaylor = [] {
    Terms terms{};
    double term = 255;
    for (int k = 0; k < 9; ++k) {
      terms.of[k] = static_cast<float>(term);
      term *= 0.693147180559945309 / (k + 1);
    }
    return terms;
  }();
  z = Max(z, Set<F32>(-126.0f));
  const I32 whole = ConvertTo<I32>(z);
  const F32 fraction = z - ConvertTo<F32>(whole);
  F32 power = Set<F32>(kTaylor.of[8]);
  for (int k = 7; k >= 0; --k) power = power * fraction + Set<F32>(kTaylor.of[k]);
  return power * BitCast<F32>(ShiftLeft<23>(whole + Set<I32>(127)));
}

/// The exponent times the logarithm is off by 1.2e-7 of itself, and 2^z |z| is at most 0.54, so its
/// error, that of the series and the roundings together stay below 255 * 1.5e-6 = 4e-4.
void BracketPowers(float exponent, const float* logarithms, uint8_t* least, uint8_t* most) {
  const F32 error = Set<F32>(1.0f / 1024);
  for (size_t i = 0; i < 256; i += kVectorBytes) {
    I32 low[4], high[4];
    for (size_t k = 0; k < 4; ++k) {
      const F32 power = Power(Set<F32>(exponent) * LoadU<F32>(logarithms + i + k * F32::kLanes));
      low[k] = ConvertTo<I32>(power - error);
      high[k] = ConvertTo<I32>(power + error);
    }
    StoreU(OrderedDemote4To8(low[0], low[1], low[2], low[3]), least + i);
    StoreU(OrderedDemote4To8(high[0], high[1], high[2], high[3]), most + i);
  }
}

/// The brightness of every three neighbours, the weights taken apart as 16 * high + low so that 16
/// bits hold the sums: what the low parts carry is all that counts of them. Bytes at even and at
/// odd places are lanes of their own.
void MixBytes(uint8_t* dest, const uint8_t* source, size_t count) {
  const auto weights = [](int first, int second) {
    return BitCast<I8>(Set<U16>(static_cast<uint16_t>(second << 8 | first)));
  };
  const I8 high_ab = weights(kBlueWeight / 16, kGreenWeight / 16);
  const I8 low_ab = weights(kBlueWeight % 16, kGreenWeight % 16);
  const auto mix = [&](U8 ab, U8 c, I8 high_c, I8 low_c) {
    const I16 high = SatWidenMulPairwiseAdd(ab, high_ab) + SatWidenMulPairwiseAdd(c, high_c);
    const I16 low = SatWidenMulPairwiseAdd(ab, low_ab) + SatWidenMulPairwiseAdd(c, low_c);
    return high + ShiftRight<4>(low);
  };
  constexpr int kHigh = kRedWeight / 16, kLow = kRedWeight % 16;
  ForEachBlock<1, 64, 2>(dest, source, count, [&](uint8_t* to, const uint8_t* from) {
    for (size_t i = 0; i < 64; i += kVectorBytes) {
      const U8 a = LoadU<U8>(from + i), b = LoadU<U8>(from + i + 1), c = LoadU<U8>(from + i + 2);
      const I16 even = mix(a, c, weights(kHigh, 0), weights(kLow, 0));
      const I16 odd = mix(b, c, weights(0, kHigh), weights(0, kLow));
      const I16 upper = Set<I16>(static_cast<int16_t>(0xFF00));
      StoreU(BitCast<U8>(ShiftRight<6>(even) | (ShiftLeft<2>(odd) & upper)), to + i);
    }
  });
}

/// The sums of the channels of a block of 3-byte pixels.
QEL_SIMD_INLINE ChannelSums SumsOf(const uint8_t* pixels) {
  U8 channels[3];
  LoadInterleaved<3>(pixels, channels);
  return ChannelSums(channels);
}

void Mean3(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t pixels) {
  ForEachBlock<3, kVectorBytes>(dest, source, pixels, [](uint8_t* to, const uint8_t* from) {
    StoreRepeated3(Mean(SumsOf(from)), to);
  });
}

/// A limit for sums of three bytes that decides as it does for all of them.
int32_t WithinSums(int32_t limit) { return limit < -1 ? -1 : limit > 765 ? 765 : limit; }

void ThresholdBytes(uint8_t* row, size_t count, uint8_t limit, uint8_t low) {
  const U8 limits = Set<U8>(limit), lows = Set<U8>(low);
  ForEachLine(row, count, [=](U8 v) { return VecFromMask(v > limits) | lows; });
}

/// True if all bytes of each pixel in a block of 3-byte pixels are the same.
QEL_SIMD_INLINE bool IsGray3(const uint8_t* pixels) {
  static constexpr auto kHasNext =
      MakePattern<3 * kVectorBytes>([](size_t i) { return i % 3 == 2 ? 0 : 255; });
  static constexpr auto kHasBefore =
      MakePattern<kVectorBytes>([](size_t i) { return (i + 2 * kVectorBytes) % 3 == 0 ? 0 : 255; });
  const auto differs = [=](size_t at, size_t from) {
    return LoadU<U8>(pixels + at) ^ LoadU<U8>(pixels + from);
  };
  constexpr size_t kSecond = kVectorBytes, kLast = 2 * kVectorBytes;
  const U8 all = (differs(0, 1) & LoadU<U8>(kHasNext.bytes)) |
                 (differs(kSecond, kSecond + 1) & LoadU<U8>(kHasNext.bytes + kSecond)) |
                 (differs(kLast, kLast - 1) & LoadU<U8>(kHasBefore.bytes));
  return AllFalse(all != Zero<U8>());
}

void Threshold3(uint8_t* row, size_t pixels, int32_t limit) {
  const int32_t most = WithinSums(limit);
  const I16 limits = Set<I16>(static_cast<int16_t>(most));
  const U8 highest_black = Set<U8>(static_cast<uint8_t>(most / 3));
  const U8 low = Set<U8>(limit < 0 ? 255 : 0);
  ForEachBlock<3, kVectorBytes>(row, row, pixels, [&](uint8_t* to, const uint8_t* from) {
    if (IsGray3(from)) {
      // As GrayScale leaves them: sums are three times each byte.
      for (size_t i = 0; i < 3 * kVectorBytes; i += kVectorBytes) {
        StoreU(VecFromMask(LoadU<U8>(from + i) > highest_black) | low, to + i);
      }
    } else {
      const ChannelSums sums = SumsOf(from);
      const I8 above =
          ReorderDemote2To<I8>(VecFromMask(sums.lower > limits), VecFromMask(sums.upper > limits));
      StoreRepeated3(BitCast<U8>(above), to);
    }
  });
}

/// The low byte of each 4-byte lane in its lower three, 0 in the highest.
QEL_SIMD_INLINE U32 RepeatLowBytes3(U32 v) {
  if constexpr (kHasTableLookupBytes) {
    constexpr auto kFirstOfFour =
        MakePattern<16>([](size_t i) { return i % 4 == 3 ? 128 : i / 4 * 4; });
    return BitCast<U32>(ShuffleBlocks(BitCast<U8>(v), kFirstOfFour));
  } else {
    const U32 low = v & Set<U32>(0xFF);
    return low | ShiftLeft<8>(low) | ShiftLeft<16>(low);
  }
}

/// Writes 4-byte pixels: into the color bytes what `gray` makes of their sum, whose low byte
/// counts.
template <typename Gray>
void ReplaceBySum(uint8_t* dest, const uint8_t* source, size_t pixels, Gray&& gray) {
  const U32 alpha = Set<U32>(0xFF000000u);
  ForEachBlock<4, 16>(dest, source, pixels, [&](uint8_t* to, const uint8_t* from) {
    for (size_t i = 0; i < 64; i += kVectorBytes) {
      const U32 old = LoadU<U32>(from + i);
      const I16 sums = BitCast<I16>(SumsOf3In4(old));
      StoreU((old & alpha) | RepeatLowBytes3(BitCast<U32>(gray(sums))), to + i);
    }
  });
}

void Mean4(uint8_t* dest, const uint8_t* source, size_t pixels) {
  ReplaceBySum(dest, source, pixels, [](I16 sums) { return Third(sums); });
}

void Threshold4(uint8_t* row, size_t pixels, int32_t limit) {
  const I16 limits = Set<I16>(static_cast<int16_t>(WithinSums(limit)));
  ReplaceBySum(row, row, pixels, [&](I16 sums) { return VecFromMask(sums > limits); });
}

void InvertBytes(uint8_t* row, size_t count) {
  ForEachLine(row, count, [](U8 v) { return ~v; });
}
void InvertPixels(uint8_t* row, size_t count) {
  const U8 color = BitCast<U8>(Set<U32>(0x00FFFFFFu));
  ForEachLine(row, 4 * count, [=](U8 v) { return v ^ color; });
}

}  // namespace

extern const ToneKernels kToneKernels;
constinit const ToneKernels kToneKernels = {
    .lut_bytes = &LutBytes,
    .lut_pixels = &LutPixels,
    .prefers_lines = kPrefersLines,
    .prefers_curves = kPrefersCurves,
    .invert_bytes = &InvertBytes,
    .invert_pixels = &InvertPixels,
    .shift_bytes = &ShiftBytes,
    .shift_grays = &ShiftGrays,
    .bracket_powers = &BracketPowers,
    .mix_bytes = &MixBytes,
    .mean3 = &Mean3,
    .mean4 = &Mean4,
    .threshold_bytes = &ThresholdBytes,
    .threshold3 = &Threshold3,
    .threshold4 = &Threshold4,
};

}  // namespace qel::QEL_LEVEL
