#ifndef QEL_TRANSFORM_TRIGONOMETRY_H_
#define QEL_TRANSFORM_TRIGONOMETRY_H_

#include <type_traits>

#include "simd/simd.h"

// Trigonometry by vectors with known errors. What must equal the mathematics library's
// result to the last bit asks the library where a result is too near to a place where rounding
// turns. Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// As many whole numbers as a vector has doubles.
using Wholes = Half<I32>;

QEL_SIMD_INLINE F64 Fill(double value) { return Set<F64>(value); }
QEL_SIMD_INLINE F64 ToDoubles(Wholes v) { return ConvertTo<F64>(v); }
QEL_SIMD_INLINE Wholes ToWholes(F64 v) { return ConvertTo<Wholes>(v); }
/// As many whole numbers as `V` has lanes, and words of their size.
template <typename V>
using WholesOf = Vec<int32_t, 4 * V::kLanes>;
template <typename V>
using WordsOf = std::conditional_t<std::is_same_v<V, F64>, U64, U32>;
template <typename V>
QEL_SIMD_INLINE V Of(double value) {
  return Set<V>(static_cast<typename V::Lane>(value));
}

/// c[0] + c[1] z + c[2] z z + ... of even and odd powers apart, so that they need not wait for each
/// other.
template <typename V, size_t kTerms>
QEL_SIMD_INLINE V Polynomial(const double (&c)[kTerms], V z) {
  const V square = z * z;
  const auto sum_from = [&](size_t i) {
    V sum = Of<V>(c[i]);
    while (i >= 2) sum = MulAdd(sum, square, Of<V>(c[i -= 2]));
    return sum;
  };
  const V upper = sum_from(kTerms - 1);
  const V lower = sum_from(kTerms - 2);
  return kTerms % 2 == 0 ? MulAdd(upper, z, lower) : MulAdd(lower, z, upper);
}

/// Turns the sign of lanes whose highest bit is set in `signs`.
template <typename V>
QEL_SIMD_INLINE V WithSign(V v, WordsOf<V> signs) {
  using Words = WordsOf<V>;
  constexpr auto kSign =
      static_cast<typename Words::Lane>(uint64_t{1} << (8 * sizeof(typename V::Lane) - 1));
  return BitCast<V>(BitCast<Words>(v) ^ (signs & Set<Words>(kSign)));
}

// The series below are not those of Taylor but polynomials through the function at as many of
// Chebyshev's points as they have coefficients, which spreads their error over the range. Quarter
// turns come in two parts: the upper one is short enough for exact products.

template <typename V>
struct AngleConstants;

/// For errors below 1e-13.
template <>
struct AngleConstants<F64> {
  /// Numbers from here on have no fractions.
  static constexpr double kWhole = 0x1.8p52;
  static constexpr double kQuarterTurn = 0x1.921fb544p+0;
  static constexpr double kQuarterTurnRest = 0x1.0b4611a626331p-34;
  // Up to an eighth turn: off by less than 5e-15, and 2e-16.
  static constexpr double kSine[] = {0.99999999999999567,    -0.16666666666616661,
                                     0.0083333333238743753,  -0.00019841263296432765,
                                     2.7555271485395277e-06, -2.4756529379592511e-08};
  static constexpr double kCosine[] = {1,
                                       -0.49999999999999251,
                                       0.041666666666472209,
                                       -0.001388888886997111,
                                       2.4801578535940913e-05,
                                       -2.7555233469269026e-07,
                                       2.0630429883763109e-09};
  // Up to the tangent of a sixteenth turn: off by less than 3e-14.
  static constexpr double kArctangent[] = {
      0.99999999999997324,  -0.33333333330801568,  0.19999999604637869,
      -0.14285690410875659, 0.11110384723766563,   -0.090783877466860188,
      0.075636715626614601, -0.058743830307071102, 0.030660539641713551};
};
/// For errors of a few last places of single precision.
template <>
struct AngleConstants<F32> {
  static constexpr double kWhole = 0x1.8p23;
  static constexpr double kQuarterTurn = 0x1.92p+0;
  static constexpr double kQuarterTurnRest = 4.8382679489661923e-04;
  // Off by less than 4e-9, 3e-8 and 2e-8.
  static constexpr double kSine[] = {0.999999996918, -0.16666650674, 0.0083320357856,
                                     -0.000195039042508};
  static constexpr double kCosine[] = {0.999999972328, -0.499998564192, 0.0416550149249,
                                       -0.00135857792648};
  static constexpr double kArctangent[] = {0.999999981265, -0.333327857719, 0.199740824155,
                                           -0.138484902123, 0.0797629180679};
};

/// Numbers of less than half of the precision rounded to whole ones, and these as the low bits of a
/// word.
template <typename V>
struct Rounded {
  V whole;
  WordsOf<V> bits;
};
template <typename V>
QEL_SIMD_INLINE Rounded<V> Round(V v) {
  const V shift = Of<V>(AngleConstants<V>::kWhole);
  const V shifted = v + shift;
  return {shifted - shift, BitCast<WordsOf<V>>(shifted)};
}

/// Sine and cosine of angles up to `kLargestTurn`.
template <typename V>
QEL_SIMD_INLINE void SineCosine(V angle, V& sine, V& cosine) {
  using C = AngleConstants<V>;
  using Words = WordsOf<V>;
  constexpr size_t kSignBit = 8 * sizeof(typename V::Lane) - 1;
  // A whole number of quarter turns comes off first.
  constexpr double kQuarterTurnsPerRadian = 0.63661977236758134308;
  const Rounded<V> quarters = Round(angle * Of<V>(kQuarterTurnsPerRadian));
  const V rest = (angle - quarters.whole * Of<V>(C::kQuarterTurn)) -
                 quarters.whole * Of<V>(C::kQuarterTurnRest);
  const V z = rest * rest;
  const auto s = BitCast<Words>(rest * Polynomial(C::kSine, z));
  const auto c = BitCast<Words>(Polynomial(C::kCosine, z));
  const Words odd = ShiftLeft<kSignBit>(quarters.bits);
  sine =
      WithSign(BitCast<V>(IfNegativeThenElse(odd, c, s)), ShiftLeft<kSignBit - 1>(quarters.bits));
  cosine = WithSign(BitCast<V>(IfNegativeThenElse(odd, s, c)),
                    ShiftLeft<kSignBit - 1>(quarters.bits + Set<Words>(1)));
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
  const Rounded<F64> halves = Round(angle * Fill(kHalfTurnsPerRadian));
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

/// The angle of (x, y) in the first quadrant.
template <typename V>
QEL_SIMD_INLINE V Angle(V x, V y) {
  constexpr double kQuarterTurn = 1.5707963267948966;
  constexpr double kEighthTurn = 0.78539816339744831;
  constexpr double kTangentOfSixteenthTurn = 0.41421356237309505;
  const Mask<V> steep = x < y;
  const V far = IfThenElse(steep, y, x);
  const V near = IfThenElse(steep, x, y);
  // Measured from the axis, or from the diagonal when that is nearer.
  const Mask<V> diagonal = far * Of<V>(kTangentOfSixteenthTurn) < near;
  const V above = IfThenElse(diagonal, near - far, near);
  const V along = IfThenElse(diagonal, near + far, far);
  const V t = above / IfThenElse(along < Of<V>(1), Of<V>(1), along);
  const V angle = t * Polynomial(AngleConstants<V>::kArctangent, t * t) +
                  IfThenElse(diagonal, Of<V>(kEighthTurn), Zero<V>());
  return IfThenElse(steep, Of<V>(kQuarterTurn) - angle, angle);
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_TRANSFORM_TRIGONOMETRY_H_
