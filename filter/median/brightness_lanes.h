#ifndef QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_
#define QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_

#include "image/brightness.h"
#include "simd/interleaved.h"
#include "simd/window.h"

namespace qel::QEL_LEVEL {
namespace {

/// (117 blue + 601 green + 306 red) / 4 - 128 * 256, rounded down: brightness, less 128, stands in
/// the upper byte, and what follows it below, down to where the rest of the weights / 256 ends.
/// That rest weighs 256 altogether, so its sums fit 16 bits once 128 is taken from each channel.
QEL_SIMD_INLINE Halves<I16> BrightnessAbove(U8 blue, U8 green, U8 red) {
  constexpr int32_t kUnit = 256;
  static_assert(kBlueWeight / kUnit == 0 && kBrightnessBits == 10);
  static_assert(kBlueWeight + kGreenWeight % kUnit + kRedWeight % kUnit == kUnit);
  const auto weights = [](int32_t first, int32_t second) {
    return BitCast<U8>(Set<U16>(static_cast<uint16_t>(second << 8 | first)));
  };
  const U8 blue_green = weights(kBlueWeight, kGreenWeight % kUnit);
  const U8 red_only = weights(0, kRedWeight % kUnit);
  constexpr int32_t kWhole = 64;
  const U8 whole = weights(kGreenWeight / kUnit * kWhole, kRedWeight / kUnit * kWhole);
  const auto centered = [](U8 v) { return BitCast<I8>(v ^ Set<U8>(0x80)); };
  const I8 b = centered(blue), g = centered(green), r = centered(red);
  const auto sums = [=](I8 bg, I8 gr) {
    const I16 rest = SatWidenMulPairwiseAdd(blue_green, bg) + SatWidenMulPairwiseAdd(red_only, gr);
    return ShiftRight<2>(rest) + SatWidenMulPairwiseAdd(whole, gr);
  };
  return {sums(InterleaveLower(b, g), InterleaveLower(g, r)),
          sums(InterleaveUpper(b, g), InterleaveUpper(g, r))};
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_
