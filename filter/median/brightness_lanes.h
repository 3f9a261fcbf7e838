#ifndef QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_
#define QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_

#include "image/brightness.h"
#include "simd/interleaved.h"
#include "simd/window.h"

namespace qel::QEL_LEVEL {
namespace {

/// (117 blue + 601 green + 306 red) / 8, rounded down: brightness times 128 and what follows it.
/// The whole parts of the weights / 256 need no rounding. The rest of them weighs 256 altogether:
/// split in two by green, it fits signed sums of pairs, and both of them unsigned 16 bits.
QEL_SIMD_INLINE Halves<I16> BrightnessTimes128(U8 blue, U8 green, U8 red) {
  constexpr int32_t kUnit = 256, kHalf = kUnit / 2, kWhole = kUnit / 8;
  static_assert(kBlueWeight < kHalf && kBrightnessBits == 10);
  static_assert(kBlueWeight + kGreenWeight % kUnit + kRedWeight % kUnit == kUnit);
  const auto weights = [](int32_t first, int32_t second) {
    return BitCast<I8>(Set<U16>(static_cast<uint16_t>(second << 8 | first)));
  };
  const I8 with_blue = weights(kBlueWeight, kHalf - kBlueWeight);
  const I8 with_red = weights(kHalf - kRedWeight % kUnit, kRedWeight % kUnit);
  const I8 whole = weights(kGreenWeight / kUnit * kWhole, kRedWeight / kUnit * kWhole);
  const auto sums = [=](U8 bg, U8 gr) {
    const I16 rest = SatWidenMulPairwiseAdd(bg, with_blue) + SatWidenMulPairwiseAdd(gr, with_red);
    return BitCast<I16>(ShiftRight<3>(BitCast<U16>(rest))) + SatWidenMulPairwiseAdd(gr, whole);
  };
  return {sums(InterleaveLower(blue, green), InterleaveLower(green, red)),
          sums(InterleaveUpper(blue, green), InterleaveUpper(green, red))};
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_BRIGHTNESS_LANES_H_
