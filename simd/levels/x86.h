#ifndef QEL_SIMD_LEVELS_X86_H_
#define QEL_SIMD_LEVELS_X86_H_

#include "simd/levels/moves.h"

#if QEL_SIMD_BYTES == 16
#include <emmintrin.h>  // a tenth of what all headers of intrinsics take to compile
#else
#include <immintrin.h>
#endif

// Instructions that exist under one name at several lengths of x86-64 registers.

#if QEL_SIMD_BYTES == 64
#define QEL_X86(name) _mm512_##name
#elif QEL_SIMD_BYTES == 32
#define QEL_X86(name) _mm256_##name
#else
#define QEL_X86(name) _mm_##name
#endif

namespace qel::QEL_LEVEL {
namespace {

using Native = decltype(QEL_X86(set1_epi8)(0));

/// Lanes of whole numbers as instructions take them.
QEL_SIMD_INLINE Native Bits(auto v) { return reinterpret_cast<Native>(v.raw); }
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

#define QEL_X86_DEMOTE(Result, Argument, name)                                           \
  template <typename To>                                                                 \
  requires(std::is_same_v<To, Result>) QEL_SIMD_INLINE To ReorderDemote2To(Argument a,   \
                                                                           Argument b) { \
    return As<To>(QEL_X86(name)(Bits(a), Bits(b)));                                      \
  }
QEL_X86_DEMOTE(U8, I16, packus_epi16)
QEL_X86_DEMOTE(I8, I16, packs_epi16)
QEL_X86_DEMOTE(I16, I32, packs_epi32)
#undef QEL_X86_DEMOTE

#define QEL_X86_CONVERT(Result, Argument, intrinsic, bits)                        \
  template <typename To>                                                          \
  requires(std::is_same_v<To, Result>) QEL_SIMD_INLINE To ConvertTo(Argument v) { \
    return As<To>(intrinsic(bits(v.raw)));                                        \
  }
QEL_X86_CONVERT(I32, F32, QEL_X86(cvttps_epi32), )

QEL_SIMD_INLINE __m128i LoadBlock(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

#if QEL_SIMD_BYTES < 64

template <typename V>
requires(V::kBytes == kVectorBytes) QEL_SIMD_INLINE uint64_t BitsFromMask(Mask<V> mask) {
  if constexpr (sizeof(typename V::Lane) == 8) {
    return static_cast<uint64_t>(QEL_X86(movemask_pd)(reinterpret_cast<F64::Raw>(mask.raw)));
  } else if constexpr (sizeof(typename V::Lane) == 4) {
    return static_cast<uint64_t>(QEL_X86(movemask_ps)(reinterpret_cast<F32::Raw>(mask.raw)));
  } else if constexpr (sizeof(typename V::Lane) == 2) {
    // Of each block, the lower half of the bytes.
    const auto bytes = QEL_X86(packs_epi16)(Bits(mask), Bits(Zero<V>()));
    const auto bits = static_cast<uint32_t>(QEL_X86(movemask_epi8)(bytes));
    return (bits | bits >> 8) & 0xFFFF;
  } else {
    return static_cast<uint32_t>(QEL_X86(movemask_epi8)(Bits(mask)));
  }
}
template <typename V>
requires(V::kBytes == kVectorBytes) QEL_SIMD_INLINE bool AllFalse(Mask<V> mask) {
  return BitsFromMask(mask) == 0;
}

#endif
#ifdef __AVX2__

QEL_SIMD_INLINE F32 MulAdd(F32 mul, F32 x, F32 add) {
  return {QEL_X86(fmadd_ps)(mul.raw, x.raw, add.raw)};
}
QEL_SIMD_INLINE F64 MulAdd(F64 mul, F64 x, F64 add) {
  return {QEL_X86(fmadd_pd)(mul.raw, x.raw, add.raw)};
}
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

#else

template <typename To>
requires(std::is_same_v<To, Half<I32>>) QEL_SIMD_INLINE To ConvertTo(F64 v) {
  return LowerHalf(As<I32>(_mm_cvttpd_epi32(v.raw)));
}
template <size_t kShift, typename T>
QEL_SIMD_INLINE Vec<T, 16> CombineShiftRightBytes(Vec<T, 16> upper, Vec<T, 16> lower) {
  if constexpr (kShift == 0) return lower;
  if constexpr (kShift == 16) return upper;
  return As<Vec<T, 16>>(_mm_or_si128(_mm_srli_si128(Bits(lower), kShift % 16),
                                     _mm_slli_si128(Bits(upper), 16 - kShift % 16)));
}

#endif

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_X86_H_
