#ifndef QEL_SIMD_LEVELS_MOVES_H_
#define QEL_SIMD_LEVELS_MOVES_H_

#include "simd/levels/vec.h"

// Lanes converted and moved, in plain C++.

namespace qel::QEL_LEVEL {
namespace {

// Conversions.

/// Lane by lane; floats are cut off toward zero, and what does not fit 32 bits gives the lowest
/// number.
template <typename To, typename T, size_t n>
QEL_SIMD_INLINE To ConvertTo(Vec<T, n> v) {
  static_assert(To::kLanes == n / sizeof(T));
  if constexpr (std::is_floating_point_v<T> && std::is_integral_v<typename To::Lane>) {
    return EachLane<To>(
        [](T x) { return x >= T(-0x1p31) && x < T(0x1p31) ? static_cast<int32_t>(x) : INT32_MIN; },
        v);
  } else {
    return {__builtin_convertvector(v.raw, typename To::Raw)};
  }
}
/// The low bits of each lane, as many as those of `To` have.
template <typename To, typename T, size_t n>
QEL_SIMD_INLINE To TruncateTo(Vec<T, n> v) {
  return {__builtin_convertvector(v.raw, typename To::Raw)};
}
// Lanes moved.

template <typename R, typename V, typename At, size_t... i>
QEL_SIMD_INLINE R Shuffled(V a, V b, At at, std::index_sequence<i...>) {
  return {__builtin_shufflevector(a.raw, b.raw, static_cast<int>(at(i))...)};
}
/// Lane i is lane at(i) of `a` and, from their number on, of `b`; `at` has no state, so that the
/// compiler finds the instructions for that.
template <typename R, typename V, typename At>
QEL_SIMD_INLINE R Shuffled(V a, V b, At at) {
  return Shuffled<R>(a, b, at, std::make_index_sequence<R::kLanes>());
}
/// Lanes of a block.
template <typename V>
constexpr size_t kBlockLanes = 16 / sizeof(typename V::Lane);

template <typename V>
QEL_SIMD_INLINE Half<V> LowerHalf(V v) {
  return Shuffled<Half<V>>(v, v, [](size_t i) { return i; });
}
template <typename V>
QEL_SIMD_INLINE Half<V> UpperHalf(V v) {
  return Shuffled<Half<V>>(v, v, [](size_t i) { return V::kLanes / 2 + i; });
}
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, 2 * n> Combine(Vec<T, n> upper, Vec<T, n> lower) {
  return Shuffled<Vec<T, 2 * n>>(lower, upper, [](size_t i) { return i; });
}

/// a[0], b[0], a[1], b[1], ... of the lower halves of each block.
template <typename V>
QEL_SIMD_INLINE V InterleaveLower(V a, V b) {
  return Shuffled<V>(a, b, [](size_t i) {
    constexpr size_t m = kBlockLanes<V>;
    return i % 2 * V::kLanes + i - i % m + i % m / 2;
  });
}
template <typename V>
QEL_SIMD_INLINE V InterleaveUpper(V a, V b) {
  return Shuffled<V>(a, b, [](size_t i) {
    constexpr size_t m = kBlockLanes<V>;
    return i % 2 * V::kLanes + i - i % m + i % m / 2 + m / 2;
  });
}
/// Saturates signed lanes to half as many bits: of each block those of `a`, then those of `b`,
/// which undoes interleaving.
template <typename To, typename V>
QEL_SIMD_INLINE To ReorderDemote2To(V a, V b) {
  constexpr size_t kBlock = 16 / sizeof(typename To::Lane);
  To r;
  for (size_t i = 0; i < To::kLanes; ++i) {
    const size_t at = i % kBlock;
    const V& from = at < kBlock / 2 ? a : b;
    r.raw[i] = Saturate<typename To::Lane>(from.raw[i / kBlock * (kBlock / 2) + at % (kBlock / 2)]);
  }
  return r;
}
/// Bytes at places counted within each block; 0 for places from 128 on.
template <size_t n>
QEL_SIMD_INLINE Vec<uint8_t, n> TableLookupBytesOr0(Vec<uint8_t, n> bytes, Vec<uint8_t, n> places) {
  const LanesOf from(bytes), at(places);
  uint8_t r[n];
  for (size_t i = 0; i < n; ++i) {
    r[i] = at.at[i] < 128 ? from.at[i - i % 16 + at.at[i] % 16] : uint8_t{0};
  }
  return LoadU<Vec<uint8_t, n>>(r);
}
/// Of each block the bytes of `lower` from `kShift` on, then the first ones of `upper`.
template <size_t kShift, typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> CombineShiftRightBytes(Vec<T, n> upper, Vec<T, n> lower) {
  using Bytes = Vec<uint8_t, n>;
  return BitCast<Vec<T, n>>(Shuffled<Bytes>(
      BitCast<Bytes>(lower), BitCast<Bytes>(upper),
      [](size_t i) { return i % 16 + kShift < 16 ? i + kShift : n + i + kShift - 16; }));
}

/// Lanes of `v` at places, counted modulo their number.
template <typename T, typename Place, size_t n>
QEL_SIMD_INLINE Vec<T, n> TableLookupLanes(Vec<T, n> v, Vec<Place, n> places) {
  constexpr size_t kLanes = n / sizeof(T);
  T from[kLanes];
  StoreU(v, from);
  return EachLane<Vec<T, n>>([&](Place place) { return from[place % kLanes]; }, places);
}
/// Lanes of `a` and, from their number on, of `b`.
template <typename T, typename Place, size_t n>
QEL_SIMD_INLINE Vec<T, n> TwoTablesLookupLanes(Vec<T, n> a, Vec<T, n> b, Vec<Place, n> places) {
  constexpr size_t kLanes = n / sizeof(T);
  T from[2 * kLanes];
  StoreU(a, from);
  StoreU(b, from + kLanes);
  return EachLane<Vec<T, n>>([&](Place place) { return from[place % (2 * kLanes)]; }, places);
}
/// The blocks at address_of(0), address_of(1), ...
template <typename V, typename AddressOf>
QEL_SIMD_INLINE V GatherBlocks(const AddressOf& address_of) {
  alignas(V::kBytes) uint8_t bytes[V::kBytes];
  for (size_t i = 0; i < V::kBytes / 16; ++i) {
    __builtin_memcpy(bytes + 16 * i, address_of(i), 16);
  }
  return LoadU<V>(bytes);
}
/// Blocks that lie `stride` bytes apart.
template <typename V>
QEL_SIMD_INLINE V LoadBlocks(const uint8_t* from, ptrdiff_t stride) {
  return GatherBlocks<V>([=](size_t i) { return from + static_cast<ptrdiff_t>(i) * stride; });
}
template <typename T, size_t n>
QEL_SIMD_INLINE void StoreBlocks(Vec<T, n> v, uint8_t* to, ptrdiff_t stride) {
  for (size_t i = 0; i < n / 16; ++i) {
    __builtin_memcpy(to + static_cast<ptrdiff_t>(i) * stride,
                     reinterpret_cast<const uint8_t*>(&v) + 16 * i, 16);
  }
}
template <size_t kBlock, typename T, size_t n>
QEL_SIMD_INLINE Vec<T, 16> ExtractBlock(Vec<T, n> v) {
  // GCC makes one instruction of copies, which a store takes along, but two of shuffles.
  Vec<T, 16> block;
  __builtin_memcpy(&block, reinterpret_cast<const uint8_t*>(&v) + 16 * kBlock, 16);
  return block;
}
/// One block in the place of each.
template <typename V>
QEL_SIMD_INLINE V LoadDup128(const void* from) {
  return LoadBlocks<V>(static_cast<const uint8_t*>(from), 0);
}
/// The blocks of `lower` after the first one, then the first one of `upper`.
template <typename V>
QEL_SIMD_INLINE V NextBlocks(V upper, V lower) {
  return Shuffled<V>(lower, upper, [](size_t i) { return i + kBlockLanes<V>; });
}
/// Lanes in the opposite order: within blocks, then the blocks.
template <typename V>
QEL_SIMD_INLINE V Reverse(V v) {
  constexpr size_t m = kBlockLanes<V>;
  const V turned = Shuffled<V>(v, v, [](size_t i) { return i - i % m + m - 1 - i % m; });
  return Shuffled<V>(turned, turned, [](size_t i) { return V::kLanes - m - i + 2 * (i % m); });
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_MOVES_H_
