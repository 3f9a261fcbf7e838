#ifndef QEL_MATHS_VALUE_VECTORS_H_
#define QEL_MATHS_VALUE_VECTORS_H_

#include "image/channel_sums.h"
#include "maths/arithmetic_kernels.h"
#include "simd/convert.h"

// Channel values computed in single precision, a vector at a time. Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// Products of 16-bit lanes with one factor, of the lower and of the upper halves of each block.
class Product {
 public:
  explicit Product(float factor)
      : factor_(Set<F32>(factor)), surplus_(Set<F32>(factor * -8388608.0f)) {}
  QEL_SIMD_INLINE F32 Lower(U16 v) const { return Of(InterleaveLower(v, Beside())); }
  QEL_SIMD_INLINE F32 Upper(U16 v) const { return Of(InterleaveUpper(v, Beside())); }

 private:
  // Beside 0x4B00, 16 bits are the float 2^23 + value. Of (2^23 + value) * factor - 2^23 * factor
  // the fused operation rounds nothing but the difference, which is value * factor: the same bits
  // as converting and multiplying, in one step.
  QEL_SIMD_INLINE static U16 Beside() { return Set<U16>(kHasFusedMulAdd ? 0x4B00 : 0); }
  QEL_SIMD_INLINE F32 Of(U16 widened) const {
    if constexpr (kHasFusedMulAdd) return MulAdd(BitCast<F32>(widened), factor_, surplus_);
    return ConvertTo<F32>(BitCast<I32>(widened)) * factor_;
  }
  F32 factor_, surplus_;
};

/// Truncates floats of the lower and of the upper halves of blocks. None may leave the range of
/// integers: narrowing clamps them.
QEL_SIMD_INLINE I16 DemoteFloats(F32 lower, F32 upper) {
  return ReorderDemote2To<I16>(ConvertTo<I32>(lower), ConvertTo<I32>(upper));
}

/// `ScaleMap` for vectors of integers.
class LinearMap {
 public:
  explicit LinearMap(const ScaleMap& map)
      : factor_(Set<F32>(map.factor)), offset_(Set<F32>(map.offset)) {}
  QEL_SIMD_INLINE F32 operator()(F32 values) const { return values * factor_ + offset_; }

 private:
  F32 factor_, offset_;
};

/// `ScaleMap` for sums of channels, as bytes.
class SumMap {
 public:
  explicit SumMap(const ScaleMap& map) : product_(map.factor), offset_(Set<F32>(map.offset)) {}
  QEL_SIMD_INLINE U8 operator()(const ChannelSums& sums) const {
    return ReorderDemote2To<U8>(Scale(BitCast<U16>(sums.lower)), Scale(BitCast<U16>(sums.upper)));
  }

 private:
  QEL_SIMD_INLINE I16 Scale(U16 sums) const {
    return DemoteFloats(product_.Lower(sums) + offset_, product_.Upper(sums) + offset_);
  }
  Product product_;
  F32 offset_;
};

/// `MixWeights` for vectors of bytes.
class Mixer {
 public:
  explicit Mixer(const MixWeights& weights)
      : product_a_(weights.factor_a),
        product_b_(weights.factor_b),
        offset_(Set<F32>(weights.offset)) {}

  QEL_SIMD_INLINE U8 operator()(U8 a, U8 b) const {
    const U8 zero = Zero<U8>();
    return ReorderDemote2To<U8>(Mix(InterleaveLower(a, zero), InterleaveLower(b, zero)),
                                Mix(InterleaveUpper(a, zero), InterleaveUpper(b, zero)));
  }

 private:
  QEL_SIMD_INLINE I16 Mix(U8 wide_a, U8 wide_b) const {
    const U16 a = BitCast<U16>(wide_a), b = BitCast<U16>(wide_b);
    return DemoteFloats((product_a_.Lower(a) + product_b_.Lower(b)) + offset_,
                        (product_a_.Upper(a) + product_b_.Upper(b)) + offset_);
  }
  Product product_a_, product_b_;
  F32 offset_;
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_MATHS_VALUE_VECTORS_H_
