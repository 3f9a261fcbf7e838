#ifndef QEL_SIMD_LEVELS_AVX512_H_
#define QEL_SIMD_LEVELS_AVX512_H_

#include <immintrin.h>

#include "simd/levels/moves.h"

// Both levels with registers of 64 bytes and masks of bits.

namespace qel::QEL_LEVEL {
namespace {
using Native = __m512i;
}  // namespace
}  // namespace qel::QEL_LEVEL
#define QEL_X86(name) _mm512_##name

#include "simd/levels/x86.h"

namespace qel::QEL_LEVEL {
namespace {

/// One truth per lane of `V`, lane i as bit i.
template <typename V>
struct Mask {
  using Raw = std::conditional_t<
      V::kLanes <= 8, __mmask8,
      std::conditional_t<V::kLanes == 16, __mmask16,
                         std::conditional_t<V::kLanes == 32, __mmask32, __mmask64>>>;
  Raw raw;
};

template <int kHow, typename T>
QEL_SIMD_INLINE Mask<Vec<T, 64>> Compare(Vec<T, 64> a, Vec<T, 64> b) {
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm512_cmp_epu8_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, int8_t>) return {_mm512_cmp_epi8_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, uint16_t>) return {_mm512_cmp_epu16_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, int16_t>) return {_mm512_cmp_epi16_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, uint32_t>) return {_mm512_cmp_epu32_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, int32_t>) return {_mm512_cmp_epi32_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, uint64_t>) return {_mm512_cmp_epu64_mask(Bits(a), Bits(b), kHow)};
  if constexpr (std::is_same_v<T, float>) return {_mm512_cmp_ps_mask(a.raw, b.raw, kHow)};
  if constexpr (std::is_same_v<T, double>) return {_mm512_cmp_pd_mask(a.raw, b.raw, kHow)};
}
template <int kHow>
QEL_SIMD_INLINE Mask<Half<I32>> Compare(Half<I32> a, Half<I32> b) {
  return {_mm256_cmp_epi32_mask(reinterpret_cast<__m256i>(a.raw), reinterpret_cast<__m256i>(b.raw),
                                kHow)};
}
// The numbers of the instructions; what is not a number differs from all.
#define QEL_SIMD_COMPARISON(op, whole, floating)                          \
  template <typename T, size_t n>                                         \
  QEL_SIMD_INLINE Mask<Vec<T, n>> operator op(Vec<T, n> a, Vec<T, n> b) { \
    return Compare < std::is_integral_v<T> ? whole : floating > (a, b);   \
  }
QEL_SIMD_COMPARISON(==, _MM_CMPINT_EQ, _CMP_EQ_OQ)
QEL_SIMD_COMPARISON(!=, _MM_CMPINT_NE, _CMP_NEQ_UQ)
QEL_SIMD_COMPARISON(<, _MM_CMPINT_LT, _CMP_LT_OQ)
QEL_SIMD_COMPARISON(<=, _MM_CMPINT_LE, _CMP_LE_OQ)
QEL_SIMD_COMPARISON(>, _MM_CMPINT_NLE, _CMP_GT_OQ)
QEL_SIMD_COMPARISON(>=, _MM_CMPINT_NLT, _CMP_GE_OQ)
#undef QEL_SIMD_COMPARISON
#define QEL_SIMD_LOGIC(op)                                       \
  template <typename V>                                          \
  QEL_SIMD_INLINE Mask<V> operator op(Mask<V> a, Mask<V> b) {    \
    return {static_cast<typename Mask<V>::Raw>(a.raw op b.raw)}; \
  }
QEL_SIMD_LOGIC(&)
QEL_SIMD_LOGIC(|)
QEL_SIMD_LOGIC(^)
#undef QEL_SIMD_LOGIC
constexpr uint64_t FirstBits(size_t count) {
  return count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
}
/// Bit i as lane i, a constant.
template <typename V, uint64_t kBits>
QEL_SIMD_INLINE Mask<V> MaskFromBits() {
  return {static_cast<typename Mask<V>::Raw>(kBits & FirstBits(V::kLanes))};
}
/// True for the first `count` lanes.
template <typename V>
QEL_SIMD_INLINE Mask<V> FirstN(size_t count) {
  return {static_cast<typename Mask<V>::Raw>(FirstBits(count) & FirstBits(V::kLanes))};
}
template <typename V>
QEL_SIMD_INLINE Mask<V> operator~(Mask<V> mask) {
  return mask ^ FirstN<V>(V::kLanes);
}
template <typename To, typename V>
QEL_SIMD_INLINE Mask<To> RebindMask(Mask<V> mask) {
  return {mask.raw};
}
template <typename V>
QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  return mask.raw;
}
template <typename V>
QEL_SIMD_INLINE bool AllFalse(Mask<V> mask) {
  return mask.raw == 0;
}

template <typename V>
QEL_SIMD_INLINE V IfThenElse(Mask<V> mask, V yes, V no) {
  if constexpr (V::kBytes == 32 && V::kLanes == 8) {
    return As<V>(_mm256_mask_blend_epi32(mask.raw, reinterpret_cast<__m256i>(no.raw),
                                         reinterpret_cast<__m256i>(yes.raw)));
  } else if constexpr (sizeof(typename V::Lane) == 1) {
    return As<V>(_mm512_mask_blend_epi8(mask.raw, Bits(no), Bits(yes)));
  } else if constexpr (sizeof(typename V::Lane) == 2) {
    return As<V>(_mm512_mask_blend_epi16(mask.raw, Bits(no), Bits(yes)));
  } else if constexpr (sizeof(typename V::Lane) == 4) {
    return As<V>(_mm512_mask_blend_epi32(mask.raw, Bits(no), Bits(yes)));
  } else {
    return As<V>(_mm512_mask_blend_epi64(mask.raw, Bits(no), Bits(yes)));
  }
}
/// 0 where true.
template <typename V>
QEL_SIMD_INLINE V IfThenZeroElse(Mask<V> mask, V no) {
  return IfThenElse(~mask, no, Zero<V>());
}
/// Adds 1 to bytes where true.
QEL_SIMD_INLINE U8 IncrementWhere(Mask<U8> mask, U8 v) {
  return As<U8>(_mm512_mask_add_epi8(Bits(v), mask.raw, Bits(v), Bits(Set<U8>(1))));
}
QEL_SIMD_INLINE U8 DecrementWhere(Mask<U8> mask, U8 v) {
  return As<U8>(_mm512_mask_sub_epi8(Bits(v), mask.raw, Bits(v), Bits(Set<U8>(1))));
}
/// All bits of the lanes that are true.
template <typename V>
QEL_SIMD_INLINE V VecFromMask(Mask<V> mask) {
  if constexpr (V::kLanes == 64) return As<V>(_mm512_movm_epi8(mask.raw));
  if constexpr (V::kLanes == 32) return As<V>(_mm512_movm_epi16(mask.raw));
  if constexpr (V::kLanes == 16) return As<V>(_mm512_movm_epi32(mask.raw));
  if constexpr (V::kLanes == 8) return As<V>(_mm512_movm_epi64(mask.raw));
}
/// True for lanes whose highest bit is set.
template <typename T>
QEL_SIMD_INLINE Mask<Vec<T, 64>> MaskFromVec(Vec<T, 64> v) {
  if constexpr (sizeof(T) == 1) return {_mm512_movepi8_mask(Bits(v))};
  if constexpr (sizeof(T) == 2) return {_mm512_movepi16_mask(Bits(v))};
  if constexpr (sizeof(T) == 4) return {_mm512_movepi32_mask(Bits(v))};
  if constexpr (sizeof(T) == 8) return {_mm512_movepi64_mask(Bits(v))};
}
/// `yes` where the highest bit of a lane is set.
template <typename T>
QEL_SIMD_INLINE Vec<T, 64> IfNegativeThenElse(Vec<T, 64> v, Vec<T, 64> yes, Vec<T, 64> no) {
  return IfThenElse(MaskFromVec(v), yes, no);
}

/// The lanes that are true, 0 in the others, whose memory is not touched.
template <typename V>
QEL_SIMD_INLINE V MaskedLoad(Mask<V> mask, const void* from) {
  if constexpr (V::kLanes == 64) return As<V>(_mm512_maskz_loadu_epi8(mask.raw, from));
  if constexpr (V::kLanes == 32) return As<V>(_mm512_maskz_loadu_epi16(mask.raw, from));
  if constexpr (V::kLanes == 16) return As<V>(_mm512_maskz_loadu_epi32(mask.raw, from));
  if constexpr (V::kLanes == 8) return As<V>(_mm512_maskz_loadu_epi64(mask.raw, from));
}
/// The lanes that are true, those of `no` elsewhere.
QEL_SIMD_INLINE U8 MaskedLoadOr(U8 no, Mask<U8> mask, const void* from) {
  return As<U8>(_mm512_mask_loadu_epi8(Bits(no), mask.raw, from));
}
/// Touches the memory of lanes that are true only.
template <typename V>
QEL_SIMD_INLINE void BlendedStore(V v, Mask<V> mask, void* to) {
  if constexpr (V::kLanes == 64) _mm512_mask_storeu_epi8(to, mask.raw, Bits(v));
  if constexpr (V::kLanes == 32) _mm512_mask_storeu_epi16(to, mask.raw, Bits(v));
  if constexpr (V::kLanes == 16) _mm512_mask_storeu_epi32(to, mask.raw, Bits(v));
  if constexpr (V::kLanes == 8) _mm512_mask_storeu_epi64(to, mask.raw, Bits(v));
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
QEL_SIMD_INLINE F32 MulSub(F32 mul, F32 x, F32 sub) {
  return {_mm512_fmsub_ps(mul.raw, x.raw, sub.raw)};
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
