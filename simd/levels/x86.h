#ifndef QEL_SIMD_LEVELS_X86_H_
#define QEL_SIMD_LEVELS_X86_H_

#include <immintrin.h>

#include "simd/levels/moves.h"

// Instructions that exist under one name at several lengths of x86-64 registers. The file of a
// level says how it spells them: `Native` and QEL_X86(name).

namespace qel::QEL_LEVEL {
namespace {

template <typename T, size_t n>
QEL_SIMD_INLINE Native Bits(Vec<T, n> v) {
  return reinterpret_cast<Native>(v.raw);
}
template <typename V, typename Register>
QEL_SIMD_INLINE V As(Register bits) {
  static_assert(sizeof(V) == sizeof(Register));
  return V{reinterpret_cast<typename V::Raw>(bits)};
}

#define QEL_X86_BINARY(Result, Name, Argument, name)    \
  QEL_SIMD_INLINE Result Name(Argument a, Argument b) { \
    return As<Result>(QEL_X86(name)(Bits(a), Bits(b))); \
  }
QEL_X86_BINARY(U8, SaturatedAdd, U8, adds_epu8)
QEL_X86_BINARY(U8, SaturatedSub, U8, subs_epu8)
QEL_X86_BINARY(U16, SaturatedAdd, U16, adds_epu16)
QEL_X86_BINARY(U16, SaturatedSub, U16, subs_epu16)
QEL_X86_BINARY(I16, SaturatedAdd, I16, adds_epi16)
QEL_X86_BINARY(I16, SaturatedSub, I16, subs_epi16)
// Whether the compiler finds these by itself depends on what stands around them.
QEL_X86_BINARY(U8, AverageRound, U8, avg_epu8)
QEL_X86_BINARY(U16, MulHigh, U16, mulhi_epu16)
QEL_X86_BINARY(I16, MulHigh, I16, mulhi_epi16)
QEL_X86_BINARY(I32, WidenMulPairwiseAdd, I16, madd_epi16)
#undef QEL_X86_BINARY

QEL_SIMD_INLINE U64 SumsOf8(U8 v) { return As<U64>(QEL_X86(sad_epu8)(Bits(v), Bits(Zero<U8>()))); }

QEL_SIMD_INLINE F32 Sqrt(F32 v) { return {QEL_X86(sqrt_ps)(v.raw)}; }
QEL_SIMD_INLINE F64 Sqrt(F64 v) { return {QEL_X86(sqrt_pd)(v.raw)}; }

template <typename To>
requires(std::is_same_v<To, I32>) QEL_SIMD_INLINE To ConvertTo(F32 v) {
  return As<I32>(QEL_X86(cvttps_epi32)(v.raw));
}
template <typename To>
requires(std::is_same_v<To, U8>) QEL_SIMD_INLINE To ReorderDemote2To(I16 a, I16 b) {
  return As<U8>(QEL_X86(packus_epi16)(Bits(a), Bits(b)));
}
template <typename To>
requires(std::is_same_v<To, I8>) QEL_SIMD_INLINE To ReorderDemote2To(I16 a, I16 b) {
  return As<I8>(QEL_X86(packs_epi16)(Bits(a), Bits(b)));
}
template <typename To>
requires(std::is_same_v<To, I16>) QEL_SIMD_INLINE To ReorderDemote2To(I32 a, I32 b) {
  return As<I16>(QEL_X86(packs_epi32)(Bits(a), Bits(b)));
}

#ifdef __AVX2__

QEL_SIMD_INLINE I16 SatWidenMulPairwiseAdd(U8 a, I8 b) {
  return As<I16>(QEL_X86(maddubs_epi16)(Bits(a), Bits(b)));
}
QEL_SIMD_INLINE U8 TableLookupBytesOr0(U8 bytes, U8 places) {
  return As<U8>(QEL_X86(shuffle_epi8)(Bits(bytes), Bits(places)));
}
template <size_t kShift, typename T>
QEL_SIMD_INLINE Vec<T, kVectorBytes> CombineShiftRightBytes(Vec<T, kVectorBytes> upper,
                                                            Vec<T, kVectorBytes> lower) {
  if constexpr (kShift == 0) return lower;
  if constexpr (kShift == 16) return upper;
  return As<Vec<T, kVectorBytes>>(QEL_X86(alignr_epi8)(Bits(upper), Bits(lower), kShift % 16));
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_X86_H_
