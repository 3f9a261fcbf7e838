#ifndef QEL_MATHS_VALUE_VECTORS_H_
#define QEL_MATHS_VALUE_VECTORS_H_

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

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_MATHS_VALUE_VECTORS_H_
