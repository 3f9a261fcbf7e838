#ifndef QEL_IMAGE_KERNEL_POLYNOMIALS_H_
#define QEL_IMAGE_KERNEL_POLYNOMIALS_H_

// The reconstruction kernels that need no library mathematics, for single numbers and for vectors
// of them. Internal linkage: kernel sources are compiled once per processor level.
//
// Single precision throughout: powers first, then their coefficients, terms added from left to
// right. Another order gives other last bits.

namespace qel::polynomials {
namespace {

template <typename Number>
inline Number Distance(Number t) {
  return t < 0.0f ? -t : t;
}

/// u cubed for u above 0, else 0.
template <typename Number>
inline Number PositiveCube(Number u) {
  return u > 0.0f ? u * u * u : Number{};
}

/// The B-spline of third order (Hou and Andrews 1978).
struct CubicBSpline {
  template <typename Number>
  static Number Weight(Number t) {
    const Number sum = PositiveCube(t + 2.0f) - 4.0f * PositiveCube(t + 1.0f) +
                       6.0f * PositiveCube(t) - 4.0f * PositiveCube(t - 1.0f);
    return t > 2.0f ? Number{} : 0.16666667f * sum;
  }
};

/// Cubic convolution with a = -1 (Keys 1981).
struct Keys {
  template <typename Number>
  static Number Weight(Number t) {
    const Number a = Distance(t);
    const Number a2 = a * a;
    const Number a3 = a2 * a;
    const Number near = 1.0f - 2.0f * a2 + a3;
    const Number far = 4.0f - 8.0f * a + 5.0f * a2 - a3;
    return a < 1.0f ? near : a < 2.0f ? far : Number{};
  }
};

/// The spline of Catmull and Rom (1974), which is cubic convolution with a = -1/2, from the
/// distance and from the offset: their last bits differ.
struct CatmullRomOfDistance {
  template <typename Number>
  static Number Weight(Number t) {
    const Number a = Distance(t);
    const Number a2 = a * a;
    const Number a3 = a2 * a;
    const Number near = 1.5f * a3 - 2.5f * a2 + 1.0f;
    const Number far = -0.5f * a3 + 2.5f * a2 - 4.0f * a + 2.0f;
    return a < 1.0f ? near : a < 2.0f ? far : Number{};
  }
};

struct Box {
  template <typename Number>
  static Number Weight(Number t) {
    const Number one = Number{} + 1.0f;
    return t < -0.5f ? Number{} : t < 0.5f ? one : Number{};
  }
};

struct Hermite {
  template <typename Number>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number left = (-2.0f * t - 3.0f) * t2 + 1.0f;
    const Number right = (2.0f * t - 3.0f) * t2 + 1.0f;
    return t < -1.0f ? Number{} : t < 0.0f ? left : t < 1.0f ? right : Number{};
  }
};

// Deliberate: the damping leaves 0.08 at distance 1 instead of 0.
struct DampedHermite {
  template <typename Number>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number left = (-2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
    const Number right = (2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
    return t < -1.0f ? Number{} : t < 0.0f ? left : t < 1.0f ? right : Number{};
  }
};

struct QuadraticBSpline {
  template <typename Number>
  static Number Weight(Number t) {
    const Number left = 0.5f * ((t + 1.5f) * (t + 1.5f));
    const Number middle = 0.75f - t * t;
    const Number right = 0.5f * ((t - 1.5f) * (t - 1.5f));
    const Number upper = t < 0.5f ? middle : t < 1.5f ? right : Number{};
    return t < -1.5f ? Number{} : t < -0.5f ? left : upper;
  }
};

/// Mitchell and Netravali (1988) with B = C = 1/3.
struct MitchellNetravali {
  template <typename Number>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number t3 = t2 * t;
    const Number far_left = 1.7777778f + 3.3333333f * t + 2.0f * t2 + 0.38888887f * t3;
    const Number left = 0.8888889f - 2.0f * t2 - 1.1666666f * t3;
    const Number right = 0.8888889f - 2.0f * t2 + 1.1666666f * t3;
    const Number far_right = 1.7777778f - 3.3333333f * t + 2.0f * t2 - 0.38888887f * t3;
    const Number upper = t < 1.0f ? right : t < 2.0f ? far_right : Number{};
    const Number lower = t < -1.0f ? far_left : left;
    return t < -2.0f ? Number{} : t < 0.0f ? lower : upper;
  }
};

struct CatmullRomOfOffset {
  template <typename Number>
  static Number Weight(Number t) {
    const Number t2 = t * t;
    const Number t3 = t2 * t;
    const Number far_left = 0.5f * (t3 + 5.0f * t2 + 8.0f * t + 4.0f);
    const Number left = 0.5f * (2.0f - 5.0f * t2 - 3.0f * t3);
    const Number right = 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f);
    const Number far_right = 0.5f * (-t3 + 5.0f * t2 - 8.0f * t + 4.0f);
    const Number upper = t < 1.0f ? right : t < 2.0f ? far_right : Number{};
    const Number lower = t < -1.0f ? far_left : left;
    return t < -2.0f ? Number{} : t < 0.0f ? lower : upper;
  }
};

}  // namespace
}  // namespace qel::polynomials

#endif  // QEL_IMAGE_KERNEL_POLYNOMIALS_H_
