#ifndef QEL_SIMD_LEVELS_LANE_MASKS_H_
#define QEL_SIMD_LEVELS_LANE_MASKS_H_

#include "simd/levels/moves.h"

// Masks: truths of lanes, which the compiler keeps in registers of their own where there are any.

namespace qel::QEL_LEVEL {
namespace {

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
template <typename V>
QEL_SIMD_INLINE Mask<V> operator&(Mask<V> a, Mask<V> b) {
  return {a.raw & b.raw};
}
template <typename V>
QEL_SIMD_INLINE Mask<V> operator|(Mask<V> a, Mask<V> b) {
  return {a.raw | b.raw};
}
template <typename V>
QEL_SIMD_INLINE Mask<V> operator^(Mask<V> a, Mask<V> b) {
  return {a.raw ^ b.raw};
}
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
  struct Lanes {
    alignas(V::kBytes) typename V::Lane at[V::kLanes];
  };
  static constexpr Lanes kLanes = [] {
    Lanes lanes{};
    for (size_t i = 0; i < V::kLanes; ++i) {
      lanes.at[i] = static_cast<typename V::Lane>((kBits >> i & 1) != 0 ? ~typename V::Lane{} : 0);
    }
    return lanes;
  }();
  return MaskFromVec(LoadU<V>(&kLanes));
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
template <typename V>
QEL_SIMD_INLINE uint64_t BitsGreater(V a, V b) {
  return BitsFromMask(a > b);
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
  return BitsFromMask(mask) == 0;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_LANE_MASKS_H_
