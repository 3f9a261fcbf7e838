#ifndef QEL_COMPOSE_VECTORS_H_
#define QEL_COMPOSE_VECTORS_H_

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace qel::compose {

/// Four floats: the channels of a pixel, or four samples of a grey row. Additions and
/// multiplications go lane by lane in the written order on every processor.
using F32x4 = float __attribute__((vector_size(16)));

inline F32x4 Broadcast(float value) { return F32x4{value, value, value, value}; }

inline F32x4 LoadFloats(const float* from) {
  F32x4 value;
  std::memcpy(&value, from, sizeof(value));
  return value;
}

/// Four bytes as floats.
inline F32x4 LoadBytes(const uint8_t* from) {
#ifdef __SSE2__
  // Compilers make four scalar conversions of the general form.
  int32_t bytes;
  std::memcpy(&bytes, from, sizeof(bytes));
  const __m128i zero = _mm_setzero_si128();
  const __m128i words = _mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), zero);
  return _mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero));
#else
  using U8x4 = uint8_t __attribute__((vector_size(4)));
  U8x4 value;
  std::memcpy(&value, from, sizeof(value));
  return __builtin_convertvector(value, F32x4);
#endif
}

/// The byte nearest to a value, which may lie outside of 0 to 255.
inline uint8_t ToByte(float value) {
  const float bounded = value > 0 ? (value < 255 ? value : 255) : 0;
  return static_cast<uint8_t>(bounded + 0.5f);
}

}  // namespace qel::compose

#endif  // QEL_COMPOSE_VECTORS_H_
