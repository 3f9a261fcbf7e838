#ifndef QEL_SIMD_LEVELS_MOVES_H_
#define QEL_SIMD_LEVELS_MOVES_H_

#include "simd/levels/vec.h"

// Lanes converted, moved and compared, in plain C++.

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
template <size_t kBlock, typename T, size_t n>
QEL_SIMD_INLINE Vec<T, 16> ExtractBlock(Vec<T, n> v) {
  // GCC makes one instruction of copies, which a store takes along, but two of shuffles.
  Vec<T, 16> block;
  __builtin_memcpy(&block, reinterpret_cast<const uint8_t*>(&v) + 16 * kBlock, 16);
  return block;
}
template <typename T, size_t n>
QEL_SIMD_INLINE void StoreBlocks(Vec<T, n> v, uint8_t* to, ptrdiff_t stride) {
  [&]<size_t... i>(std::index_sequence<i...>) __attribute__((always_inline)) {
    (StoreU(ExtractBlock<i>(v), to + static_cast<ptrdiff_t>(i) * stride), ...);
  }
  (std::make_index_sequence<n / 16>());
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
// Masks: truths of lanes, which the compiler keeps in registers of their own where there are any.

/// One truth per lane of `V`: all bits of a lane or none.
template <typename V>
struct Mask {
  using Raw = decltype(typename V::Raw{} < typename V::Raw{});
  Raw raw;
};

#define QEL_SIMD_COMPARISON(op)                                           \
  template <typename T, size_t n>                                         \
  QEL_SIMD_INLINE Mask<Vec<T, n>> operator op(Vec<T, n> a, Vec<T, n> b) { \
    return {a.raw op b.raw};                                              \
  }
QEL_SIMD_COMPARISON(==)
QEL_SIMD_COMPARISON(!=)
QEL_SIMD_COMPARISON(<)
QEL_SIMD_COMPARISON(<=)
QEL_SIMD_COMPARISON(>)
QEL_SIMD_COMPARISON(>=)
#undef QEL_SIMD_COMPARISON
#define QEL_SIMD_OF_MASKS(op)                                 \
  template <typename V>                                       \
  QEL_SIMD_INLINE Mask<V> operator op(Mask<V> a, Mask<V> b) { \
    return {a.raw op b.raw};                                  \
  }
QEL_SIMD_OF_MASKS(&)
QEL_SIMD_OF_MASKS(|)
QEL_SIMD_OF_MASKS(^)
#undef QEL_SIMD_OF_MASKS
template <typename V>
QEL_SIMD_INLINE Mask<V> operator~(Mask<V> mask) {
  return {~mask.raw};
}

/// All bits of the lanes that are true.
template <typename V>
QEL_SIMD_INLINE V VecFromMask(Mask<V> mask) {
  return {reinterpret_cast<typename V::Raw>(mask.raw)};
}
/// True for lanes that are not 0; they must have all bits or none.
template <typename T, size_t n>
QEL_SIMD_INLINE Mask<Vec<T, n>> MaskFromVec(Vec<T, n> v) {
  return {reinterpret_cast<typename Mask<Vec<T, n>>::Raw>(v.raw)};
}
/// Bit i as lane i, a constant.
template <typename V, uint64_t kBits>
QEL_SIMD_INLINE Mask<V> MaskFromBits() {
  using Lane = typename V::Lane;
  return MaskFromVec(LanesFrom<V>([](size_t i) { return (kBits >> i & 1) != 0 ? ~Lane{} : 0; }));
}
/// The same truths for lanes of another size.
template <typename To, typename V>
QEL_SIMD_INLINE Mask<To> RebindMask(Mask<V> mask) {
  return {__builtin_convertvector(mask.raw, typename Mask<To>::Raw)};
}
template <typename V>
QEL_SIMD_INLINE V IfThenElse(Mask<V> mask, V yes, V no) {
  return {mask.raw ? yes.raw : no.raw};
}
/// Adds 1 where true.
template <typename V>
QEL_SIMD_INLINE V IncrementWhere(Mask<V> mask, V v) {
  return kVectorBytes == 64 ? IfThenElse(mask, v + Set<V>(1), v) : v - VecFromMask(mask);
}
template <typename V>
QEL_SIMD_INLINE V DecrementWhere(Mask<V> mask, V v) {
  return kVectorBytes == 64 ? IfThenElse(mask, v - Set<V>(1), v) : v + VecFromMask(mask);
}
/// `yes` where the highest bit of a lane is set.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> IfNegativeThenElse(Vec<T, n> v, Vec<T, n> yes, Vec<T, n> no) {
  using Signed = Vec<std::make_signed_t<T>, n>;
  return {BitCast<Signed>(v).raw < 0 ? yes.raw : no.raw};
}
/// Lane i as bit i.
template <typename V>
QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  uint64_t bits = 0;
  for (size_t i = 0; i < V::kLanes; ++i) bits |= uint64_t{mask.raw[i] != 0} << i;
  return bits;
}
/// Lane i of a comparison as bit i.
template <typename V>
QEL_SIMD_INLINE uint64_t BitsEqual(V a, V b) {
  return BitsFromMask(a == b);
}
/// True for the first `count` lanes.
template <typename V>
QEL_SIMD_INLINE Mask<V> FirstN(size_t count) {
  using Lane = typename V::Lane;
  return Iota<V>(0) < Set<V>(static_cast<Lane>(count < V::kLanes ? count : V::kLanes));
}
/// The lanes that are true, 0 in the others, whose memory is not touched.
template <typename V>
QEL_SIMD_INLINE V MaskedLoad(Mask<V> mask, const void* from) {
  V v = {};
  for (size_t i = 0; i < V::kLanes; ++i) {
    typename V::Lane lane;
    if (mask.raw[i] == 0) continue;
    __builtin_memcpy(&lane, static_cast<const uint8_t*>(from) + i * sizeof(lane), sizeof(lane));
    v.raw[i] = lane;
  }
  return v;
}
/// Touches the memory of lanes that are true only.
template <typename V>
QEL_SIMD_INLINE void BlendedStore(V v, Mask<V> mask, void* to) {
  for (size_t i = 0; i < V::kLanes; ++i) {
    const typename V::Lane lane = v.raw[i];
    if (mask.raw[i] == 0) continue;
    __builtin_memcpy(static_cast<uint8_t*>(to) + i * sizeof(lane), &lane, sizeof(lane));
  }
}
template <typename V>
QEL_SIMD_INLINE bool AllFalse(Mask<V> mask) {
  using Words = Vec<uint64_t, V::kBytes>;
  const LanesOf<Words> words(BitCast<Words>(VecFromMask(mask)));
  uint64_t any = 0;
  for (const uint64_t word : words.at) any |= word;
  return any == 0;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_MOVES_H_
