#include <cmath>

#include "image/bessel.h"
#include "reference/operations.h"
#include "reference/pixels.h"

namespace qel::reference {
namespace {

float CubeOfPositive(float u) { return u > 0.0f ? u * u * u : 0.0f; }

float LanczosWeight(float t) {
  if (std::fabs(t) > 6.0f) return 0.0f;
  if (t == 0.0f) return 1.0f;
  const float u = static_cast<float>(M_PI * t);
  const float v = u / 6.0f;
  return (std::sin(u) / u) * (std::sin(v) / v);
}

/// The lower neighbour as the taps count it: truncated, and one less below zero.
int LowerIndex(float position) {
  const int truncated = TruncateToInt(position);
  return position < 0.0f ? WrappedSum(truncated, -1) : truncated;
}

int ClampedTruncation(float sum) {
  if (sum > 255.0f) return 255;
  if (sum < 0.0f) return 0;
  return TruncateToInt(sum);
}

float KernelWeight(int method, float t) {
  const float a = std::fabs(t);
  const float t2 = t * t;
  const float t3 = t2 * t;
  const float a3 = a * a * a;
  const double pi_t = M_PI * static_cast<double>(t);
  switch (method) {
    case 2:
      if (t > 2.0f) return 0.0f;
      return 0.16666667f * (CubeOfPositive(t + 2.0f) - 4.0f * CubeOfPositive(t + 1.0f) +
                            6.0f * CubeOfPositive(t) - 4.0f * CubeOfPositive(t - 1.0f));
    case 3:
      if (a < 1.0f) return 1.0f - 2.0f * t2 + a3;
      if (a < 2.0f) return 4.0f - 8.0f * a + 5.0f * t2 - a3;
      return 0.0f;
    case 4:
      if (a < 1.0f) return 1.5f * a3 - 2.5f * t2 + 1.0f;
      if (a < 2.0f) return -0.5f * a3 + 2.5f * t2 - 4.0f * a + 2.0f;
      return 0.0f;
    case 5:
      return LanczosWeight(t);
    case 6:
      return t >= -0.5f && t < 0.5f ? 1.0f : 0.0f;
    case 7:
      if (t >= -1.0f && t < 0.0f) return (-2.0f * t - 3.0f) * t2 + 1.0f;
      if (t >= 0.0f && t < 1.0f) return (2.0f * t - 3.0f) * t2 + 1.0f;
      return 0.0f;
    case 8:
      if (t >= -1.0f && t < 0.0f) return (-2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
      if (t >= 0.0f && t < 1.0f) return (2.0f * t - 3.0f) * 0.92f * t2 + 1.0f;
      return 0.0f;
    case 9:
      return t == 0.0f ? 1.0f : static_cast<float>(std::sin(pi_t) / pi_t);
    case 10:
      return static_cast<float>(0.42 + 0.5 * std::cos(pi_t) + 0.08 * std::cos(2.0 * pi_t));
    case 11:
      return t == 0.0f ? 0.7853982f : BesselOrder1(static_cast<float>(pi_t)) / (2.0f * t);
    case 12:
      return 0.7978846f * std::exp(-2.0f * t2);
    case 13:
      if (t >= -1.5f && t < -0.5f) return 0.5f * ((t + 1.5f) * (t + 1.5f));
      if (t >= -0.5f && t < 0.5f) return 0.75f - t2;
      if (t >= 0.5f && t < 1.5f) return 0.5f * ((t - 1.5f) * (t - 1.5f));
      return 0.0f;
    case 14:
      if (t >= -2.0f && t < -1.0f) {
        return 1.7777778f + 3.3333333f * t + 2.0f * t2 + 0.38888887f * t3;
      }
      if (t >= -1.0f && t < 0.0f) return 0.8888889f - 2.0f * t2 - 1.1666666f * t3;
      if (t >= 0.0f && t < 1.0f) return 0.8888889f - 2.0f * t2 + 1.1666666f * t3;
      if (t >= 1.0f && t < 2.0f) {
        return 1.7777778f - 3.3333333f * t + 2.0f * t2 - 0.38888887f * t3;
      }
      return 0.0f;
    default:
      if (t >= -2.0f && t < -1.0f) return 0.5f * (t3 + 5.0f * t2 + 8.0f * t + 4.0f);
      if (t >= -1.0f && t < 0.0f) return 0.5f * (2.0f - 5.0f * t2 - 3.0f * t3);
      if (t >= 0.0f && t < 1.0f) return 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f);
      if (t >= 1.0f && t < 2.0f) return 0.5f * (-t3 + 5.0f * t2 - 8.0f * t + 4.0f);
      return 0.0f;
  }
}

/// The pixel itself, since its position has no fraction any more.
uint32_t GetBilinearColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                          int bit_count) {
  const uint32_t color = GetPixelColor(bits, x, y, width, height, stride, bit_count);
  const bool inside = bits != nullptr && x >= 0 && y >= 0 && x + 1 < width && y + 1 < height;
  return inside && bit_count >= 24 ? color | 0xFF000000u : color;
}

}  // namespace

// Its rational approximations are those of the module, which tests compare with the mathematics
// library's function.
float BesselOrder1(float x) {
  if (x == 0.0f) return 0.0f;
  const float p = std::fabs(x);
  if (p < 8.0f) return static_cast<float>(KernelBessel_J1(static_cast<double>(p))) * x;
  const float p1 = static_cast<float>(KernelBessel_P1(static_cast<double>(p)));
  const float q1 = static_cast<float>(KernelBessel_Q1(static_cast<double>(p)));
  const float sine = std::sin(p);
  const float cosine = std::cos(p);
  const float h = 0.70710677f;
  const float r = static_cast<float>(std::sqrt(2.0 / (M_PI * static_cast<double>(p))));
  const float value = r * (q1 * (8.0f / p) * (sine + cosine) * h + (sine - cosine) * h * p1);
  return x < 0.0f ? -value : value;
}

uint32_t Interpolated(const uint8_t* bits, float x, float y, int width, int height, int stride,
                      int method, int bpp) {
  const auto pixel = [&](int64_t px, int64_t py) {
    return GetPixelColor(bits, static_cast<int>(px), static_cast<int>(py), width, height, stride,
                         bpp);
  };
  const uint32_t outside = pixel(-999, -999);
  if (bits == nullptr || width <= 0 || height <= 0) return outside;
  if (method == 0) return pixel(TruncateToInt(x + 0.5f), TruncateToInt(y + 0.5f));
  if (method < 2 || method > 15) {
    return GetBilinearColor(bits, TruncateToInt(x), TruncateToInt(y), width, height, stride, bpp);
  }
  const int64_t fx = LowerIndex(x);
  const int64_t fy = LowerIndex(y);
  const bool sinc = method == 5;
  if (sinc ? (fx < -6 || fx - 4 > width || fy < -6 || fy - 4 > height)
           : (fx < -2 || fx > width || fy < -2 || fy > height)) {
    return outside;
  }
  const int before = sinc ? 5 : 1;
  const int taps = sinc ? 12 : 4;
  const bool fast = bpp >= 24 && bits != nullptr &&
                    (sinc ? (width > fx + 6 && fx > 4 && fy + 6 < height && fy >= 5)
                          : (fx + 2 < width && fx > 0 && fy + 2 < height && fy >= 1));
  float sums[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (int j = 0; j < taps; ++j) {
    const int64_t row = fy - before + j;
    const float row_weight = KernelWeight(method, static_cast<float>(row) - y);
    for (int i = 0; i < taps; ++i) {
      const int64_t column = fx - before + i;
      const float column_weight = KernelWeight(method, static_cast<float>(column) - x);
      const float weight = row_weight * column_weight;
      const uint32_t color = pixel(column, row);
      for (int c = 0; c < 4; ++c) {
        // Alpha: of stored pixels on the fast road, and of every tap of the large kernel.
        if (c == 3 && !(fast ? bpp == 32 : sinc)) continue;
        sums[c] += weight * static_cast<float>(Channel(color, c));
      }
    }
  }
  return Pack(ClampedTruncation(sums[0]), ClampedTruncation(sums[1]), ClampedTruncation(sums[2]),
              ClampedTruncation(sums[3]));
}

}  // namespace qel::reference
