#include "color/pixel_kernels.h"

#include "color/line_walk.h"
#include "image/curve_lookup.h"
#include "image/packed_pixels.h"
#include "simd/interleaved.h"
#include "simd/row_walk.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr uint32_t kColor = 0x00FFFFFFu;

void SetAlpha(uint8_t* row, size_t pixels, uint8_t alpha) {
  const U8 color = BitCast<U8>(Set<U32>(kColor)),
           top = BitCast<U8>(Set<U32>(uint32_t{alpha} << 24));
  ForEachLine(row, 4 * pixels, [=](U8 v) { return (v & color) | top; });
}

inline bool HasColor(const uint8_t* pixel, uint32_t key) {
  uint32_t value;
  __builtin_memcpy(&value, pixel, sizeof(value));
  return (value & kColor) == key;
}
/// The loop of conditional stores becomes one of masked stores where the level has them.
void ClearKeyInRun(uint8_t* row, size_t pixels, uint32_t key) {
  for (size_t i = 0; i < pixels; ++i) {
    if (HasColor(row + 4 * i, key)) __builtin_memcpy(row + 4 * i, &key, sizeof(key));
  }
}
void ClearKey(uint8_t* row, size_t pixels, uint32_t key) {
  // What has no key is skipped a run at a time.
  constexpr size_t kRun = 64;
  for (; pixels >= kRun; pixels -= kRun, row += 4 * kRun) {
    PrefetchInSteps<4 * kRun>(row);
    uint32_t found = 0;
    for (size_t i = 0; i < kRun; ++i) found |= HasColor(row + 4 * i, key) ? ~0u : 0u;
    if (found != 0) ClearKeyInRun(row, kRun, key);
  }
  ClearKeyInRun(row, pixels, key);
}

void SetAlphaButKey(uint8_t* row, size_t pixels, uint8_t alpha, uint32_t key) {
  const U32 top = Set<U32>(uint32_t{alpha} << 24), keys = Set<U32>(key);
  ForEachLine(row, 4 * pixels, [=](U8 v) {
    const U32 color = BitCast<U32>(v) & Set<U32>(kColor);
    return BitCast<U8>(IfThenElse(color == keys, color, color | top));
  });
}

/// Mixes two vectors of bytes in 256ths. The sums of products need the full range of 16 unsigned
/// bits; with the bytes taken as 128 less they fit the signed ones.
class Mixer {
 public:
  explicit Mixer(int weight)
      : weights_(BitCast<U8>(Set<U16>(static_cast<uint16_t>((256 - weight) << 8 | weight)))) {}
  QEL_SIMD_INLINE U8 operator()(U8 color, U8 old) const {
    const U8 bias = Set<U8>(0x80);
    color ^= bias;
    old ^= bias;
    return ReorderDemote2To<U8>(Mixed(InterleaveLower(color, old)),
                                Mixed(InterleaveUpper(color, old))) ^
           bias;
  }

 private:
  QEL_SIMD_INLINE I16 Mixed(U8 pairs) const {
    const I16 sums = SatWidenMulPairwiseAdd(weights_, BitCast<I8>(pairs));
    return BitCast<I16>(ShiftRight<8>(BitCast<U16>(sums)));
  }
  U8 weights_;
};

template <size_t kBytes, bool kMixes, typename Lookup, typename Table>
void TintBlocksBy(const Table (&tables)[3], uint8_t* row, size_t pixels, int weight) {
  const Lookup blue(tables[0]), green(tables[1]), red(tables[2]);
  const Mixer mix(weight);
  ForEachBlock<kBytes, kVectorBytes>(row, row, pixels, [&](uint8_t* to, const uint8_t* from) {
    U8 channels[kBytes];
    LoadInterleaved<kBytes>(from, channels);
    const U8 lightness = AverageRound(Max(Max(channels[0], channels[1]), channels[2]),
                                      Min(Min(channels[0], channels[1]), channels[2]));
    const U8 color[3] = {blue(lightness), green(lightness), red(lightness)};
    for (size_t c = 0; c < 3; ++c) channels[c] = kMixes ? mix(color[c], channels[c]) : color[c];
    StoreInterleaved<kBytes>(channels, to);
  });
}
template <size_t kBytes, bool kMixes>
void TintBlocks(uint8_t* row, size_t pixels, const Tint& tint) {
  if constexpr (kPrefersCurves) {
    using Lookup = CurveLookup<false>;
    if (tint.has_curves) {
      return TintBlocksBy<kBytes, kMixes, Lookup>(tint.curve, row, pixels, tint.weight);
    }
  }
  TintBlocksBy<kBytes, kMixes, TableLookup>(tint.color, row, pixels, tint.weight);
}
/// As many pixels as 32-bit lanes, each in one.
template <size_t kBytes>
QEL_SIMD_INLINE U32 LoadPixels(const uint8_t* from) {
  if constexpr (kBytes == 4) return LoadU<U32>(from);
  return LanesFrom<U32>([&](size_t i) {
    const bool is_last = i + 1 == U32::kLanes;  // nothing is read beyond it
    uint32_t pixel;
    __builtin_memcpy(&pixel, from + 3 * i - is_last, sizeof(pixel));
    return pixel >> (is_last ? 8 : 0);
  });
}
template <size_t kBytes>
QEL_SIMD_INLINE void StorePixels(U32 pixels, uint8_t* to) {
  if constexpr (kBytes == 4) return StoreU(pixels, to);
  const LanesOf<U32> of(pixels);
  for (size_t i = 0; i < U32::kLanes; i += 4) {
    StoreFourOf3(of.at[i], of.at[i + 1], of.at[i + 2], of.at[i + 3], to + 3 * i);
  }
}

/// Where bytes are not looked up by vectors: the new color's share of all channels, 16 bits each,
/// comes from one table.
template <size_t kBytes>
void TintByWords(uint8_t* row, size_t pixels, const Tint& tint) {
  uint64_t shares[256];
  for (size_t i = 0; i < 256; ++i) {
    shares[i] = 0;
    for (size_t c = 0; c < 3; ++c) {
      shares[i] |= static_cast<uint64_t>(tint.color[c][i] * tint.weight) << (16 * c);
    }
  }
  const auto rest = static_cast<uint64_t>(256 - tint.weight);
  const U16 rests = BitCast<U16>(Set<U64>(rest | rest << 16 | rest << 32 | uint64_t{256} << 48));
  const U8 zero = Zero<U8>();
  const auto mixed = [&](U8 old, U64 share) {
    return BitCast<I16>(ShiftRight<8>(BitCast<U16>(old) * rests + BitCast<U16>(share)));
  };
  ForEachBlock<kBytes, U32::kLanes>(row, row, pixels, [&](uint8_t* to, const uint8_t* from) {
    const U32 words = LoadPixels<kBytes>(from);
    const U8 blue = BitCast<U8>(words), green = BitCast<U8>(ShiftRight<8>(words));
    const U8 red = BitCast<U8>(ShiftRight<16>(words));
    const U8 lightness = AverageRound(Max(Max(blue, green), red), Min(Min(blue, green), red));
    const LanesOf<U32> at(BitCast<U32>(lightness) & Set<U32>(0xFF));
    const auto share = [&](size_t first) {
      return LanesFrom<U64>([&](size_t i) { return shares[at.at[first + i]]; });
    };
    StorePixels<kBytes>(
        BitCast<U32>(ReorderDemote2To<U8>(mixed(InterleaveLower(blue, zero), share(0)),
                                          mixed(InterleaveUpper(blue, zero), share(2)))),
        to);
  });
}
template <size_t kBytes>
void TintPixels(uint8_t* row, size_t pixels, const Tint& tint) {
  if constexpr (!kHasTableLookupBytes) {
    if (kHasSaturated16 && pixels >= 1024) return TintByWords<kBytes>(row, pixels, tint);
    for (size_t i = 0; i < pixels; ++i) {
      uint8_t* const pixel = row + kBytes * i;
      const uint8_t lightness = LightnessOf(pixel[0], pixel[1], pixel[2]);
      for (int c = 0; c < 3; ++c) pixel[c] = TintedChannel(tint, c, lightness, pixel[c]);
    }
    return;
  }
  if (tint.weight == 256) return TintBlocks<kBytes, false>(row, pixels, tint);
  TintBlocks<kBytes, true>(row, pixels, tint);
}

}  // namespace

extern const PixelKernels kPixelKernels;
constinit const PixelKernels kPixelKernels = {
    .set_alpha = &SetAlpha,
    .clear_key = &ClearKey,
    .set_alpha_but_key = &SetAlphaButKey,
    .tint3 = &TintPixels<3>,
    .tint4 = &TintPixels<4>,
    .prefers_curves = kPrefersCurves,
};

}  // namespace qel::QEL_LEVEL
