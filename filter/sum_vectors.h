#ifndef QEL_FILTER_SUM_VECTORS_H_
#define QEL_FILTER_SUM_VECTORS_H_

// Vectors of integers for sums of weighted bytes, at the level that QEL_LEVEL names. The lowest
// level has none and keeps to plain loops. Everything has internal linkage.

#ifndef QEL_LEVEL_sse2
#include <immintrin.h>

#include <cstdint>

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_LEVEL_avx2

struct Vector {
  using Type = __m256i;
  static Type Load(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
  }
  static void Store(uint8_t* to, Type value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), value);
  }
  static Type Zero() { return _mm256_setzero_si256(); }
  static Type Set(int32_t value) { return _mm256_set1_epi32(value); }
  static Type Low8(Type a, Type b) { return _mm256_unpacklo_epi8(a, b); }
  static Type High8(Type a, Type b) { return _mm256_unpackhi_epi8(a, b); }
  static Type Low16(Type a, Type b) { return _mm256_unpacklo_epi16(a, b); }
  static Type High16(Type a, Type b) { return _mm256_unpackhi_epi16(a, b); }
  static Type PairSum(Type a, Type b) { return _mm256_madd_epi16(a, b); }
  /// Pairs of 16-bit sums of products of bytes, unsigned times signed.
  static Type PairOfBytes(Type a, Type b) { return _mm256_maddubs_epi16(a, b); }
  static Type Set16(int value) { return _mm256_set1_epi16(static_cast<int16_t>(value)); }
  static Type Add16(Type a, Type b) { return _mm256_add_epi16(a, b); }
  static Type AddSaturated16(Type a, Type b) { return _mm256_adds_epi16(a, b); }
  static Type Subtract16(Type a, Type b) { return _mm256_sub_epi16(a, b); }
  static Type Product16(Type a, Type b) { return _mm256_mullo_epi16(a, b); }
  static Type Max16(Type a, Type b) { return _mm256_max_epi16(a, b); }
  static Type MinUnsigned16(Type a, Type b) { return _mm256_min_epu16(a, b); }
  static Type Size16(Type a) { return _mm256_abs_epi16(a); }
  static Type Signs16(Type a) { return _mm256_srai_epi16(a, 15); }
  static Type Xor(Type a, Type b) { return _mm256_xor_si256(a, b); }
  static Type HighProduct16(Type a, Type b) { return _mm256_mulhi_epu16(a, b); }
  static Type ShiftRight16(Type a, int by) { return _mm256_srl_epi16(a, _mm_cvtsi32_si128(by)); }
  static Type Pack16(Type a, Type b) { return _mm256_packus_epi16(a, b); }
  static Type Add(Type a, Type b) { return _mm256_add_epi32(a, b); }
  static Type Pack(Type a, Type b, Type c, Type d) {
    return _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
  }
  /// Low halves of all 128-bit parts, then the high halves.
  static Type JoinHalves(Type bytes) { return _mm256_permute4x64_epi64(bytes, 0xD8); }
  static Type Single(Type sums, float factor) {
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(sums), _mm256_set1_ps(factor)));
  }
  static Type Precise(Type sums, double factor) {
    const __m256d scale = _mm256_set1_pd(factor);
    const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(sums));
    const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(sums, 1));
    return _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_mul_pd(high, scale)),
                            _mm256_cvttpd_epi32(_mm256_mul_pd(low, scale)));
  }
};

#else

struct Vector {
  using Type = __m512i;
  static Type Load(const void* from) { return _mm512_loadu_si512(from); }
  static void Store(uint8_t* to, Type value) { _mm512_storeu_si512(to, value); }
  static Type Zero() { return _mm512_setzero_si512(); }
  static Type Set(int32_t value) { return _mm512_set1_epi32(value); }
  static Type Low8(Type a, Type b) { return _mm512_unpacklo_epi8(a, b); }
  static Type High8(Type a, Type b) { return _mm512_unpackhi_epi8(a, b); }
  static Type Low16(Type a, Type b) { return _mm512_unpacklo_epi16(a, b); }
  static Type High16(Type a, Type b) { return _mm512_unpackhi_epi16(a, b); }
  static Type PairSum(Type a, Type b) { return _mm512_madd_epi16(a, b); }
  static Type PairOfBytes(Type a, Type b) { return _mm512_maddubs_epi16(a, b); }
  static Type Set16(int value) { return _mm512_set1_epi16(static_cast<int16_t>(value)); }
  static Type Add16(Type a, Type b) { return _mm512_add_epi16(a, b); }
  static Type AddSaturated16(Type a, Type b) { return _mm512_adds_epi16(a, b); }
  static Type Subtract16(Type a, Type b) { return _mm512_sub_epi16(a, b); }
  static Type Product16(Type a, Type b) { return _mm512_mullo_epi16(a, b); }
  static Type Max16(Type a, Type b) { return _mm512_max_epi16(a, b); }
  static Type MinUnsigned16(Type a, Type b) { return _mm512_min_epu16(a, b); }
  static Type Size16(Type a) { return _mm512_abs_epi16(a); }
  static Type Signs16(Type a) { return _mm512_srai_epi16(a, 15); }
  static Type Xor(Type a, Type b) { return _mm512_xor_si512(a, b); }
  static Type HighProduct16(Type a, Type b) { return _mm512_mulhi_epu16(a, b); }
  static Type ShiftRight16(Type a, int by) { return _mm512_srl_epi16(a, _mm_cvtsi32_si128(by)); }
  static Type Pack16(Type a, Type b) { return _mm512_packus_epi16(a, b); }
  static Type Add(Type a, Type b) { return _mm512_add_epi32(a, b); }
  static Type Pack(Type a, Type b, Type c, Type d) {
    return _mm512_packus_epi16(_mm512_packs_epi32(a, b), _mm512_packs_epi32(c, d));
  }
  static Type JoinHalves(Type bytes) {
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), bytes);
  }
  static Type Single(Type sums, float factor) {
    return _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(sums), _mm512_set1_ps(factor)));
  }
  static Type Precise(Type sums, double factor) {
    const __m512d scale = _mm512_set1_pd(factor);
    const __m512d low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(sums));
    const __m512d high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(sums, 1));
    return _mm512_inserti64x4(
        _mm512_castsi256_si512(_mm512_cvttpd_epi32(_mm512_mul_pd(low, scale))),
        _mm512_cvttpd_epi32(_mm512_mul_pd(high, scale)), 1);
  }
};

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif
#endif  // QEL_FILTER_SUM_VECTORS_H_
