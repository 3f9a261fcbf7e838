#include "image/bessel.h"

#include <cmath>
#include <cstddef>
#include <numbers>

namespace qel {
namespace {

/// Horner's rule from the last coefficient down.
template <size_t kCount>
double Polynomial(const double (&coefficients)[kCount], double s) {
  double sum = coefficients[kCount - 1];
  for (size_t i = kCount - 1; i > 0; --i) sum = sum * s + coefficients[i - 1];
  return sum;
}

/// The quotient of two polynomials.
template <size_t kOver, size_t kUnder>
double Ratio(const double (&over)[kOver], const double (&under)[kUnder], double s) {
  return Polynomial(over, s) / Polynomial(under, s);
}

}  // namespace

double KernelBessel_J1(double x) {
  static constexpr double Pone[] = {
      5.811993540016061e+20,  -6.672106568924916e+19, 2.3164335806340024e+18,
      -3.588817569910106e+16, 290879526383477.56,     -1322983480332.1265,
      3413234182.3017006,     -4695753.530642996,     2701.1227108923235};
  static constexpr double Qone[] = {
      1.1623987080032122e+21, 1.185770712190321e+19, 6.092061398917522e+16,
      208166122130760.75,     524371026216.76495,    1013863514.358674,
      1501793.5949985855,     1606.9315734814877,    1.0};
  return Ratio(Pone, Qone, x * x);
}

double KernelBessel_P1(double x) {
  static constexpr double Pone[] = {35224.66491336798,  62758.84524716128,  31353.963110915956,
                                    4985.4832060594335, 211.15291828539623, 1.2571716929145342};
  static constexpr double Qone[] = {35224.66491336798, 62694.34695935605,  31240.406381904104,
                                    4930.396490181089, 203.07751891347593, 1.0};
  const double z = 8.0 / x;
  return Ratio(Pone, Qone, z * z);
}

double KernelBessel_Q1(double x) {
  static constexpr double Pone[] = {351.17519143035526, 721.0391804904475, 425.98730116544425,
                                    83.18989576738508,  4.568171629551227, 0.03532840052740124};
  static constexpr double Qone[] = {7491.737417180912,  15414.177339265098, 9152.231701516992,
                                    1811.1867005523513, 103.81875854621337, 1.0};
  const double z = 8.0 / x;
  return Ratio(Pone, Qone, z * z);
}

float KernelBessel_Order1(float x) {
  if (x == 0.0f) return 0.0f;
  const float p = std::fabs(x);
  if (p < 8.0f) return static_cast<float>(KernelBessel_J1(static_cast<double>(p))) * x;
  constexpr float kInverseRoot2 = 0.70710677f;
  const auto wide = static_cast<double>(p);
  const auto p1 = static_cast<float>(KernelBessel_P1(wide));
  const auto q1 = static_cast<float>(KernelBessel_Q1(wide));
  const float sine = std::sin(p);
  const float cosine = std::cos(p);
  const auto root = static_cast<float>(std::sqrt(2.0 / (std::numbers::pi * wide)));
  const float value = root * (q1 * (8.0f / p) * (sine + cosine) * kInverseRoot2 +
                              (sine - cosine) * kInverseRoot2 * p1);
  return x < 0.0f ? -value : value;
}

}  // namespace qel
