#ifndef QEL_SIMD_CONVERT_H_
#define QEL_SIMD_CONVERT_H_

#include "simd/simd.h"

// Conversions of several steps.

namespace qel::QEL_LEVEL {
namespace {

/// trunc(v[i] * factor), the product rounded once to single precision.
QEL_SIMD_INLINE I32 MulTruncated(I32 v, float factor) {
  return ConvertTo<I32>(ConvertTo<F32>(v) * Set<F32>(factor));
}
/// The same in double precision; what leaves the range of integers gives the lowest one.
QEL_SIMD_INLINE I32 MulTruncated(I32 v, double factor) {
  const auto scaled = [=](Half<I32> half) {
    return ConvertTo<Half<I32>>(ConvertTo<F64>(half) * Set<F64>(factor));
  };
  return Combine(scaled(UpperHalf(v)), scaled(LowerHalf(v)));
}

/// Bytes of four vectors of integers, clamped: of each block four of a, b, c and d, which undoes
/// interleaving.
QEL_SIMD_INLINE U8 ReorderDemote4To8(I32 a, I32 b, I32 c, I32 d) {
  return ReorderDemote2To<U8>(ReorderDemote2To<I16>(a, b), ReorderDemote2To<I16>(c, d));
}
/// The bytes of a, then those of b, c and d, clamped.
QEL_SIMD_INLINE U8 OrderedDemote4To8(I32 a, I32 b, I32 c, I32 d) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  const U8 bytes = ReorderDemote4To8(a, b, c, d);
  if constexpr (kBlocks == 1) return bytes;
  const U32 i = Iota<U32>(0);
  const U32 places = ShiftLeft<2>(i & Set<U32>(kBlocks - 1)) | ShiftRight<kBlocks / 2>(i);
  return BitCast<U8>(TableLookupLanes(BitCast<U32>(bytes), places));
}

/// The lower halves of all blocks, then the upper halves.
QEL_SIMD_INLINE U8 LowerThenUpperHalves(U8 v) {
  constexpr size_t kBlocks = kVectorBytes / 16;
  if constexpr (kBlocks == 1) return v;
  constexpr auto kOrder = [] {
    struct Places {
      alignas(64) uint32_t at[U32::kLanes];
    } places{};
    for (size_t i = 0; i < U32::kLanes; ++i) {
      const size_t half = i / 2;  // of 8 bytes, counted in the result
      places.at[i] = static_cast<uint32_t>(half % kBlocks * 4 + half / kBlocks * 2 + i % 2);
    }
    return places;
  }();
  return BitCast<U8>(TableLookupLanes(BitCast<U32>(v), LoadU<U32>(&kOrder)));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_CONVERT_H_
