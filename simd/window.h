#ifndef QEL_SIMD_WINDOW_H_
#define QEL_SIMD_WINDOW_H_

#include "simd/prefetch.h"
#include "simd/simd.h"

// Rows that are written vector by vector, and windows of a few columns along them. Windows have
// their columns computed once each: a vector of them is kept while the next one is made, and the
// neighbours are shifted in from there. Loading them again from where they lie would touch most
// lines of the cache twice.

namespace qel::QEL_LEVEL {
namespace {

/// The bytes of `v` from `kBytes` on, at most `kMostShifted`, then the first ones of `next`.
template <size_t kBytes>
QEL_SIMD_INLINE U8 ShiftedWindow(U8 v, U8 next) {
  if constexpr (kBytes > 16) {
    return ShiftedWindow<kBytes - 16>(NextBlocks(next, v), NextBlocks(next, next));
  } else {
    return CombineShiftRightBytes<kBytes>(NextBlocks(next, v), v);
  }
}
constexpr size_t kMostShifted = kVectorBytes > 16 ? 32 : 16;

/// Wider lanes of the lower and of the upper halves of blocks of bytes, the order that
/// ReorderDemote2To undoes.
template <typename V>
struct Halves {
  V lower, upper;
};
template <size_t kBytes, typename V>
QEL_SIMD_INLINE Halves<V> ShiftedWindow(const Halves<V>& v, const Halves<V>& next) {
  return {CombineShiftRightBytes<2 * kBytes>(v.upper, v.lower),
          CombineShiftRightBytes<2 * kBytes>(NextBlocks(next.lower, v.lower), v.upper)};
}

/// Stores the first `count` bytes, at most a vector.
QEL_SIMD_INLINE void StoreN(U8 v, uint8_t* to, size_t count) {
  if (count >= kVectorBytes) return StoreU(v, to);
  alignas(64) uint8_t all[kVectorBytes];
  StoreU(v, all);
  __builtin_memcpy(to, all, count);
}

/// Stores bytes(k) at dest + k, vector by vector. The last one overlaps the one before it where
/// there are enough.
template <typename Bytes>
inline void StoreVectors(uint8_t* dest, size_t count, const Bytes& bytes) {
  if (count < kVectorBytes) return StoreN(bytes(0), dest, count);
  size_t k = 0;
  for (; k + kVectorBytes <= count; k += kVectorBytes) {
    PrefetchAhead<kVectorBytes>(dest + k);
    StoreU(bytes(k), dest + k);
  }
  if (k < count) StoreU(bytes(count - kVectorBytes), dest + count - kVectorBytes);
}

/// Of each four bytes the first three, with the fourth ones of another vector.
QEL_SIMD_INLINE U8 WithFourthBytes(U8 v, U8 fourth) {
  return IfThenElse(MaskFromBits<U8, 0x8888'8888'8888'8888u>(), fourth, v);
}

template <size_t kStep, typename Column, typename Finish, size_t... kTaps>
inline void StoreWindowsOf(uint8_t* dest, size_t count, const Column& column, const Finish& finish,
                           std::index_sequence<kTaps...>) {
  const auto finish_at = [&](size_t k) { return finish(k, column(k + kTaps * kStep)...); };
  if (count < kVectorBytes) return StoreN(finish_at(0), dest, count);
  constexpr size_t kReach = (sizeof...(kTaps) - 1) * kStep;
  auto here = column(0);
  size_t k = 0;
  // The columns of the next vector must lie within reach.
  for (; k + 2 * kVectorBytes <= count + kReach; k += kVectorBytes) {
    const auto next = column(k + kVectorBytes);
    // Larger windows take longer than the memory.
    if constexpr (sizeof...(kTaps) <= 3) PrefetchAhead<kVectorBytes>(dest + k);
    StoreU(finish(k, ShiftedWindow<kTaps * kStep>(here, next)...), dest + k);
    here = next;
  }
  if (k + kVectorBytes <= count) StoreU(finish_at(k), dest + k);
  // The last vector overlaps the one before it.
  StoreU(finish_at(count - kVectorBytes), dest + count - kVectorBytes);
}

/// dest[i] = finish(i, column(i), column(i + kStep), ...) of `kTaps` columns for `count` bytes.
/// What `column` gives stands for a vector of bytes and has a ShiftedWindow; `finish` gives a
/// vector. Reads a whole vector of columns where there are fewer.
template <size_t kTaps, size_t kStep, typename Column, typename Finish>
inline void StoreWindows(uint8_t* dest, size_t count, const Column& column, const Finish& finish) {
  StoreWindowsOf<kStep>(dest, count, column, finish, std::make_index_sequence<kTaps>());
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_WINDOW_H_
