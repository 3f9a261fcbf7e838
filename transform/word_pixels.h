#ifndef QEL_TRANSFORM_WORD_PIXELS_H_
#define QEL_TRANSFORM_WORD_PIXELS_H_

#include <cstddef>
#include <cstdint>

// Pixels of 1, 3 or 4 bytes as the words of a register, for kernel sources at the higher levels.
// Everything has internal linkage.

#ifndef QEL_LEVEL_sse2
#include <immintrin.h>

namespace qel::QEL_LEVEL {
namespace {

/// Words of `kBytes` bytes at four offsets.
template <int kBytes>
inline __m128i LoadFour(const uint8_t* source, const int32_t* offsets) {
  if constexpr (kBytes == 1) {
    __m128i words = _mm_insert_epi8(_mm_setzero_si128(), source[offsets[0]], 0);
    words = _mm_insert_epi8(words, source[offsets[1]], 4);
    words = _mm_insert_epi8(words, source[offsets[2]], 8);
    return _mm_insert_epi8(words, source[offsets[3]], 12);
  }
  const auto load = [&](size_t i) {
    int32_t word;
    __builtin_memcpy(&word, source + offsets[i], 4);
    return word;
  };
  const __m128i first = _mm_insert_epi32(_mm_cvtsi32_si128(load(0)), load(1), 1);
  return _mm_insert_epi32(_mm_insert_epi32(first, load(2), 2), load(3), 3);
}
#ifndef QEL_LEVEL_avx2

/// Words of `kBytes` bytes at sixteen offsets. Loads of their own start earlier than those of a
/// gather instruction.
template <int kBytes>
inline __m512i LoadSixteen(const uint8_t* source, const int32_t* offsets) {
  __m512i words = _mm512_castsi128_si512(LoadFour<kBytes>(source, offsets));
  words = _mm512_inserti32x4(words, LoadFour<kBytes>(source, offsets + 4), 1);
  words = _mm512_inserti32x4(words, LoadFour<kBytes>(source, offsets + 8), 2);
  return _mm512_inserti32x4(words, LoadFour<kBytes>(source, offsets + 12), 3);
}

#endif

#ifdef QEL_LEVEL_avx512vbmi

/// The lowest `count` lanes of bytes.
constexpr __mmask64 FirstBytes(size_t count) {
  return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

/// Sixteen pixels of 3 bytes as words; the fourth byte is not defined.
inline __m512i LoadWords3(const uint8_t* pixels) {
  alignas(64) static constexpr uint8_t kOrder[64] = {
      0,  1,  2,  0,  3,  4,  5,  0,  6,  7,  8,  0,  9,  10, 11, 0,  12, 13, 14, 0,  15, 16,
      17, 0,  18, 19, 20, 0,  21, 22, 23, 0,  24, 25, 26, 0,  27, 28, 29, 0,  30, 31, 32, 0,
      33, 34, 35, 0,  36, 37, 38, 0,  39, 40, 41, 0,  42, 43, 44, 0,  45, 46, 47, 0};
  return _mm512_permutexvar_epi8(_mm512_load_si512(kOrder),
                                 _mm512_maskz_loadu_epi8(FirstBytes(48), pixels));
}

/// Stores `count` (at most 16) pixels of `kBytes` bytes from words. Sixteen take plain stores:
/// masked ones take several times as long.
template <int kBytes>
inline void StoreWords(uint8_t* pixels, __m512i words, size_t count = 16) {
  if constexpr (kBytes == 4) {
    if (count >= 16) {
      _mm512_storeu_si512(pixels, words);
    } else {
      _mm512_mask_storeu_epi8(pixels, FirstBytes(4 * count), words);
    }
  } else if constexpr (kBytes == 1) {
    const __m128i bytes = _mm512_cvtepi32_epi8(words);
    if (count >= 16) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), bytes);
    } else {
      _mm_mask_storeu_epi8(pixels, static_cast<__mmask16>(FirstBytes(count)), bytes);
    }
  } else {
    alignas(64) static constexpr uint8_t kOrder[64] = {
        0,  1,  2,  4,  5,  6,  8,  9,  10, 12, 13, 14, 16, 17, 18, 20,
        21, 22, 24, 25, 26, 28, 29, 30, 32, 33, 34, 36, 37, 38, 40, 41,
        42, 44, 45, 46, 48, 49, 50, 52, 53, 54, 56, 57, 58, 60, 61, 62};
    const __m512i bytes = _mm512_permutexvar_epi8(_mm512_load_si512(kOrder), words);
    if (count >= 16) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels), _mm512_castsi512_si256(bytes));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels + 32),
                       _mm512_extracti32x4_epi32(bytes, 2));
    } else {
      _mm512_mask_storeu_epi8(pixels, FirstBytes(3 * count), bytes);
    }
  }
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif

#endif  // QEL_TRANSFORM_WORD_PIXELS_H_
