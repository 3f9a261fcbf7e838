#ifndef QEL_SIMD_LEVELS_AVX2_H_
#define QEL_SIMD_LEVELS_AVX2_H_

#include "simd/levels/x86.h"

namespace qel::QEL_LEVEL {
namespace {

QEL_X86_CONVERT(Half<I32>, F64, _mm256_cvttpd_epi32, )
QEL_X86_CONVERT(F64, Half<I32>, _mm256_cvtepi32_pd, reinterpret_cast<__m128i>)
QEL_X86_CONVERT(F64, Half<F32>, _mm256_cvtps_pd, )
QEL_SIMD_INLINE Half<F32> Sqrt(Half<F32> v) { return {_mm_sqrt_ps(v.raw)}; }
template <typename V, typename AddressOf>
requires(V::kBytes == 32) QEL_SIMD_INLINE V GatherBlocks(const AddressOf& address_of) {
  return As<V>(_mm256_set_m128i(LoadBlock(address_of(1)), LoadBlock(address_of(0))));
}
template <typename V>
requires(V::kBytes == 32) QEL_SIMD_INLINE V LoadDup128(const void* from) {
  return As<V>(_mm256_broadcastsi128_si256(LoadBlock(from)));
}
template <typename T>
requires(sizeof(T) == 4) QEL_SIMD_INLINE Vec<T, 32> TableLookupLanes(Vec<T, 32> v, U32 places) {
  return As<Vec<T, 32>>(_mm256_permutevar8x32_epi32(Bits(v), Bits(places)));
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_AVX2_H_
