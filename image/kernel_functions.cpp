#include "image/kernel_functions.h"

#include <cmath>
#include <numbers>

#include "image/bessel.h"
#include "image/kernel_polynomials.h"

namespace qel {
namespace {

// Single precision unless a line says otherwise.

constexpr double kPi = std::numbers::pi;

float Sinc(float t) {
  if (t == 0.0f) return 1.0f;
  const double angle = kPi * static_cast<double>(t);
  return static_cast<float>(std::sin(angle) / angle);
}

/// The cosine sum of Blackman's window (Blackman and Tukey 1958).
// Deliberate: no cut-off, so that the weights at whole positions are 0, 1, 0, 1. The whole sum is
// formed in double precision; anything else misses those values.
float Blackman(float t) {
  const double angle = kPi * static_cast<double>(t);
  return static_cast<float>(0.42 + 0.5 * std::cos(angle) + 0.08 * std::cos(2.0 * angle));
}

float Jinc(float t) {
  if (t == 0.0f) return 0.7853982f;
  return KernelBessel_Order1(static_cast<float>(kPi * static_cast<double>(t))) / (2.0f * t);
}

float Gaussian(float t) { return 0.7978846f * std::exp(-2.0f * (t * t)); }

/// Lanczos (Duchon 1979) with six lobes: sinc under a wider sinc that ends at distance 6.
float Lanczos6(float t) {
  if (std::fabs(t) > 6.0f) return 0.0f;
  if (t == 0.0f) return 1.0f;
  const auto u = static_cast<float>(kPi * static_cast<double>(t));
  const float v = u / 6.0f;
  return (std::sin(u) / u) * (std::sin(v) / v);
}

constexpr InterpolationMethod kMethods[] = {
    {Sampling::kNearest, nullptr},
    {Sampling::kBilinear, nullptr},
    {Sampling::kKernel4, &polynomials::CubicBSpline::Weight<float>},
    {Sampling::kKernel4, &polynomials::Keys::Weight<float>},
    {Sampling::kKernel4, &polynomials::CatmullRomOfDistance::Weight<float>},
    {Sampling::kKernel12, &Lanczos6},
    {Sampling::kKernel4, &polynomials::Box::Weight<float>},
    {Sampling::kKernel4, &polynomials::Hermite::Weight<float>},
    {Sampling::kKernel4, &polynomials::DampedHermite::Weight<float>},
    {Sampling::kKernel4, &Sinc},
    {Sampling::kKernel4, &Blackman},
    {Sampling::kKernel4, &Jinc},
    {Sampling::kKernel4, &Gaussian},
    {Sampling::kKernel4, &polynomials::QuadraticBSpline::Weight<float>},
    {Sampling::kKernel4, &polynomials::MitchellNetravali::Weight<float>},
    {Sampling::kKernel4, &polynomials::CatmullRomOfOffset::Weight<float>},
};

}  // namespace

const InterpolationMethod& MethodOf(int number) {
  return kMethods[number >= 0 && number <= 15 ? number : 1];
}

}  // namespace qel
