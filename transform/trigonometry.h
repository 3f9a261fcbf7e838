#ifndef QEL_TRANSFORM_TRIGONOMETRY_H_
#define QEL_TRANSFORM_TRIGONOMETRY_H_

#include "simd/simd.h"

// Trigonometry by vectors of doubles with known errors. What must equal the mathematics library's
// result to the last bit asks the library where a result is too near to a place where rounding
// turns. Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// As many whole numbers as a vector has doubles.
using Wholes = Half<I32>;

QEL_SIMD_INLINE F64 Fill(double value) { return Set<F64>(value); }
QEL_SIMD_INLINE F64 ToDoubles(Wholes v) { return ConvertTo<F64>(v); }
QEL_SIMD_INLINE Wholes ToWholes(F64 v) { return ConvertTo<Wholes>(v); }
/// True where a bit of `bits` is set.
QEL_SIMD_INLINE Mask<F64> HasBit(Wholes v, int32_t bits) {
  return RebindMask<F64>((v & Set<Wholes>(bits)) != Zero<Wholes>());
}

/// c[0] + c[1] z + c[2] z z + ...
template <size_t kTerms>
F64 Polynomial(const double (&c)[kTerms], F64 z) {
  F64 sum = Fill(c[kTerms - 1]);
  for (size_t i = kTerms - 1; i-- > 0;) sum = MulAdd(sum, z, Fill(c[i]));
  return sum;
}

/// sin(x) / x by powers of x x, up to the 15th power of x: what follows is below 1e-15 up to an
/// eighth turn, and below 2^-37 up to a quarter turn.
constexpr double kSineSeries[] = {1,
                                  -1 / 6.0,
                                  1 / 120.0,
                                  -1 / 5040.0,
                                  1 / 362880.0,
                                  -1 / 39916800.0,
                                  1 / 6227020800.0,
                                  -1 / 1307674368000.0};

/// Sine and cosine of angles up to `kLargestTurn`, with errors below 1e-13.
inline void SineCosine(F64 angle, F64& sine, F64& cosine) {
  // A whole number of quarter turns comes off first, in two parts: the upper one is short enough
  // for exact products.
  constexpr double kQuarterTurnsPerRadian = 0.63661977236758134308;
  constexpr double kQuarterTurn = 0x1.921fb544p+0;
  constexpr double kQuarterTurnRest = 0x1.0b4611a626331p-34;
  // Terms up to the 16th power: what follows is below 1e-15.
  constexpr double kCosine[] = {1,
                                -1 / 2.0,
                                1 / 24.0,
                                -1 / 720.0,
                                1 / 40320.0,
                                -1 / 3628800.0,
                                1 / 479001600.0,
                                -1 / 87178291200.0,
                                1 / 20922789888000.0};
  const F64 turns = angle * Fill(kQuarterTurnsPerRadian);
  const Wholes quarters = ToWholes(turns + IfThenElse(turns < Fill(0), Fill(-0.5), Fill(0.5)));
  const F64 whole = ToDoubles(quarters);
  const F64 rest = (angle - whole * Fill(kQuarterTurn)) - whole * Fill(kQuarterTurnRest);
  const F64 z = rest * rest;
  const F64 s = rest * Polynomial(kSineSeries, z);
  const F64 c = Polynomial(kCosine, z);
  const Mask<F64> odd = HasBit(quarters, 1);
  const F64 sine_sign = IfThenElse(HasBit(quarters, 2), Fill(-1), Fill(1));
  const F64 cosine_sign = IfThenElse(HasBit(quarters + Set<Wholes>(1), 2), Fill(-1), Fill(1));
  sine = IfThenElse(odd, c, s) * sine_sign;
  cosine = IfThenElse(odd, s, c) * cosine_sign;
}

/// Sine of angles up to a few turns, with a relative error below 2^-36.
QEL_SIMD_INLINE F64 Sine(F64 angle) {
  // A whole number of half turns comes off first, in two parts: the upper one is short enough for
  // exact products and differences, so that what is left keeps its relative precision.
  constexpr double kHalfTurnsPerRadian = 0.31830988618379067154;
  constexpr double kHalfTurn = 0x1.921fb544p+1;
  constexpr double kHalfTurnRest = 0x1.0b4611a626331p-33;
  const F64 turns = angle * Fill(kHalfTurnsPerRadian);
  const Wholes halves = ToWholes(turns + IfThenElse(turns < Fill(0), Fill(-0.5), Fill(0.5)));
  const F64 whole = ToDoubles(halves);
  const F64 rest = (angle - whole * Fill(kHalfTurn)) - whole * Fill(kHalfTurnRest);
  const F64 signed_rest = IfThenElse(HasBit(halves, 1), Fill(0) - rest, rest);
  return signed_rest * Polynomial(kSineSeries, rest * rest);
}

/// Lanes whose nearest single-precision number is not sure: those less than a sixteenth of its last
/// place from the middle between two. A library's sine in single precision is off by 0.56 of that
/// place at the most, where the nearest one is off by up to 0.5.
QEL_SIMD_INLINE Mask<F64> RoundsUnsurely(F64 v) {
  constexpr uint64_t kSixteenth = uint64_t{1} << 25;
  constexpr uint64_t kMiddle = uint64_t{1} << 28;
  constexpr uint64_t kFarBits = 2 * kMiddle - 2 * kSixteenth;
  const U64 beyond = (BitCast<U64>(v) - Set<U64>(kMiddle - kSixteenth)) & Set<U64>(kFarBits);
  return RebindMask<F64>(beyond == Zero<U64>());
}

/// The angle of (x, y) in the first quadrant, with an error below 1e-13.
inline F64 Angle(F64 x, F64 y) {
  constexpr double kQuarterTurn = 1.5707963267948966;
  constexpr double kEighthTurn = 0.78539816339744831;
  constexpr double kTangentOfSixteenthTurn = 0.41421356237309505;
  // Terms up to the 29th power: what follows is below 1e-13.
  constexpr double kSeries[] = {1,         -1 / 3.0,  1 / 5.0,   -1 / 7.0,  1 / 9.0,
                                -1 / 11.0, 1 / 13.0,  -1 / 15.0, 1 / 17.0,  -1 / 19.0,
                                1 / 21.0,  -1 / 23.0, 1 / 25.0,  -1 / 27.0, 1 / 29.0};
  const Mask<F64> steep = x < y;
  const F64 far = IfThenElse(steep, y, x);
  const F64 near = IfThenElse(steep, x, y);
  // Measured from the axis, or from the diagonal when that is nearer.
  const Mask<F64> diagonal = far * Fill(kTangentOfSixteenthTurn) < near;
  const F64 above = IfThenElse(diagonal, near - far, near);
  const F64 along = IfThenElse(diagonal, near + far, far);
  const F64 t = above / IfThenElse(along < Fill(1), Fill(1), along);
  const F64 angle =
      t * Polynomial(kSeries, t * t) + IfThenElse(diagonal, Fill(kEighthTurn), Fill(0));
  return IfThenElse(steep, Fill(kQuarterTurn) - angle, angle);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_TRIGONOMETRY_H_
