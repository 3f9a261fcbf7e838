#ifndef QEL_SIMD_LEVELS_AVX512_H_
#define QEL_SIMD_LEVELS_AVX512_H_

#include <immintrin.h>

#include "simd/levels/lane_masks.h"

// Both levels with registers of 64 bytes. The compiler keeps masks as bits.

namespace qel::QEL_LEVEL {
namespace {
using Native = __m512i;
}  // namespace
}  // namespace qel::QEL_LEVEL
#define QEL_X86(name) _mm512_##name

#include "simd/levels/x86.h"

namespace qel::QEL_LEVEL {
namespace {

template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  const auto lanes = reinterpret_cast<Native>(mask.raw);
  if constexpr (V::kLanes == 64) return _mm512_movepi8_mask(lanes);
  if constexpr (V::kLanes == 32) return _mm512_movepi16_mask(lanes);
  if constexpr (V::kLanes == 16) return _mm512_movepi32_mask(lanes);
  if constexpr (V::kLanes == 8) return _mm512_movepi64_mask(lanes);
}
QEL_SIMD_INLINE uint64_t BitsEqual(U8 a, U8 b) {
  return _mm512_cmp_epu8_mask(Bits(a), Bits(b), _MM_CMPINT_EQ);
}
QEL_SIMD_INLINE uint64_t BitsGreater(U16 a, U16 b) {
  return _mm512_cmp_epu16_mask(Bits(a), Bits(b), _MM_CMPINT_NLE);
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE V MaskedLoad(Mask<V> mask, const void* from) {
  return As<V>(
      _mm512_maskz_loadu_epi8(_mm512_movepi8_mask(reinterpret_cast<Native>(mask.raw)), from));
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE void BlendedStore(V v, Mask<V> mask, void* to) {
  _mm512_mask_storeu_epi8(to, _mm512_movepi8_mask(reinterpret_cast<Native>(mask.raw)), Bits(v));
}

template <typename To>
requires(std::is_same_v<To, Half<I32>>) QEL_SIMD_INLINE To ConvertTo(F64 v) {
  return As<To>(_mm512_cvttpd_epi32(v.raw));
}
template <typename To>
requires(std::is_same_v<To, F64>) QEL_SIMD_INLINE To ConvertTo(Half<I32> v) {
  return {_mm512_cvtepi32_pd(reinterpret_cast<__m256i>(v.raw))};
}
template <typename To>
requires(std::is_same_v<To, F64>) QEL_SIMD_INLINE To ConvertTo(Half<F32> v) {
  return {_mm512_cvtps_pd(v.raw)};
}
template <typename To>
requires(std::is_same_v<To, I16>) QEL_SIMD_INLINE To ConvertTo(Half<I8> v) {
  return As<I16>(_mm512_cvtepi8_epi16(reinterpret_cast<__m256i>(v.raw)));
}
QEL_SIMD_INLINE Half<F32> Sqrt(Half<F32> v) { return {_mm256_sqrt_ps(v.raw)}; }
QEL_SIMD_INLINE F32 MulAdd(F32 mul, F32 x, F32 add) {
  return {_mm512_fmadd_ps(mul.raw, x.raw, add.raw)};
}
QEL_SIMD_INLINE F64 MulAdd(F64 mul, F64 x, F64 add) {
  return {_mm512_fmadd_pd(mul.raw, x.raw, add.raw)};
}
template <typename V, typename AddressOf>
requires(V::kBytes == 64) QEL_SIMD_INLINE V GatherBlocks(const AddressOf& address_of) {
  const auto load = [&](size_t i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(address_of(i)));
  };
  Native v = _mm512_castsi128_si512(load(0));
  v = _mm512_inserti32x4(v, load(1), 1);
  v = _mm512_inserti32x4(v, load(2), 2);
  return As<V>(_mm512_inserti32x4(v, load(3), 3));
}
template <typename T>
QEL_SIMD_INLINE void StoreBlocks(Vec<T, 64> v, uint8_t* to, ptrdiff_t stride) {
  const auto store = [=](ptrdiff_t i, __m128i block) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i * stride), block);
  };
  store(0, _mm512_castsi512_si128(Bits(v)));
  store(1, _mm512_extracti32x4_epi32(Bits(v), 1));
  store(2, _mm512_extracti32x4_epi32(Bits(v), 2));
  store(3, _mm512_extracti32x4_epi32(Bits(v), 3));
}
template <typename V>
requires(V::kBytes == 64) QEL_SIMD_INLINE V LoadDup128(const void* from) {
  const __m128i block = _mm_loadu_si128(static_cast<const __m128i*>(from));
  return As<V>(_mm512_broadcast_i32x4(block));
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
QEL_SIMD_INLINE I32 SumOfMulQuadAccumulate(U8 a, I8 b, I32 sum) {
  return As<I32>(_mm512_dpbusd_epi32(Bits(sum), Bits(a), Bits(b)));
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_AVX512_H_
