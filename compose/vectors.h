#ifndef QEL_COMPOSE_VECTORS_H_
#define QEL_COMPOSE_VECTORS_H_

#include <cstdint>
#include <cstring>

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
  using U8x16 = uint8_t __attribute__((vector_size(16)));
  using U16x8 = uint16_t __attribute__((vector_size(16)));
  using I32x4 = int32_t __attribute__((vector_size(16)));
  int32_t four;
  std::memcpy(&four, from, sizeof(four));
  // Interleaved with zeros twice: of a conversion of bytes, compilers make four scalar ones.
  const auto bytes = reinterpret_cast<U8x16>(I32x4{four});
  const auto words = reinterpret_cast<U16x8>(__builtin_shufflevector(
      bytes, U8x16{}, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
  const auto lanes =
      reinterpret_cast<I32x4>(__builtin_shufflevector(words, U16x8{}, 0, 8, 1, 9, 2, 10, 3, 11));
  return __builtin_convertvector(lanes, F32x4);
}

/// The byte nearest to a value, which may lie outside of 0 to 255.
inline uint8_t ToByte(float value) {
  const float bounded = value > 0 ? (value < 255 ? value : 255) : 0;
  return static_cast<uint8_t>(bounded + 0.5f);
}

}  // namespace qel::compose

#endif  // QEL_COMPOSE_VECTORS_H_
