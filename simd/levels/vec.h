#ifndef QEL_SIMD_LEVELS_VEC_H_
#define QEL_SIMD_LEVELS_VEC_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

// Vectors of typed lanes in plain C++, which the compiler turns into the instructions of the level
// at hand. Included by simd/simd.h, where the vocabulary is explained; what the compiler makes
// little of is said again, for the types at hand, in the file of the level.

#define QEL_SIMD_INLINE inline __attribute__((always_inline))

namespace qel::QEL_LEVEL {
namespace {

/// `kSize` bytes of lanes of type `T`.
template <typename T, size_t kSize>
struct Vec {
  using Lane = T;
  static constexpr size_t kBytes = kSize;
  static constexpr size_t kLanes = kSize / sizeof(T);
  typedef T Raw __attribute__((vector_size(kSize)));
  typedef T Unaligned __attribute__((vector_size(kSize), aligned(1), may_alias));
  Raw raw;
};

using U8 = Vec<uint8_t, kVectorBytes>;
using I8 = Vec<int8_t, kVectorBytes>;
using U16 = Vec<uint16_t, kVectorBytes>;
using I16 = Vec<int16_t, kVectorBytes>;
using U32 = Vec<uint32_t, kVectorBytes>;
using I32 = Vec<int32_t, kVectorBytes>;
using U64 = Vec<uint64_t, kVectorBytes>;
using F32 = Vec<float, kVectorBytes>;
using F64 = Vec<double, kVectorBytes>;
/// Half as many lanes, and one block of 16 bytes.
template <typename V>
using Half = Vec<typename V::Lane, V::kBytes / 2>;
template <typename V>
using Block = Vec<typename V::Lane, 16>;

// Memory and constants.

/// Lanes from any address.
template <typename V>
QEL_SIMD_INLINE V LoadU(const void* from) {
  return V{*static_cast<const typename V::Unaligned*>(from)};
}
template <typename T, size_t n>
QEL_SIMD_INLINE void StoreU(Vec<T, n> v, void* to) {
  *static_cast<typename Vec<T, n>::Unaligned*>(to) = v.raw;
}
template <typename V>
QEL_SIMD_INLINE V Zero() {
  return V{typename V::Raw{}};
}
template <typename V>
QEL_SIMD_INLINE V Set(typename V::Lane value) {
  return V{value - typename V::Raw{}};  // Adding would lose the sign of -0.
}
template <typename V, typename Of, size_t... i>
QEL_SIMD_INLINE V LanesFrom(const Of& of, std::index_sequence<i...>) {
  return V{typename V::Raw{static_cast<typename V::Lane>(of(i))...}};
}
/// of(0), of(1), ... from registers or scattered memory.
template <typename V, typename Of>
QEL_SIMD_INLINE V LanesFrom(const Of& of) {
  return LanesFrom<V>(of, std::make_index_sequence<V::kLanes>());
}
/// first, first + 1, ...
template <typename V>
QEL_SIMD_INLINE V Iota(typename V::Lane first) {
  return V{LanesFrom<V>([](size_t i) { return i; }).raw + first};
}
/// The same bits as other lanes.
template <typename To, typename T, size_t n>
QEL_SIMD_INLINE To BitCast(Vec<T, n> v) {
  static_assert(To::kBytes == n);
  return To{reinterpret_cast<typename To::Raw>(v.raw)};
}
/// Keeps `v` in a register: the compiler would rather load it again for each use.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> KeepInRegister(Vec<T, n> v) {
#if defined(__x86_64__) && !defined(QEL_EMULATED_AVX512)
  asm("" : "+v"(v.raw));
#endif
  return v;
}

// Operators, lane by lane. Whole numbers wrap around.

template <typename T, size_t n>
using WrappingOf = Vec<typename std::conditional_t<std::is_integral_v<T>, std::make_unsigned<T>,
                                                   std::type_identity<T>>::type,
                       n>;
#define QEL_SIMD_OPERATOR(op)                                             \
  template <typename T, size_t n>                                         \
  QEL_SIMD_INLINE Vec<T, n> operator op(Vec<T, n> a, Vec<T, n> b) {       \
    using W = WrappingOf<T, n>;                                           \
    return BitCast<Vec<T, n>>(W{BitCast<W>(a).raw op BitCast<W>(b).raw}); \
  }                                                                       \
  template <typename T, size_t n>                                         \
  QEL_SIMD_INLINE Vec<T, n>& operator op##=(Vec<T, n>& a, Vec<T, n> b) {  \
    return a = a op b;                                                    \
  }
QEL_SIMD_OPERATOR(+)
QEL_SIMD_OPERATOR(-)
QEL_SIMD_OPERATOR(*)
QEL_SIMD_OPERATOR(/)
QEL_SIMD_OPERATOR(&)
QEL_SIMD_OPERATOR(|)
QEL_SIMD_OPERATOR(^)
#undef QEL_SIMD_OPERATOR
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> operator~(Vec<T, n> v) {
  return {~v.raw};
}
template <int kBits, typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> ShiftLeft(Vec<T, n> v) {
  using W = WrappingOf<T, n>;
  return BitCast<Vec<T, n>>(W{BitCast<W>(v).raw << kBits});
}
/// Signed lanes keep their sign.
template <int kBits, typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> ShiftRight(Vec<T, n> v) {
  return {v.raw >> kBits};
}
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> ShiftRightSame(Vec<T, n> v, int bits) {
  return {v.raw >> static_cast<T>(bits)};
}

// Functions of lanes.

/// Lanes in memory.
template <typename V>
struct LanesOf {
  QEL_SIMD_INLINE explicit LanesOf(V v) { StoreU(v, at); }
  alignas(V::kBytes) typename V::Lane at[V::kLanes];
};
/// r[i] = of(v[i]...), through memory; the compiler makes vectors again where it can.
template <typename R, typename Of, typename... V>
QEL_SIMD_INLINE R EachLane(const Of& of, V... v) {
  const auto each = [&](const auto&... lanes) {
    alignas(R::kBytes) typename R::Lane r[R::kLanes];
    for (size_t i = 0; i < R::kLanes; ++i) r[i] = static_cast<typename R::Lane>(of(lanes.at[i]...));
    return LoadU<R>(r);
  };
  return each(LanesOf<V>(v)...);
}
template <typename Lane, typename Value>
QEL_SIMD_INLINE constexpr Lane Saturate(Value value) {
  constexpr auto kLow =
      static_cast<Value>(std::is_signed_v<Lane> ? (Lane{1} << (8 * sizeof(Lane) - 2)) * -2 : 0);
  constexpr auto kHigh = static_cast<Value>(std::is_signed_v<Lane> ? -(kLow + 1) : Lane(-1));
  return static_cast<Lane>(value < kLow ? kLow : value > kHigh ? kHigh : value);
}
/// The smaller one; the second one if either is not a number.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> Min(Vec<T, n> a, Vec<T, n> b) {
  return {a.raw < b.raw ? a.raw : b.raw};
}
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> Max(Vec<T, n> a, Vec<T, n> b) {
  return {a.raw > b.raw ? a.raw : b.raw};
}
/// For 8 and 16 bits.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> SaturatedAdd(Vec<T, n> a, Vec<T, n> b) {
  return EachLane<Vec<T, n>>([](int x, int y) { return Saturate<T>(x + y); }, a, b);
}
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> SaturatedSub(Vec<T, n> a, Vec<T, n> b) {
  return EachLane<Vec<T, n>>([](int x, int y) { return Saturate<T>(x - y); }, a, b);
}
/// (a + b + 1) / 2 without loss.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> AverageRound(Vec<T, n> a, Vec<T, n> b) {
  return EachLane<Vec<T, n>>([](uint32_t x, uint32_t y) { return (x + y + 1) >> 1; }, a, b);
}
/// The lowest whole number stays as it is.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> Abs(Vec<T, n> v) {
  return Max(v, Zero<Vec<T, n>>() - v);
}
/// Double precision rounds square roots of single precision as that does itself.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> Sqrt(Vec<T, n> v) {
  return EachLane<Vec<T, n>>([](T x) { return __builtin_sqrt(x); }, v);
}
/// mul * x + add, rounded once if `kHasFusedMulAdd`, else twice.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> MulAdd(Vec<T, n> mul, Vec<T, n> x, Vec<T, n> add) {
  return mul * x + add;
}
/// The upper halves of products of 16 bits.
template <typename T, size_t n>
QEL_SIMD_INLINE Vec<T, n> MulHigh(Vec<T, n> a, Vec<T, n> b) {
  using Wide = std::conditional_t<std::is_signed_v<T>, int32_t, uint32_t>;
  return EachLane<Vec<T, n>>([](Wide x, Wide y) { return x * y >> 16; }, a, b);
}

// Sums of neighbours.

/// a[2 i] b[2 i] + a[2 i + 1] b[2 i + 1] of unsigned and signed bytes, saturated to 16 bits.
template <size_t n>
QEL_SIMD_INLINE Vec<int16_t, n> SatWidenMulPairwiseAdd(Vec<uint8_t, n> a, Vec<int8_t, n> b) {
  using Words = Vec<int16_t, n>;
  const auto pairs = BitCast<Vec<uint16_t, n>>(a);
  const auto weights = BitCast<Words>(b);
  // Products of bytes of both kinds fit signed 16 bits.
  return SaturatedAdd(
      BitCast<Words>(pairs & Set<Vec<uint16_t, n>>(0xFF)) * ShiftRight<8>(ShiftLeft<8>(weights)),
      BitCast<Words>(ShiftRight<8>(pairs)) * ShiftRight<8>(weights));
}
/// The same of signed 16 bits; wraps around.
template <size_t n>
QEL_SIMD_INLINE Vec<int32_t, n> WidenMulPairwiseAdd(Vec<int16_t, n> a, Vec<int16_t, n> b) {
  Vec<int32_t, n> r;
  for (size_t i = 0; i < n / 4; ++i) {
    r.raw[i] = static_cast<int32_t>(static_cast<uint32_t>(a.raw[2 * i] * b.raw[2 * i]) +
                                    static_cast<uint32_t>(a.raw[2 * i + 1] * b.raw[2 * i + 1]));
  }
  return r;
}
/// The sums of eight bytes each.
template <size_t n>
QEL_SIMD_INLINE Vec<uint64_t, n> SumsOf8(Vec<uint8_t, n> v) {
  Vec<uint64_t, n> r = {};
  for (size_t i = 0; i < n; ++i) r.raw[i / 8] += v.raw[i];
  return r;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_VEC_H_
