#ifndef QEL_TRANSFORM_LANES_H_
#define QEL_TRANSFORM_LANES_H_

#include "transform/word_pixels.h"

// Vectors of 32-bit numbers as long as the registers of the level that QEL_LEVEL names, for kernel
// sources. Every lane rounds as a single number would. Everything has internal linkage.

#ifdef QEL_LEVEL_sse2
#define QEL_HAS_REGISTERS 0
#else
#define QEL_HAS_REGISTERS 1
#endif

namespace qel::QEL_LEVEL {
namespace {

#if defined(QEL_LEVEL_sse2)
constexpr size_t kLanes = 4;
#elif defined(QEL_LEVEL_avx2)
constexpr size_t kLanes = 8;
#else
constexpr size_t kLanes = 16;
#endif
typedef float Floats __attribute__((vector_size(4 * kLanes)));
typedef int32_t Ints __attribute__((vector_size(4 * kLanes)));

inline Floats LoadFloats(const float* values) {
  Floats lanes;
  __builtin_memcpy(&lanes, values, sizeof(lanes));
  return lanes;
}

/// Sums of weighted channels as bytes: clamped, then truncated.
inline Ints BytesOf(Floats sum) {
  const Floats zero = {};
  const Floats most = zero + 255.0f;
  sum = sum > most ? most : sum;
  sum = sum > zero ? sum : zero;
  return __builtin_convertvector(sum, Ints);
}

#if QEL_HAS_REGISTERS

#ifdef QEL_LEVEL_avx2
using Register = __m256i;
inline Register Join(__m128i a, __m128i b) { return _mm256_set_m128i(b, a); }
inline Register PairWordsLow(Register a, Register b) { return _mm256_unpacklo_epi32(a, b); }
inline Register PairWordsHigh(Register a, Register b) { return _mm256_unpackhi_epi32(a, b); }
inline Register PairLow(Register a, Register b) { return _mm256_unpacklo_epi64(a, b); }
inline Register PairHigh(Register a, Register b) { return _mm256_unpackhi_epi64(a, b); }
inline Register ShuffleBytes(Register v, __m128i order) {
  return _mm256_shuffle_epi8(v, _mm256_broadcastsi128_si256(order));
}
#else
using Register = __m512i;
inline Register Join(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m512i low = _mm512_inserti32x4(_mm512_castsi128_si512(a), b, 1);
  return _mm512_inserti32x4(_mm512_inserti32x4(low, c, 2), d, 3);
}
inline Register PairWordsLow(Register a, Register b) { return _mm512_unpacklo_epi32(a, b); }
inline Register PairWordsHigh(Register a, Register b) { return _mm512_unpackhi_epi32(a, b); }
inline Register PairLow(Register a, Register b) { return _mm512_unpacklo_epi64(a, b); }
inline Register PairHigh(Register a, Register b) { return _mm512_unpackhi_epi64(a, b); }
inline Register ShuffleBytes(Register v, __m128i order) {
  return _mm512_shuffle_epi8(v, _mm512_broadcast_i32x4(order));
}
#endif

/// words[k] = word k of sixteen bytes from each of `kLanes` addresses.
template <typename AddressOf>
inline void LoadWordColumns(Ints (&words)[4], AddressOf address_of) {
  const auto load = [&](size_t k) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(address_of(k)));
  };
  const auto load_each_fourth = [&](size_t k) {
#ifdef QEL_LEVEL_avx2
    return Join(load(k), load(k + 4));
#else
    return Join(load(k), load(k + 4), load(k + 8), load(k + 12));
#endif
  };
  const Register a = load_each_fourth(0);
  const Register b = load_each_fourth(1);
  const Register c = load_each_fourth(2);
  const Register d = load_each_fourth(3);
  const Register ab = PairWordsLow(a, b);
  const Register cd = PairWordsLow(c, d);
  words[0] = reinterpret_cast<Ints>(PairLow(ab, cd));
  words[1] = reinterpret_cast<Ints>(PairHigh(ab, cd));
  const Register ab_high = PairWordsHigh(a, b);
  const Register cd_high = PairWordsHigh(c, d);
  words[2] = reinterpret_cast<Ints>(PairLow(ab_high, cd_high));
  words[3] = reinterpret_cast<Ints>(PairHigh(ab_high, cd_high));
}

/// Byte `kByte` of every word as a number. The ways there keep different parts of the processor
/// busy.
template <int kByte>
inline Floats ByteOfWords(Ints words) {
  if constexpr (kByte == 0) {
    words &= 0xFF;
  } else if constexpr (kByte == 3) {
    typedef uint32_t Unsigned __attribute__((vector_size(4 * kLanes)));
    words = reinterpret_cast<Ints>(reinterpret_cast<Unsigned>(words) >> 24);
  } else {
    const __m128i order = _mm_setr_epi8(kByte, -1, -1, -1, kByte + 4, -1, -1, -1, kByte + 8, -1, -1,
                                        -1, kByte + 12, -1, -1, -1);
    words = reinterpret_cast<Ints>(ShuffleBytes(reinterpret_cast<Register>(words), order));
  }
  return __builtin_convertvector(words, Floats);
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_LANES_H_
