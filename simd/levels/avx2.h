#ifndef QEL_SIMD_LEVELS_AVX2_H_
#define QEL_SIMD_LEVELS_AVX2_H_

#include <immintrin.h>

#include "simd/levels/lane_masks.h"

namespace qel::QEL_LEVEL {
namespace {
using Native = __m256i;
}  // namespace
}  // namespace qel::QEL_LEVEL
#define QEL_X86(name) _mm256_##name

#include "simd/levels/x86.h"

namespace qel::QEL_LEVEL {
namespace {

template <typename To>
requires(std::is_same_v<To, Half<I32>>) QEL_SIMD_INLINE To ConvertTo(F64 v) {
  return As<To>(_mm256_cvttpd_epi32(v.raw));
}
template <typename To>
requires(std::is_same_v<To, F64>) QEL_SIMD_INLINE To ConvertTo(Half<I32> v) {
  return {_mm256_cvtepi32_pd(reinterpret_cast<__m128i>(v.raw))};
}
template <typename To>
requires(std::is_same_v<To, F64>) QEL_SIMD_INLINE To ConvertTo(Half<F32> v) {
  return {_mm256_cvtps_pd(v.raw)};
}
template <typename V>
requires(V::kBytes == 32) QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  if constexpr (V::kLanes == 4) {
    return static_cast<uint64_t>(_mm256_movemask_pd(reinterpret_cast<__m256d>(mask.raw)));
  } else if constexpr (V::kLanes == 8) {
    return static_cast<uint64_t>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask.raw)));
  } else {
    auto bytes = reinterpret_cast<Native>(mask.raw);
    if constexpr (V::kLanes == 16) {
      bytes = _mm256_permute4x64_epi64(_mm256_packs_epi16(bytes, _mm256_setzero_si256()), 0xD8);
    }
    return static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
  }
}

QEL_SIMD_INLINE Half<F32> Sqrt(Half<F32> v) { return {_mm_sqrt_ps(v.raw)}; }
template <typename V, typename AddressOf>
requires(V::kBytes == 32) QEL_SIMD_INLINE V GatherBlocks(const AddressOf& address_of) {
  const auto load = [&](size_t i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(address_of(i)));
  };
  return As<V>(_mm256_set_m128i(load(1), load(0)));
}
template <typename T>
QEL_SIMD_INLINE void StoreBlocks(Vec<T, 32> v, uint8_t* to, ptrdiff_t stride) {
  StoreU(LowerHalf(v), to);
  StoreU(UpperHalf(v), to + stride);
}
template <typename V>
requires(V::kBytes == 32) QEL_SIMD_INLINE V LoadDup128(const void* from) {
  const __m128i block = _mm_loadu_si128(static_cast<const __m128i*>(from));
  return As<V>(_mm256_broadcastsi128_si256(block));
}
template <typename T>
requires(sizeof(T) == 4) QEL_SIMD_INLINE Vec<T, 32> TableLookupLanes(Vec<T, 32> v, U32 places) {
  return As<Vec<T, 32>>(_mm256_permutevar8x32_epi32(Bits(v), Bits(places)));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_AVX2_H_
