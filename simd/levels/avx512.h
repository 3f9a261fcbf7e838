#ifndef QEL_SIMD_LEVELS_AVX512_H_
#define QEL_SIMD_LEVELS_AVX512_H_

#include "simd/levels/x86.h"

// Both levels with registers of 64 bytes. The compiler keeps masks as bits.

namespace qel::QEL_LEVEL {
namespace {

template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  const Native lanes = Bits(mask);
  if constexpr (V::kLanes == 64) return _mm512_movepi8_mask(lanes);
  if constexpr (V::kLanes == 32) return _mm512_movepi16_mask(lanes);
  if constexpr (V::kLanes == 16) return _mm512_movepi32_mask(lanes);
  if constexpr (V::kLanes == 8) return _mm512_movepi64_mask(lanes);
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE bool AllFalse(Mask<V> mask) {
  return BitsFromMask(mask) == 0;
}
QEL_SIMD_INLINE uint64_t BitsEqual(U8 a, U8 b) {
  return _mm512_cmp_epu8_mask(Bits(a), Bits(b), _MM_CMPINT_EQ);
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE V MaskedLoad(Mask<V> mask, const void* from) {
  return As<V>(_mm512_maskz_loadu_epi8(_mm512_movepi8_mask(Bits(mask)), from));
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE void BlendedStore(V v, Mask<V> mask, void* to) {
  _mm512_mask_storeu_epi8(to, _mm512_movepi8_mask(Bits(mask)), Bits(v));
}

QEL_X86_CONVERT(Half<I32>, F64, _mm512_cvttpd_epi32, )
QEL_X86_CONVERT(F64, Half<I32>, _mm512_cvtepi32_pd, reinterpret_cast<__m256i>)
QEL_X86_CONVERT(F64, Half<F32>, _mm512_cvtps_pd, )
QEL_X86_CONVERT(I16, Half<I8>, _mm512_cvtepi8_epi16, reinterpret_cast<__m256i>)
QEL_SIMD_INLINE Half<F32> Sqrt(Half<F32> v) { return {_mm256_sqrt_ps(v.raw)}; }
template <typename V, typename AddressOf>
requires(V::kBytes == 64) QEL_SIMD_INLINE V GatherBlocks(const AddressOf& address_of) {
  Native v = _mm512_castsi128_si512(LoadBlock(address_of(0)));
  v = _mm512_inserti32x4(v, LoadBlock(address_of(1)), 1);
  v = _mm512_inserti32x4(v, LoadBlock(address_of(2)), 2);
  return As<V>(_mm512_inserti32x4(v, LoadBlock(address_of(3)), 3));
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE V LoadDup128(const void* from) {
  return As<V>(_mm512_broadcast_i32x4(LoadBlock(from)));
}
template <typename T>
QEL_SIMD_INLINE Vec<T, 64> NextBlocks(Vec<T, 64> upper, Vec<T, 64> lower) {
  return As<Vec<T, 64>>(_mm512_alignr_epi32(Bits(upper), Bits(lower), 4));
}
template <typename T>
requires(sizeof(T) == 4) QEL_SIMD_INLINE Vec<T, 64> TableLookupLanes(Vec<T, 64> v, U32 places) {
  return As<Vec<T, 64>>(_mm512_permutexvar_epi32(Bits(places), Bits(v)));
}

#ifdef QEL_LEVEL_avx512vbmi

QEL_SIMD_INLINE U8 TableLookupLanes(U8 v, U8 places) {
  return As<U8>(_mm512_permutexvar_epi8(Bits(places), Bits(v)));
}
QEL_SIMD_INLINE U8 TwoTablesLookupLanes(U8 a, U8 b, U8 places) {
  return As<U8>(_mm512_permutex2var_epi8(Bits(a), Bits(places), Bits(b)));
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_AVX512_H_
