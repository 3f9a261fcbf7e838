#include "color/tone_kernels.h"

#include "image/colour_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_HAS_COLOUR_VECTORS

void LutBytes(uint8_t* row, size_t count, const uint8_t* table) {
  const TableLookup lookup(table);
  ForEachBlock<1, kVectorBytes>(
      row, row, count, [&](uint8_t* to, const uint8_t* from) { Store(to, lookup(Load(from))); });
}
void LutPixels(uint8_t* row, size_t count, const uint8_t* table) {
  static constexpr Pattern<16> kColour = {
      {255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0}};
  const TableLookup lookup(table);
  const Vector colour = FillLanes(kColour.bytes);
  ForEachBlock<4, kVectorBytes / 4>(row, row, count, [&](uint8_t* to, const uint8_t* from) {
    const Vector old = Load(from);
    Store(to, old ^ ((old ^ lookup(old)) & colour));
  });
}

void ShiftBytes(uint8_t* row, size_t count, const uint8_t* add, const uint8_t* subtract) {
  constexpr size_t kParts = kShiftPeriod / kVectorBytes;
  Vector adds[kParts], subtracts[kParts];
  for (size_t k = 0; k < kParts; ++k) {
    adds[k] = Load(add + k * kVectorBytes);
    subtracts[k] = Load(subtract + k * kVectorBytes);
  }
  ForEachBlock<1, kShiftPeriod>(row, row, count, [&](uint8_t* to, const uint8_t* from) {
    for (size_t k = 0; k < kParts; ++k) {
      const Vector raised = AddUnsigned(Load(from + k * kVectorBytes), adds[k]);
      Store(to + k * kVectorBytes, SubtractUnsigned(raised, subtracts[k]));
    }
  });
}

/// (117 a + 601 b + 306 c) >> 10, the factors taken apart as 16 * high + low so that words hold the
/// sums: what the low parts carry is all that counts of them.
void MixBytes(uint8_t* dest, const uint8_t* source, size_t count) {
  const Vector zero = FillBytes(0);
  const Vector high_ab = FillWords(37 << 8 | 7), low_ab = FillWords(9 << 8 | 5);
  const Vector high_c = FillWords(19), low_c = FillWords(2);
  const auto mix = [&](Vector ab, Vector c) {
    const Vector high = AddWords(SumPairs(ab, high_ab), SumPairs(c, high_c));
    const Vector low = AddWords(SumPairs(ab, low_ab), SumPairs(c, low_c));
    return ShiftWords<6>(AddWords(high, ShiftWords<4>(low)));
  };
  ForEachBlock<1, kVectorBytes, 2>(dest, source, count, [&](uint8_t* to, const uint8_t* from) {
    const Vector a = Load(from), b = Load(from + 1), c = Load(from + 2);
    Store(to,
          PackWords(mix(PairLow(a, b), PairLow(c, zero)), mix(PairHigh(a, b), PairHigh(c, zero))));
  });
}

/// The sums of the channels of a block of 3-byte pixels.
ChannelSums SumsOf(const uint8_t* pixels) {
  Vector channels[3];
  LoadPixels<3>(pixels, channels);
  return ChannelSums(channels);
}

void Mean3(uint8_t* dest, const uint8_t* source, size_t pixels) {
  const Vector third = FillWords(kThird);
  ForEachBlock<3, kVectorBytes>(dest, source, pixels, [&](uint8_t* to, const uint8_t* from) {
    const ChannelSums sums = SumsOf(from);
    StoreGreyPixels(to, PackWords(HighProducts(sums.low, third), HighProducts(sums.high, third)));
  });
}

/// A limit for sums of three bytes, within what words compare.
Vector SumLimits(int32_t limit) { return FillWords(limit < -1 ? -1 : limit > 765 ? 765 : limit); }

void Threshold3(uint8_t* row, size_t pixels, int32_t limit) {
  const Vector limits = SumLimits(limit);
  ForEachBlock<3, kVectorBytes>(row, row, pixels, [&](uint8_t* to, const uint8_t* from) {
    const ChannelSums sums = SumsOf(from);
    StoreGreyPixels(to, PackMasks(WordsAbove(sums.low, limits), WordsAbove(sums.high, limits)));
  });
}

/// Writes 4-byte pixels: into the colour bytes what `grey` makes, as a word, of their sum.
template <typename Grey>
void ReplaceBySum(uint8_t* dest, const uint8_t* source, size_t pixels, Grey&& grey) {
  static constexpr Pattern<16> kColourOnes = {{1, 1, 1, 0, 1, 1, 1, 0, 1, 1, 1, 0, 1, 1, 1, 0}};
  static constexpr Pattern<16> kFirstOfFour = {
      {0, 0, 0, 128, 4, 4, 4, 128, 8, 8, 8, 128, 12, 12, 12, 128}};
  const Vector colour_ones = FillLanes(kColourOnes.bytes);
  const Vector first_of_four = FillLanes(kFirstOfFour.bytes);
  const Vector alpha = FillDwords(0xFF000000u);
  ForEachBlock<4, kVectorBytes / 4>(dest, source, pixels, [&](uint8_t* to, const uint8_t* from) {
    const Vector old = Load(from);
    const Vector sums = SumWordPairs(SumPairs(old, colour_ones), FillWords(1));
    Store(to, (old & alpha) | ShuffleLanes(grey(sums), first_of_four));
  });
}

void Mean4(uint8_t* dest, const uint8_t* source, size_t pixels) {
  const Vector third = FillWords(kThird);
  ReplaceBySum(dest, source, pixels, [&](Vector sums) { return HighProducts(sums, third); });
}

void Threshold4(uint8_t* row, size_t pixels, int32_t limit) {
  const Vector limits = SumLimits(limit);
  ReplaceBySum(row, row, pixels, [&](Vector sums) { return WordsAbove(sums, limits); });
}

#else

void LutBytes(uint8_t* row, size_t count, const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) row[i] = table[row[i]];
}
void LutPixels(uint8_t* row, size_t count, const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) row[4 * i + c] = table[row[4 * i + c]];
  }
}

inline uint8_t ShiftByte(uint8_t value, uint8_t add, uint8_t subtract) {
  const int raised = value + add > 255 ? 255 : value + add;
  return static_cast<uint8_t>(raised < subtract ? 0 : raised - subtract);
}
void ShiftBytes(uint8_t* __restrict row, size_t count, const uint8_t* __restrict add,
                const uint8_t* __restrict subtract) {
  for (; count > 0; row += kShiftPeriod) {
    const size_t part = count < kShiftPeriod ? count : kShiftPeriod;
    for (size_t k = 0; k < part; ++k) row[k] = ShiftByte(row[k], add[k], subtract[k]);
    count -= part;
  }
}

void MixBytes(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    dest[i] = static_cast<uint8_t>(
        (117u * source[i] + 601u * source[i + 1] + 306u * source[i + 2]) >> 10);
  }
}

/// The truncated mean; 4-byte pixels keep the source's alpha.
template <size_t kBytes>
void Mean(uint8_t* __restrict dest, const uint8_t* __restrict source, size_t pixels) {
  for (size_t i = 0; i < pixels; ++i) {
    const uint8_t* const s = source + kBytes * i;
    uint8_t* const d = dest + kBytes * i;
    d[0] = d[1] = d[2] = static_cast<uint8_t>((s[0] + s[1] + s[2]) / 3);
    if constexpr (kBytes == 4) d[3] = s[3];
  }
}
constexpr auto Mean3 = Mean<3>;
constexpr auto Mean4 = Mean<4>;

template <size_t kBytes>
void Threshold(uint8_t* row, size_t pixels, int32_t limit) {
  for (size_t i = 0; i < pixels; ++i) {
    uint8_t* const pixel = row + kBytes * i;
    const uint8_t value = pixel[0] + pixel[1] + pixel[2] > limit ? 255 : 0;
    pixel[0] = pixel[1] = pixel[2] = value;
  }
}
constexpr auto Threshold3 = Threshold<3>;
constexpr auto Threshold4 = Threshold<4>;

#endif

void InvertBytes(uint8_t* row, size_t count) {
  for (size_t i = 0; i < count; ++i) row[i] = static_cast<uint8_t>(~row[i]);
}
void InvertPixels(uint8_t* row, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t colour;
    __builtin_memcpy(&colour, row + 4 * i, sizeof(colour));
    colour ^= 0x00FFFFFFu;
    __builtin_memcpy(row + 4 * i, &colour, sizeof(colour));
  }
}

}  // namespace

extern const ToneKernels kToneKernels;
constinit const ToneKernels kToneKernels = {
    .lut_bytes = &LutBytes,
    .lut_pixels = &LutPixels,
    .invert_bytes = &InvertBytes,
    .invert_pixels = &InvertPixels,
    .shift_bytes = &ShiftBytes,
    .mix_bytes = &MixBytes,
    .mean3 = Mean3,
    .mean4 = Mean4,
    .threshold3 = Threshold3,
    .threshold4 = Threshold4,
};

}  // namespace qel::QEL_LEVEL
