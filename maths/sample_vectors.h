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
inline Vector AddQwords(Vector a, Vector b) { return _mm256_add_epi64(a, b); }
/// The sums of eight bytes each.
inline Vector SumBytes(Vector v) { return _mm256_sad_epu8(v, _mm256_setzero_si256()); }
inline uint64_t SumQwords(Vector v) {
  return static_cast<uint64_t>(v[0]) + static_cast<uint64_t>(v[1]) + static_cast<uint64_t>(v[2]) +
         static_cast<uint64_t>(v[3]);
}
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
inline Vector Truncate(Floats v) { return _mm256_cvttps_epi32(v); }
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
inline Vector AddQwords(Vector a, Vector b) { return _mm512_add_epi64(a, b); }
inline Vector SumBytes(Vector v) { return _mm512_sad_epu8(v, _mm512_setzero_si512()); }
inline uint64_t SumQwords(Vector v) { return static_cast<uint64_t>(_mm512_reduce_add_epi64(v)); }
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
inline Vector Truncate(Floats v) { return _mm512_cvttps_epi32(v); }
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

/// Products of words with one factor.
class Product {
 public:
#ifdef QEL_LEVEL_avx2
  explicit Product(float factor) : factor_(FillFloats(factor)) {}
  Floats Low(Vector words) const { return ToFloats(PairWordsLow(words, FillBytes(0))) * factor_; }
  Floats High(Vector words) const { return ToFloats(PairWordsHigh(words, FillBytes(0))) * factor_; }

 private:
  Floats factor_;
#else
  // Beside 0x4B00 a word is the float 2^23 + word. Of (2^23 + word) * factor - 2^23 * factor the
  // fused operation rounds nothing but the difference, which is word * factor: the same bits as
  // converting and multiplying, in one step.
  explicit Product(float factor)
      : factor_(FillFloats(factor)), surplus_(FillFloats(factor * 8388608.0f)) {}
  Floats Low(Vector words) const { return Of(PairWordsLow(words, FillWords(0x4B00))); }
  Floats High(Vector words) const { return Of(PairWordsHigh(words, FillWords(0x4B00))); }

 private:
  Floats Of(Vector shifted) const {
    return _mm512_fmsub_ps(_mm512_castsi512_ps(shifted), factor_, surplus_);
  }
  Floats factor_, surplus_;
#endif
};

/// Truncates a vector of floats each from the low and the high halves of words; `PackWords` puts
/// the words in order. None may leave the range of integers: packing clamps them.
inline Vector PackFloats(Floats low, Floats high) {
  return PackDwords(Truncate(low), Truncate(high));
}

/// `ScaleMap` for vectors of integers.
class LinearMap {
 public:
  explicit LinearMap(const ScaleMap& map)
      : factor_(FillFloats(map.factor)), offset_(FillFloats(map.offset)) {}
  Floats operator()(Floats samples) const { return samples * factor_ + offset_; }

 private:
  Floats factor_, offset_;
};

/// `ScaleMap` for sums of channels, as bytes.
class SumMap {
 public:
  explicit SumMap(const ScaleMap& map) : product_(map.factor), offset_(FillFloats(map.offset)) {}
  Vector operator()(const ChannelSums& sums) const {
    return PackWords(Scale(sums.low), Scale(sums.high));
  }

 private:
  Vector Scale(Vector words) const {
    return PackFloats(product_.Low(words) + offset_, product_.High(words) + offset_);
  }
  Product product_;
  Floats offset_;
};

/// `MixWeights` for vectors of bytes.
class Mixer {
 public:
  explicit Mixer(const MixWeights& weights)
      : product_a_(weights.factor_a),
        product_b_(weights.factor_b),
        offset_(FillFloats(weights.offset)) {}

  Vector operator()(Vector a, Vector b) const {
    const Vector zero = FillBytes(0);
    return PackWords(MixWords(PairLow(a, zero), PairLow(b, zero)),
                     MixWords(PairHigh(a, zero), PairHigh(b, zero)));
  }

 private:
  Vector MixWords(Vector a, Vector b) const {
    return PackFloats((product_a_.Low(a) + product_b_.Low(b)) + offset_,
                      (product_a_.High(a) + product_b_.High(b)) + offset_);
  }
  Product product_a_, product_b_;
  Floats offset_;
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif

#endif  // QEL_MATHS_SAMPLE_VECTORS_H_
