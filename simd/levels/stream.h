#ifndef QEL_SIMD_LEVELS_STREAM_H_
#define QEL_SIMD_LEVELS_STREAM_H_

namespace qel::QEL_LEVEL {
namespace {

/// Stores a vector past the caches, where the processor can, at an address that is a multiple of
/// its size: what is written is not read first, and displaces nothing.
QEL_SIMD_INLINE void Stream(U8 v, uint8_t* to) {
#if !defined(__SSE2__) || defined(QEL_EMULATED_AVX512)
  StoreU(v, to);
#elif QEL_SIMD_BYTES == 64
  _mm512_stream_si512(reinterpret_cast<__m512i*>(to), reinterpret_cast<__m512i>(v.raw));
#elif QEL_SIMD_BYTES == 32
  _mm256_stream_si256(reinterpret_cast<__m256i*>(to), reinterpret_cast<__m256i>(v.raw));
#else
  _mm_stream_si128(reinterpret_cast<__m128i*>(to), reinterpret_cast<__m128i>(v.raw));
#endif
}
/// Has what was streamed come before all later stores, as other threads see them.
QEL_SIMD_INLINE void FinishStream() {
#if defined(__SSE2__) && !defined(QEL_EMULATED_AVX512)
  _mm_sfence();
#endif
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_SIMD_LEVELS_STREAM_H_
