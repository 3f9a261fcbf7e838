#ifndef QEL_IMAGE_CHANNEL_SUMS_H_
#define QEL_IMAGE_CHANNEL_SUMS_H_

#include "simd/simd.h"

namespace qel::QEL_LEVEL {
namespace {

/// The sums of the three color channels of pixels: those of the lower and of the upper half of
/// each block, the order that ReorderDemote2To undoes.
struct ChannelSums {
  explicit ChannelSums(const U8* channels) {
    const I8 ones = Set<I8>(1);
    const U8 zero = Zero<U8>();
    lower = SatWidenMulPairwiseAdd(InterleaveLower(channels[0], channels[1]), ones) +
            BitCast<I16>(InterleaveLower(channels[2], zero));
    upper = SatWidenMulPairwiseAdd(InterleaveUpper(channels[0], channels[1]), ones) +
            BitCast<I16>(InterleaveUpper(channels[2], zero));
  }
  I16 lower, upper;
};

/// The sums of the first three bytes of pixels of four, one a lane.
QEL_SIMD_INLINE I32 SumsOf3In4(U32 pixels) {
  const I8 color_ones = BitCast<I8>(Set<U32>(0x00010101u));
  return WidenMulPairwiseAdd(SatWidenMulPairwiseAdd(BitCast<U8>(pixels), color_ones), Set<I16>(1));
}

/// A third of each sum, truncated: exact for sums of three bytes.
QEL_SIMD_INLINE I16 Third(I16 sums) {
  return BitCast<I16>(MulHigh(BitCast<U16>(sums), Set<U16>(21846)));
}
QEL_SIMD_INLINE U8 Mean(const ChannelSums& sums) {
  return ReorderDemote2To<U8>(Third(sums.lower), Third(sums.upper));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_IMAGE_CHANNEL_SUMS_H_
