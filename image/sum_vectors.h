#ifndef QEL_IMAGE_SUM_VECTORS_H_
#define QEL_IMAGE_SUM_VECTORS_H_

#include "image/colour_vectors.h"

// More instructions on vectors, for sums of weighted bytes in words and doublewords. Everything has
// internal linkage.

#ifdef QEL_HAS_COLOUR_VECTORS

namespace qel::QEL_LEVEL {
namespace {

/// Keeps `v` in a register: the compiler would rather load it once for each use.
inline Vector Once(Vector v) {
#ifndef QEL_EMULATED_AVX512
  asm("" : "+v"(v));
#endif
  return v;
}

inline Vector Load(const uint16_t* from) { return Load(reinterpret_cast<const uint8_t*>(from)); }
inline void Store(uint16_t* to, Vector v) { Store(reinterpret_cast<uint8_t*>(to), v); }

#ifdef QEL_LEVEL_avx2
inline Vector SubtractWords(Vector a, Vector b) { return _mm256_sub_epi16(a, b); }
inline Vector AddWordsSaturated(Vector a, Vector b) { return _mm256_adds_epi16(a, b); }
inline Vector Products(Vector a, Vector b) { return _mm256_mullo_epi16(a, b); }
inline Vector MaxWords(Vector a, Vector b) { return _mm256_max_epi16(a, b); }
inline Vector MinUnsignedWords(Vector a, Vector b) { return _mm256_min_epu16(a, b); }
inline Vector MaxUnsignedWords(Vector a, Vector b) { return _mm256_max_epu16(a, b); }
inline Vector SizesOfWords(Vector v) { return _mm256_abs_epi16(v); }
/// All bits of the words below 0.
inline Vector SignsOfWords(Vector v) { return _mm256_srai_epi16(v, 15); }
inline Vector ShiftWordsRight(Vector v, int by) {
  return _mm256_srl_epi16(v, _mm_cvtsi32_si128(by));
}
/// Low halves of all lanes, then the high halves.
inline Vector JoinHalves(Vector bytes) { return _mm256_permute4x64_epi64(bytes, 0xD8); }
inline Vector ScaleInSingle(Vector dwords, float factor) {
  return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(dwords), _mm256_set1_ps(factor)));
}
inline Vector ScaleInDouble(Vector dwords, double factor) {
  const __m256d scale = _mm256_set1_pd(factor);
  const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(dwords));
  const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(dwords, 1));
  return _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_mul_pd(high, scale)),
                          _mm256_cvttpd_epi32(_mm256_mul_pd(low, scale)));
}
#else
inline Vector SubtractWords(Vector a, Vector b) { return _mm512_sub_epi16(a, b); }
inline Vector AddWordsSaturated(Vector a, Vector b) { return _mm512_adds_epi16(a, b); }
inline Vector Products(Vector a, Vector b) { return _mm512_mullo_epi16(a, b); }
inline Vector MaxWords(Vector a, Vector b) { return _mm512_max_epi16(a, b); }
inline Vector MinUnsignedWords(Vector a, Vector b) { return _mm512_min_epu16(a, b); }
inline Vector MaxUnsignedWords(Vector a, Vector b) { return _mm512_max_epu16(a, b); }
inline Vector SizesOfWords(Vector v) { return _mm512_abs_epi16(v); }
/// All bits of the words below 0.
inline Vector SignsOfWords(Vector v) { return _mm512_srai_epi16(v, 15); }
inline Vector ShiftWordsRight(Vector v, int by) {
  return _mm512_srl_epi16(v, _mm_cvtsi32_si128(by));
}
inline Vector JoinHalves(Vector bytes) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), bytes);
}
inline Vector ScaleInSingle(Vector dwords, float factor) {
  return _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(dwords), _mm512_set1_ps(factor)));
}
inline Vector ScaleInDouble(Vector dwords, double factor) {
  const __m512d scale = _mm512_set1_pd(factor);
  const __m512d low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(dwords));
  const __m512d high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(dwords, 1));
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(_mm512_mul_pd(low, scale))),
                            _mm512_cvttpd_epi32(_mm512_mul_pd(high, scale)), 1);
}
#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif
#endif  // QEL_IMAGE_SUM_VECTORS_H_
