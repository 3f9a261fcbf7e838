#ifndef QEL_IMAGE_KERNEL_POLYNOMIALS_H_
#define QEL_IMAGE_KERNEL_POLYNOMIALS_H_

// The reconstruction kernels that need no library mathematics, for single numbers and for vectors
// of them. Internal linkage: kernel sources are compiled once per processor level.
//
// Single precision throughout: powers first, then their coefficients, terms added from left to
// right. Another order gives other last bits.

namespace qel::polynomials {
namespace {

/// Where offsets lie, both ends included: kernels leave out what they need not ask there.
struct Anywhere {
  static constexpr float kLow = -__builtin_inff();
  static constexpr float kHigh = __builtin_inff();
};
/// The offsets of tap `kTap`, counted from the pixel that a position lies in or behind.
template <int kTap>
struct OfTap {
  static constexpr float kLow = kTap - 1;
  static constexpr float kHigh = kTap;
};
/// How far from 0 they are.
template <typename Range>
struct SizesOf {
  static constexpr bool kNegative = Range::kHigh <= 0;
  static constexpr bool kPositive = Range::kLow >= 0;
  static constexpr float kLow = kNegative ? -Range::kHigh : kPositive ? Range::kLow : 0;
  static constexpr float kHigh = kPositive ? Range::kHigh : -Range::kLow;
};

/// `yes` for t below `bound`, else `no`.
template <typename Range, typename Number>
inline Number IfBelow(Number t, float bound, Number yes, Number no) {
  if (Range::kHigh < bound) return yes;
  if (Range::kLow >= bound) return no;
  return t < bound ? yes : no;
}
/// The same where both are equal at the bound.
template <typename Range, typename Number>
inline Number IfUpTo(Number t, float bound, Number yes, Number no) {
  return Range::kHigh <= bound ? yes : IfBelow<Range>(t, bound, yes, no);
}

template <typename Range, typename Number>
inline Number Distance(Number t) {
  return IfUpTo<Range>(t, 0.0f, -t, t);
}

/// t + `shift` cubed where that is above 0, else 0.
template <typename Range, typename Number>
inline Number PositiveCube(Number t, float shift) {
  const Number u = t + shift;
  if (Range::kHigh <= -shift) return Number{};
  if (Range::kLow >= -shift) return u * u * u;
  return u > 0.0f ? u * u * u : Number{};
}

/// The B-spline of third order (Hou and Andrews 1978).
struct CubicBSpline {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const auto cube = [t](float shift) { return PositiveCube<Range>(t, shift); };
    const Number sum = cube(2.0f) - 4.0f * cube(1.0f) + 6.0f * cube(0.0f) - 4.0f * cube(-1.0f);
    return IfUpTo<Range>(t, 2.0f, 0.16666667f * sum, Number{});
  }
};

/// Cubic convolution with a = -1 (Keys 1981).
struct Keys {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number a = Distance<Range>(t);
    const Number a2 = a * a;
    const Number a3 = a2 * a;
    const Number near = 1.0f - 2.0f * a2 + a3;
    const Number far = 4.0f - 8.0f * a + 5.0f * a2 - a3;
    const Number beyond = IfUpTo<SizesOf<Range>>(a, 2.0f, far, Number{});
    return IfUpTo<SizesOf<Range>>(a, 1.0f, near, beyond);
  }
};

/// The spline of Catmull and Rom (1974), which is cubic convolution with a = -1/2, from the
/// distance and from the offset: their last bits differ.
struct CatmullRomOfDistance {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number a = Distance<Range>(t);
    const Number a2 = a * a;
    const Number a3 = a2 * a;
    const Number near = 1.5f * a3 - 2.5f * a2 + 1.0f;
    const Number far = -0.5f * a3 + 2.5f * a2 - 4.0f * a + 2.0f;
    const Number beyond = IfUpTo<SizesOf<Range>>(a, 2.0f, far, Number{});
    return IfUpTo<SizesOf<Range>>(a, 1.0f, near, beyond);
  }
};

struct Box {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number upper = IfBelow<Range>(t, 0.5f, Number{} + 1.0f, Number{});
    return IfBelow<Range>(t, -0.5f, Number{}, upper);
  }
};

struct Hermite {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number left = (-2.0f * t - 3.0f) * t2 + 1.0f;
    const Number right = (2.0f * t - 3.0f) * t2 + 1.0f;
    const Number upper = IfUpTo<Range>(t, 1.0f, right, Number{});
    return IfUpTo<Range>(t, -1.0f, Number{}, IfUpTo<Range>(t, 0.0f, left, upper));
  }
};

// Deliberate: the damping leaves 0.08 at distance 1 instead of 0.
struct DampedHermite {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number left = (-2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
    const Number right = (2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
    const Number upper = IfBelow<Range>(t, 1.0f, right, Number{});
    return IfBelow<Range>(t, -1.0f, Number{}, IfUpTo<Range>(t, 0.0f, left, upper));
  }
};

struct QuadraticBSpline {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number left = 0.5f * ((t + 1.5f) * (t + 1.5f));
    const Number middle = 0.75f - t * t;
    const Number right = 0.5f * ((t - 1.5f) * (t - 1.5f));
    const Number end = IfBelow<Range>(t, 1.5f, right, Number{});
    const Number upper = IfBelow<Range>(t, 0.5f, middle, end);
    return IfBelow<Range>(t, -1.5f, Number{}, IfBelow<Range>(t, -0.5f, left, upper));
  }
};

/// Mitchell and Netravali (1988) with B = C = 1/3.
struct MitchellNetravali {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number t3 = t2 * t;
    const Number far_left = 1.7777778f + 3.3333333f * t + 2.0f * t2 + 0.38888887f * t3;
    const Number left = 0.8888889f - 2.0f * t2 - 1.1666666f * t3;
    const Number right = 0.8888889f - 2.0f * t2 + 1.1666666f * t3;
    const Number far_right = 1.7777778f - 3.3333333f * t + 2.0f * t2 - 0.38888887f * t3;
    const Number beyond = IfBelow<Range>(t, 2.0f, far_right, Number{});
    const Number upper = IfBelow<Range>(t, 1.0f, right, beyond);
    const Number lower = IfBelow<Range>(t, -1.0f, far_left, left);
    return IfBelow<Range>(t, -2.0f, Number{}, IfUpTo<Range>(t, 0.0f, lower, upper));
  }
};

struct CatmullRomOfOffset {
  template <typename Number, typename Range = Anywhere>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number t3 = t2 * t;
    const Number far_left = 0.5f * (t3 + 5.0f * t2 + 8.0f * t + 4.0f);
    const Number left = 0.5f * (2.0f - 5.0f * t2 - 3.0f * t3);
    const Number right = 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f);
    const Number far_right = 0.5f * (-t3 + 5.0f * t2 - 8.0f * t + 4.0f);
    const Number beyond = IfUpTo<Range>(t, 2.0f, far_right, Number{});
    const Number upper = IfUpTo<Range>(t, 1.0f, right, beyond);
    const Number lower = IfUpTo<Range>(t, -1.0f, far_left, left);
    return IfBelow<Range>(t, -2.0f, Number{}, IfUpTo<Range>(t, 0.0f, lower, upper));
  }
};

}  // namespace
}  // namespace qel::polynomials

#endif  // QEL_IMAGE_KERNEL_POLYNOMIALS_H_
