#ifndef QEL_MATHS_SAMPLE_VECTORS_H_
#define QEL_MATHS_SAMPLE_VECTORS_H_

#include "image/colour_vectors.h"
#include "maths/arithmetic_kernels.h"

// Vectors of samples for the arithmetic kernels: bytes compared and counted, and bytes and integers
// computed as floats. Everything has internal linkage.

#ifdef QEL_HAS_COLOUR_VECTORS

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_LEVEL_avx2
using Floats = __m256;
inline Floats FillFloats(float v) { return _mm256_set1_ps(v); }
inline Floats ToFloats(Vector dwords) { return _mm256_cvtepi32_ps(dwords); }
inline Vector AddBytes(Vector a, Vector b) { return _mm256_add_epi8(a, b); }
inline Vector AddDwords(Vector a, Vector b) { return _mm256_add_epi32(a, b); }
inline Vector AddQwords(Vector a, Vector b) { return _mm256_add_epi64(a, b); }
/// The sums of eight bytes each.
inline Vector SumBytes(Vector v) { return _mm256_sad_epu8(v, _mm256_setzero_si256()); }
inline uint64_t SumQwords(Vector v) {
  return static_cast<uint64_t>(v[0]) + static_cast<uint64_t>(v[1]) + static_cast<uint64_t>(v[2]) +
         static_cast<uint64_t>(v[3]);
}
inline Vector PackDwords(Vector low, Vector high) { return _mm256_packs_epi32(low, high); }
/// The bytes that are not 0.
using Selection = Vector;
inline Selection NotZero(Vector v) { return ~_mm256_cmpeq_epi8(v, _mm256_setzero_si256()); }
inline Vector Blend(Selection selected, Vector others, Vector v) {
  return _mm256_blendv_epi8(others, v, selected);
}
/// `below` where the bytes of `v` are below those of `limit`, else `others`.
inline Vector BlendBelow(Vector v, Vector limit, Vector others, Vector below) {
  return _mm256_blendv_epi8(below, others, _mm256_cmpeq_epi8(_mm256_max_epu8(v, limit), v));
}
/// Puts groups of four bytes in order that came through two rounds of packing.
inline Vector OrderDwords(Vector v) {
  return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
/// Truncated toward zero within 0 to 255. The operands stand so that NaN gives 0.
inline Vector ToBytes(Floats v) {
  return _mm256_cvttps_epi32(
      _mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(255.0f)));
}
/// Truncated toward zero; 0 where it is below.
inline Vector FromZero(Floats v) {
  const __m256 kept = _mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_NLT_UQ);
  return _mm256_cvttps_epi32(v) & _mm256_castps_si256(kept);
}
inline Vector ScaleDwords(Vector dwords, double factor) {
  const auto scaled = [=](__m128i half) {
    return _mm256_cvttpd_epi32(_mm256_cvtepi32_pd(half) * _mm256_set1_pd(factor));
  };
  return _mm256_set_m128i(scaled(_mm256_extracti128_si256(dwords, 1)),
                          scaled(_mm256_castsi256_si128(dwords)));
}
#else
using Floats = __m512;
inline Floats FillFloats(float v) { return _mm512_set1_ps(v); }
inline Floats ToFloats(Vector dwords) { return _mm512_cvtepi32_ps(dwords); }
inline Vector AddBytes(Vector a, Vector b) { return _mm512_add_epi8(a, b); }
inline Vector AddDwords(Vector a, Vector b) { return _mm512_add_epi32(a, b); }
inline Vector AddQwords(Vector a, Vector b) { return _mm512_add_epi64(a, b); }
inline Vector SumBytes(Vector v) { return _mm512_sad_epu8(v, _mm512_setzero_si512()); }
inline uint64_t SumQwords(Vector v) { return static_cast<uint64_t>(_mm512_reduce_add_epi64(v)); }
inline Vector PackDwords(Vector low, Vector high) { return _mm512_packs_epi32(low, high); }
using Selection = __mmask64;
inline Selection NotZero(Vector v) { return _mm512_test_epi8_mask(v, v); }
inline Vector Blend(Selection selected, Vector others, Vector v) {
  return _mm512_mask_blend_epi8(selected, others, v);
}
inline Vector BlendBelow(Vector v, Vector limit, Vector others, Vector below) {
  return _mm512_mask_blend_epi8(_mm512_cmplt_epu8_mask(v, limit), others, below);
}
inline Vector OrderDwords(Vector v) {
  return _mm512_permutexvar_epi32(
      _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), v);
}
inline Vector ToBytes(Floats v) {
  return _mm512_cvttps_epi32(
      _mm512_min_ps(_mm512_max_ps(v, _mm512_setzero_ps()), _mm512_set1_ps(255.0f)));
}
inline Vector FromZero(Floats v) {
  const __mmask16 kept = _mm512_cmp_ps_mask(v, _mm512_setzero_ps(), _CMP_NLT_UQ);
  return _mm512_maskz_cvttps_epi32(kept, v);
}
inline Vector ScaleDwords(Vector dwords, double factor) {
  const auto scaled = [=](__m256i half) {
    return _mm512_cvttpd_epi32(_mm512_cvtepi32_pd(half) * _mm512_set1_pd(factor));
  };
  return _mm512_inserti64x4(_mm512_castsi256_si512(scaled(_mm512_castsi512_si256(dwords))),
                            scaled(_mm512_extracti64x4_epi64(dwords, 1)), 1);
}
#endif

/// Pixels of one byte are their only channel.
template <size_t kBytes>
void LoadChannels(const uint8_t* from, Vector* channels) {
  if constexpr (kBytes == 1) {
    channels[0] = Load(from);
  } else {
    LoadPixels<kBytes>(from, channels);
  }
}
template <size_t kBytes>
void StoreChannels(uint8_t* to, const Vector* channels) {
  if constexpr (kBytes == 1) {
    Store(to, channels[0]);
  } else {
    StorePixels<kBytes>(to, channels);
  }
}

/// Computes words, in the order that `PackWords` restores, as floats; `map` makes of these integers
/// from 0 to 255.
template <typename Map>
Vector MapWords(Vector low, Vector high, Map&& map) {
  const Vector zero = FillBytes(0);
  return PackWords(
      PackDwords(map(ToFloats(PairWordsLow(low, zero))), map(ToFloats(PairWordsHigh(low, zero)))),
      PackDwords(map(ToFloats(PairWordsLow(high, zero))),
                 map(ToFloats(PairWordsHigh(high, zero)))));
}

class LinearMap {
 public:
  explicit LinearMap(const ScaleMap& map)
      : factor_(FillFloats(map.factor)), offset_(FillFloats(map.offset)) {}
  Floats operator()(Floats samples) const { return samples * factor_ + offset_; }

 private:
  Floats factor_, offset_;
};

/// `MixWeights` for vectors of bytes.
class Mixer {
 public:
  explicit Mixer(const MixWeights& weights)
      : factor_a_(FillFloats(weights.factor_a)),
        factor_b_(FillFloats(weights.factor_b)),
        offset_(FillFloats(weights.offset)) {}

  Vector operator()(Vector a, Vector b) const {
    const Vector zero = FillBytes(0);
    return PackWords(MixWords(PairLow(a, zero), PairLow(b, zero)),
                     MixWords(PairHigh(a, zero), PairHigh(b, zero)));
  }

 private:
  Vector MixWords(Vector a, Vector b) const {
    const Vector zero = FillBytes(0);
    return PackDwords(MixDwords(PairWordsLow(a, zero), PairWordsLow(b, zero)),
                      MixDwords(PairWordsHigh(a, zero), PairWordsHigh(b, zero)));
  }
  Vector MixDwords(Vector a, Vector b) const {
    return ToBytes((ToFloats(a) * factor_a_ + ToFloats(b) * factor_b_) + offset_);
  }

  Floats factor_a_, factor_b_, offset_;
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif

#endif  // QEL_MATHS_SAMPLE_VECTORS_H_
