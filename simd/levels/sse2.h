#ifndef QEL_SIMD_LEVELS_SSE2_H_
#define QEL_SIMD_LEVELS_SSE2_H_

#include <emmintrin.h>

// The lowest level of x86-64.

namespace qel::QEL_LEVEL {
namespace {
using Native = __m128i;
}  // namespace
}  // namespace qel::QEL_LEVEL
#define QEL_X86(name) _mm_##name

#include "simd/levels/x86.h"

namespace qel::QEL_LEVEL {
namespace {

template <typename To>
requires(std::is_same_v<To, Half<I32>>) QEL_SIMD_INLINE To ConvertTo(F64 v) {
  return LowerHalf(As<I32>(_mm_cvttpd_epi32(v.raw)));
}
template <size_t kShift, typename T>
QEL_SIMD_INLINE Vec<T, 16> CombineShiftRightBytes(Vec<T, 16> upper, Vec<T, 16> lower) {
  if constexpr (kShift == 0) return lower;
  if constexpr (kShift == 16) return upper;
  return As<Vec<T, 16>>(_mm_or_si128(_mm_srli_si128(Bits(lower), kShift % 16),
                                     _mm_slli_si128(Bits(upper), 16 - kShift % 16)));
}
template <typename V>
requires(V::kBytes == 16) QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  if constexpr (V::kLanes == 2) {
    return static_cast<uint64_t>(_mm_movemask_pd(reinterpret_cast<__m128d>(mask.raw)));
  } else if constexpr (V::kLanes == 4) {
    return static_cast<uint64_t>(_mm_movemask_ps(reinterpret_cast<__m128>(mask.raw)));
  } else {
    auto bytes = reinterpret_cast<__m128i>(mask.raw);
    if constexpr (V::kLanes == 8) bytes = _mm_packs_epi16(bytes, _mm_setzero_si128());
    return static_cast<uint32_t>(_mm_movemask_epi8(bytes));
  }
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_SSE2_H_
