#ifndef QEL_TRANSFORM_DOUBLE_VECTORS_H_
#define QEL_TRANSFORM_DOUBLE_VECTORS_H_

#include <cstddef>
#include <cstdint>

#ifndef QEL_LEVEL_sse2
#include <immintrin.h>
#endif

// Vectors of doubles for kernel sources, at the level that QEL_LEVEL names, with as many 32-bit
// integers beside them. Sums and products are the plain operators. The lowest level has one lane.
// Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

#if defined(QEL_LEVEL_sse2)

using Doubles = double;
using Ints = int32_t;
using Mask = bool;
inline Doubles Fill(double value) { return value; }
inline Ints FillInts(int32_t value) { return value; }
/// 0, 1, 2, ...
inline Ints LaneNumbers() { return 0; }
inline Ints Add(Ints a, Ints b) { return a + b; }
inline Ints Multiply(Ints a, Ints b) { return a * b; }
inline Ints Negate(Ints a) { return -a; }
inline void Store(int32_t* to, Ints v) { *to = v; }
inline Doubles ToDoubles(Ints v) { return v; }
/// Truncates toward zero.
inline Ints ToInts(Doubles v) { return static_cast<int32_t>(v); }
inline Doubles Root(Doubles v) { return __builtin_sqrt(v); }
/// The root of the nearest single-precision numbers, in single precision.
inline Doubles SingleRoot(Ints v) { return __builtin_sqrtf(static_cast<float>(v)); }
inline Doubles Magnitude(Doubles v) { return __builtin_fabs(v); }
/// a * b + c, rounded once or twice.
inline Doubles MultiplyAdd(Doubles a, Doubles b, Doubles c) { return a * b + c; }
inline Mask Less(Doubles a, Doubles b) { return a < b; }
inline Mask And(Mask a, Mask b) { return a && b; }
inline Mask Or(Mask a, Mask b) { return a || b; }
inline bool Any(Mask mask) { return mask; }
/// True where a bit of `bits` is set.
inline Mask HasBit(Ints v, int32_t bits) { return (v & bits) != 0; }
inline Doubles Choose(Mask mask, Doubles set, Doubles clear) { return mask ? set : clear; }
inline Ints ChooseInts(Mask mask, Ints set, Ints clear) { return mask ? set : clear; }

#elif defined(QEL_LEVEL_avx2)

using Doubles = __m256d;
using Ints = __m128i;
using Mask = __m256d;
inline Doubles Fill(double value) { return _mm256_set1_pd(value); }
inline Ints FillInts(int32_t value) { return _mm_set1_epi32(value); }
inline Ints LaneNumbers() { return _mm_setr_epi32(0, 1, 2, 3); }
inline Ints Add(Ints a, Ints b) { return _mm_add_epi32(a, b); }
inline Ints Multiply(Ints a, Ints b) { return _mm_mullo_epi32(a, b); }
inline Ints Negate(Ints a) { return _mm_sub_epi32(_mm_setzero_si128(), a); }
inline void Store(int32_t* to, Ints v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(to), v); }
inline Doubles ToDoubles(Ints v) { return _mm256_cvtepi32_pd(v); }
inline Ints ToInts(Doubles v) { return _mm256_cvttpd_epi32(v); }
inline Doubles Root(Doubles v) { return _mm256_sqrt_pd(v); }
inline Doubles SingleRoot(Ints v) { return _mm256_cvtps_pd(_mm_sqrt_ps(_mm_cvtepi32_ps(v))); }
inline Doubles Magnitude(Doubles v) { return _mm256_andnot_pd(Fill(-0.0), v); }
inline Doubles MultiplyAdd(Doubles a, Doubles b, Doubles c) { return a * b + c; }
inline Mask Less(Doubles a, Doubles b) { return _mm256_cmp_pd(a, b, _CMP_LT_OQ); }
inline Mask And(Mask a, Mask b) { return _mm256_and_pd(a, b); }
inline Mask Or(Mask a, Mask b) { return _mm256_or_pd(a, b); }
inline bool Any(Mask mask) { return _mm256_movemask_pd(mask) != 0; }
inline Mask HasBit(Ints v, int32_t bits) {
  const __m128i clear = _mm_cmpeq_epi32(_mm_and_si128(v, FillInts(bits)), _mm_setzero_si128());
  return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm_xor_si128(clear, _mm_set1_epi32(-1))));
}
inline Doubles Choose(Mask mask, Doubles set, Doubles clear) {
  return _mm256_blendv_pd(clear, set, mask);
}
inline Ints ChooseInts(Mask mask, Ints set, Ints clear) {
  const __m256i even = _mm256_permutevar8x32_epi32(_mm256_castpd_si256(mask),
                                                   _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6));
  return _mm_blendv_epi8(clear, set, _mm256_castsi256_si128(even));
}

#else

using Doubles = __m512d;
using Ints = __m256i;
using Mask = __mmask8;
inline Doubles Fill(double value) { return _mm512_set1_pd(value); }
inline Ints FillInts(int32_t value) { return _mm256_set1_epi32(value); }
inline Ints LaneNumbers() { return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7); }
inline Ints Add(Ints a, Ints b) { return _mm256_add_epi32(a, b); }
inline Ints Multiply(Ints a, Ints b) { return _mm256_mullo_epi32(a, b); }
inline Ints Negate(Ints a) { return _mm256_sub_epi32(_mm256_setzero_si256(), a); }
inline void Store(int32_t* to, Ints v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), v); }
inline Doubles ToDoubles(Ints v) { return _mm512_cvtepi32_pd(v); }
inline Ints ToInts(Doubles v) { return _mm512_cvttpd_epi32(v); }
inline Doubles Root(Doubles v) { return _mm512_sqrt_pd(v); }
inline Doubles SingleRoot(Ints v) { return _mm512_cvtps_pd(_mm256_sqrt_ps(_mm256_cvtepi32_ps(v))); }
inline Doubles Magnitude(Doubles v) { return _mm512_andnot_pd(Fill(-0.0), v); }
inline Doubles MultiplyAdd(Doubles a, Doubles b, Doubles c) { return _mm512_fmadd_pd(a, b, c); }
inline Mask Less(Doubles a, Doubles b) { return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ); }
inline Mask And(Mask a, Mask b) { return a & b; }
inline Mask Or(Mask a, Mask b) { return a | b; }
inline bool Any(Mask mask) { return mask != 0; }
inline Mask HasBit(Ints v, int32_t bits) { return _mm256_test_epi32_mask(v, FillInts(bits)); }
inline Doubles Choose(Mask mask, Doubles set, Doubles clear) {
  return _mm512_mask_blend_pd(mask, clear, set);
}
inline Ints ChooseInts(Mask mask, Ints set, Ints clear) {
  return _mm256_mask_blend_epi32(mask, clear, set);
}

#endif

constexpr size_t kDoubleLanes = sizeof(Doubles) / sizeof(double);

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_DOUBLE_VECTORS_H_
