#include "color/pixel_kernels.h"

#include "image/colour_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

/// Replaces each 4-byte pixel by what `change` makes of it.
template <typename Change>
void ForEachPixel(uint8_t* row, size_t pixels, Change&& change) {
  for (size_t i = 0; i < pixels; ++i) {
    uint32_t pixel;
    __builtin_memcpy(&pixel, row + 4 * i, sizeof(pixel));
    pixel = change(pixel);
    __builtin_memcpy(row + 4 * i, &pixel, sizeof(pixel));
  }
}
constexpr uint32_t kColour = 0x00FFFFFFu;

void SetAlpha(uint8_t* row, size_t pixels, uint8_t alpha) {
  const uint32_t top = uint32_t{alpha} << 24;
  ForEachPixel(row, pixels, [=](uint32_t pixel) { return (pixel & kColour) | top; });
}

inline bool HasColour(const uint8_t* pixel, uint32_t key) {
  uint32_t value;
  __builtin_memcpy(&value, pixel, sizeof(value));
  return (value & kColour) == key;
}
/// The loop of conditional stores becomes one of masked stores where the level has them.
void ClearKeyInRun(uint8_t* row, size_t pixels, uint32_t key) {
  for (size_t i = 0; i < pixels; ++i) {
    if (HasColour(row + 4 * i, key)) __builtin_memcpy(row + 4 * i, &key, sizeof(key));
  }
}
void ClearKey(uint8_t* row, size_t pixels, uint32_t key) {
#ifdef QEL_LEVEL_sse2
  // Without masked stores, what has no key is skipped a run at a time.
  constexpr size_t kRun = 64;
  for (; pixels >= kRun; pixels -= kRun, row += 4 * kRun) {
    uint32_t found = 0;
    for (size_t i = 0; i < kRun; ++i) found |= HasColour(row + 4 * i, key) ? ~0u : 0u;
    if (found != 0) ClearKeyInRun(row, kRun, key);
  }
#endif
  ClearKeyInRun(row, pixels, key);
}

void SetAlphaButKey(uint8_t* row, size_t pixels, uint8_t alpha, uint32_t key) {
  const uint32_t top = uint32_t{alpha} << 24;
  ForEachPixel(row, pixels, [=](uint32_t pixel) {
    const uint32_t colour = pixel & kColour;
    return colour == key ? colour : colour | top;
  });
}

#ifdef QEL_HAS_COLOUR_VECTORS

/// Mixes two vectors of bytes in 256ths. The sums of products need the full unsigned range of a
/// word; with the bytes taken as 128 less they fit the signed one.
class Mixer {
 public:
  explicit Mixer(int weight) : weights_(FillWords((256 - weight) << 8 | weight)) {}
  Vector operator()(Vector colour, Vector old) const {
    const Vector bias = FillBytes(0x80);
    colour ^= bias;
    old ^= bias;
    const Vector low = SumPairs(weights_, PairLow(colour, old));
    const Vector high = SumPairs(weights_, PairHigh(colour, old));
    return PackWords(ShiftWords<8>(low), ShiftWords<8>(high)) ^ bias;
  }

 private:
  Vector weights_;
};

template <size_t kBytes, bool kMixes>
void TintBlocks(uint8_t* row, size_t pixels, const Tint& tint) {
  const TableLookup blue(tint.colour[0]);
  const TableLookup green(tint.colour[1]);
  const TableLookup red(tint.colour[2]);
  const Mixer mix(tint.weight);
  ForEachBlock<kBytes, kVectorBytes>(row, row, pixels, [&](uint8_t* to, const uint8_t* from) {
    Vector channels[kBytes];
    LoadPixels<kBytes>(from, channels);
    const Vector lightness = Average(Max(Max(channels[0], channels[1]), channels[2]),
                                     Min(Min(channels[0], channels[1]), channels[2]));
    const Vector colour[3] = {blue(lightness), green(lightness), red(lightness)};
    for (size_t c = 0; c < 3; ++c) channels[c] = kMixes ? mix(colour[c], channels[c]) : colour[c];
    StorePixels<kBytes>(to, channels);
  });
}
template <size_t kBytes>
void TintPixels(uint8_t* row, size_t pixels, const Tint& tint) {
  if (tint.weight == 256) return TintBlocks<kBytes, false>(row, pixels, tint);
  TintBlocks<kBytes, true>(row, pixels, tint);
}

#else

template <size_t kBytes>
void TintPixels(uint8_t* row, size_t pixels, const Tint& tint) {
  for (size_t i = 0; i < pixels; ++i) {
    uint8_t* const pixel = row + kBytes * i;
    const uint8_t lightness = LightnessOf(pixel[0], pixel[1], pixel[2]);
    for (int c = 0; c < 3; ++c) pixel[c] = TintedChannel(tint, c, lightness, pixel[c]);
  }
}

#endif

}  // namespace

extern const PixelKernels kPixelKernels;
constinit const PixelKernels kPixelKernels = {
    .set_alpha = &SetAlpha,
    .clear_key = &ClearKey,
    .set_alpha_but_key = &SetAlphaButKey,
    .tint3 = &TintPixels<3>,
    .tint4 = &TintPixels<4>,
};

}  // namespace qel::QEL_LEVEL
