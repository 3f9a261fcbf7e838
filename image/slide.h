#ifndef QEL_IMAGE_SLIDE_H_
#define QEL_IMAGE_SLIDE_H_

#include <utility>

#include "image/sum_vectors.h"

// Rows that are written vector by vector. Windows of a few columns have these reduced once each: a
// vector of them is kept while the next one is made, and the neighbours are shifted in from there.
// Loading them again from where they lie would touch most lines of the cache twice. Everything has
// internal linkage.

#ifdef QEL_HAS_COLOUR_VECTORS

namespace qel::QEL_LEVEL {
namespace {

/// The lanes after the first one of `v`, and the first one of `next`.
inline Vector NextLanes(Vector v, Vector next) {
#ifdef QEL_LEVEL_avx2
  return _mm256_permute2x128_si256(v, next, 0x21);
#else
  return _mm512_alignr_epi32(next, v, 4);
#endif
}

/// In each lane, the bytes of `v` from `kBytes` on, then the first ones of `next`.
template <size_t kBytes>
Vector ShiftLanes(Vector v, Vector next) {
  static_assert(kBytes <= 16);
  if constexpr (kBytes == 0) return v;
  if constexpr (kBytes == 16) return next;
#ifdef QEL_LEVEL_avx2
  return _mm256_alignr_epi8(next, v, kBytes % 16);
#else
  return _mm512_alignr_epi8(next, v, kBytes % 16);
#endif
}

/// The bytes of `v` from `kBytes` on, then the first ones of `next`.
template <size_t kBytes>
Vector Shifted(Vector v, Vector next) {
  return ShiftLanes<kBytes>(v, NextLanes(v, next));
}

/// Words of the low and high halves of each lane of bytes, the order that packing undoes.
struct Words {
  Vector low;
  Vector high;
};
/// The same for the words of bytes.
template <size_t kBytes>
Words Shifted(const Words& v, const Words& next) {
  return {ShiftLanes<2 * kBytes>(v.low, v.high),
          ShiftLanes<2 * kBytes>(v.high, NextLanes(v.low, next.low))};
}

/// Stores the first `count` bytes, less than a vector.
inline void StoreFirst(uint8_t* dest, Vector bytes, size_t count) {
  alignas(64) uint8_t all[kVectorBytes];
  Store(all, bytes);
  __builtin_memcpy(dest, all, count);
}

/// Stores bytes(k) at dest + k, vector by vector. The last one overlaps the one before it where
/// there are enough.
template <typename Bytes>
inline void StoreVectors(uint8_t* dest, size_t count, const Bytes& bytes) {
  if (count < kVectorBytes) return StoreFirst(dest, bytes(0), count);
  size_t k = 0;
  for (; k + kVectorBytes <= count; k += kVectorBytes) Store(dest + k, bytes(k));
  if (k < count) Store(dest + count - kVectorBytes, bytes(count - kVectorBytes));
}

/// Of 4-byte pixels: the colours of one vector with the fourth bytes of another.
inline Vector JoinAlpha(Vector colours, Vector alphas) {
  const Vector mask = FillDwords(0xFF000000u);
#ifdef QEL_LEVEL_avx2
  return _mm256_blendv_epi8(colours, alphas, mask);
#else
  constexpr int kFirstChooses = 0xCA;
  return _mm512_ternarylogic_epi32(mask, alphas, colours, kFirstChooses);
#endif
}

template <size_t kStep, typename Column, typename Finish, size_t... kTaps>
inline void SlideTaps(uint8_t* dest, size_t count, const Column& column, const Finish& finish,
                      std::index_sequence<kTaps...>) {
  const auto finish_at = [&](size_t k) { return finish(k, column(k + kTaps * kStep)...); };
  if (count < kVectorBytes) return StoreFirst(dest, finish_at(0), count);
  constexpr size_t kReach = (sizeof...(kTaps) - 1) * kStep;
  auto here = column(0);
  size_t k = 0;
  // The columns of the next vector must lie within reach.
  for (; k + 2 * kVectorBytes <= count + kReach; k += kVectorBytes) {
    const auto next = column(k + kVectorBytes);
    Store(dest + k, finish(k, Shifted<kTaps * kStep>(here, next)...));
    here = next;
  }
  if (k + kVectorBytes <= count) Store(dest + k, finish_at(k));
  // The last vector overlaps the one before it.
  Store(dest + count - kVectorBytes, finish_at(count - kVectorBytes));
}

/// dest[i] = finish(i, column(i), column(i + kStep), ...) of `kTaps` columns for `count` bytes.
/// What `column` gives stands for a vector of bytes and can be shifted; `finish` gives a vector.
/// Reads a whole vector of columns where there are fewer.
template <size_t kTaps, size_t kStep, typename Column, typename Finish>
inline void Slide(uint8_t* dest, size_t count, const Column& column, const Finish& finish) {
  SlideTaps<kStep>(dest, count, column, finish, std::make_index_sequence<kTaps>());
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif
#endif  // QEL_IMAGE_SLIDE_H_
