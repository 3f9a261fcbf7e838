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
/// c[0] + c[1] z + c[2] z z + ... of even and odd powers apart, so that they need not wait for each
/// other.
template <size_t kTerms>
QEL_SIMD_INLINE F64 Polynomial(const double (&c)[kTerms], F64 z) {
  const F64 square = z * z;
  const auto sum_from = [&](size_t i) {
    F64 sum = Fill(c[i]);
    while (i >= 2) sum = MulAdd(sum, square, Fill(c[i -= 2]));
    return sum;
  };
  const F64 upper = sum_from(kTerms - 1);
  const F64 lower = sum_from(kTerms - 2);
  return kTerms % 2 == 0 ? MulAdd(upper, z, lower) : MulAdd(lower, z, upper);
}

/// Numbers below 2^51 rounded to whole ones, and these as the low bits of a word.
struct Rounded {
  F64 whole;
  U64 bits;
};
QEL_SIMD_INLINE Rounded Round(F64 v) {
  // Doubles from here on have no fractions.
  const F64 shift = Fill(0x1.8p52);
  const F64 shifted = v + shift;
  return {shifted - shift, BitCast<U64>(shifted)};
}
/// Turns the sign of lanes whose highest bit is set in `signs`.
QEL_SIMD_INLINE F64 WithSign(F64 v, U64 signs) {
  return BitCast<F64>(BitCast<U64>(v) ^ (signs & Set<U64>(uint64_t{1} << 63)));
}

// The series below are not those of Taylor but polynomials through the function at as many of
// Chebyshev's points as they have coefficients, which spreads their error over the range.

/// Sine and cosine of angles up to `kLargestTurn`, with errors below 1e-13.
QEL_SIMD_INLINE void SineCosine(F64 angle, F64& sine, F64& cosine) {
  // A whole number of quarter turns comes off first, in two parts: the upper one is short enough
  // for exact products.
  constexpr double kQuarterTurnsPerRadian = 0.63661977236758134308;
  constexpr double kQuarterTurn = 0x1.921fb544p+0;
  constexpr double kQuarterTurnRest = 0x1.0b4611a626331p-34;
  // Up to an eighth turn: off by less than 5e-15, and 2e-16.
  constexpr double kSine[] = {0.99999999999999567,    -0.16666666666616661,
                              0.0083333333238743753,  -0.00019841263296432765,
                              2.7555271485395277e-06, -2.4756529379592511e-08};
  constexpr double kCosine[] = {1,
                                -0.49999999999999251,
                                0.041666666666472209,
                                -0.001388888886997111,
                                2.4801578535940913e-05,
                                -2.7555233469269026e-07,
                                2.0630429883763109e-09};
  const Rounded quarters = Round(angle * Fill(kQuarterTurnsPerRadian));
  const F64 rest =
      (angle - quarters.whole * Fill(kQuarterTurn)) - quarters.whole * Fill(kQuarterTurnRest);
  const F64 z = rest * rest;
  const U64 s = BitCast<U64>(rest * Polynomial(kSine, z));
  const U64 c = BitCast<U64>(Polynomial(kCosine, z));
  const U64 odd = ShiftLeft<63>(quarters.bits);
  sine = WithSign(BitCast<F64>(IfNegativeThenElse(odd, c, s)), ShiftLeft<62>(quarters.bits));
  cosine = WithSign(BitCast<F64>(IfNegativeThenElse(odd, s, c)),
                    ShiftLeft<62>(quarters.bits + Set<U64>(1)));
}

/// Sine of angles up to a few turns, off by less than the 2^35th part of it.
QEL_SIMD_INLINE F64 Sine(F64 angle) {
  // A whole number of half turns comes off first, in two parts: the upper one is short enough for
  // exact products and differences, so that what is left keeps its relative precision.
  constexpr double kHalfTurnsPerRadian = 0.31830988618379067154;
  constexpr double kHalfTurn = 0x1.921fb544p+1;
  constexpr double kHalfTurnRest = 0x1.0b4611a626331p-33;
  constexpr double kSine[] = {0.99999999998290889,   -0.16666666616790812,
                              0.0083333309732718779, -0.00019840861058037127,
                              2.752526349541792e-06, -2.3889104032675583e-08};
  const Rounded halves = Round(angle * Fill(kHalfTurnsPerRadian));
  const F64 rest = (angle - halves.whole * Fill(kHalfTurn)) - halves.whole * Fill(kHalfTurnRest);
  return WithSign(rest * Polynomial(kSine, rest * rest), ShiftLeft<63>(halves.bits));
}

/// Lanes whose nearest single-precision number is not sure: those less than a sixteenth of its last
/// place from the middle between two. A library's sine in single precision is off by 0.561 of that
/// place at the most, where the nearest one is off by up to 0.5, and `Sine` by 0.0005.
QEL_SIMD_INLINE Mask<U64> RoundsUnsurely(F64 v) {
  constexpr uint64_t kSixteenth = uint64_t{1} << 25;
  constexpr uint64_t kMiddle = uint64_t{1} << 28;
  constexpr uint64_t kFarBits = 2 * kMiddle - 2 * kSixteenth;
  const U64 beyond = (BitCast<U64>(v) - Set<U64>(kMiddle - kSixteenth)) & Set<U64>(kFarBits);
  return beyond == Zero<U64>();
}

/// The angle of (x, y) in the first quadrant, with an error below 1e-13.
QEL_SIMD_INLINE F64 Angle(F64 x, F64 y) {
  constexpr double kQuarterTurn = 1.5707963267948966;
  constexpr double kEighthTurn = 0.78539816339744831;
  constexpr double kTangentOfSixteenthTurn = 0.41421356237309505;
  // Up to that tangent: off by less than 3e-14.
  constexpr double kArctangent[] = {
      0.99999999999997324,  -0.33333333330801568,  0.19999999604637869,
      -0.14285690410875659, 0.11110384723766563,   -0.090783877466860188,
      0.075636715626614601, -0.058743830307071102, 0.030660539641713551};
  const Mask<F64> steep = x < y;
  const F64 far = IfThenElse(steep, y, x);
  const F64 near = IfThenElse(steep, x, y);
  // Measured from the axis, or from the diagonal when that is nearer.
  const Mask<F64> diagonal = far * Fill(kTangentOfSixteenthTurn) < near;
  const F64 above = IfThenElse(diagonal, near - far, near);
  const F64 along = IfThenElse(diagonal, near + far, far);
  const F64 t = above / IfThenElse(along < Fill(1), Fill(1), along);
  const F64 angle =
      t * Polynomial(kArctangent, t * t) + IfThenElse(diagonal, Fill(kEighthTurn), Fill(0));
  return IfThenElse(steep, Fill(kQuarterTurn) - angle, angle);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_TRIGONOMETRY_H_
