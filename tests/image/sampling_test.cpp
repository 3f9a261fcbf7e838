#include <gtest/gtest.h>

#include <cmath>

#include "image/bessel.h"
#include "image/interpolated_sampling.h"
#include "reference/operations.h"
#include "tests/support/rasters.h"

namespace qel::test {
namespace {

uint32_t Sample(const Raster& image, float x, float y, int method) {
  return GetPixelColorInterpolated(image.Bits(), x, y, image.width, image.height, image.stride,
                                   method, image.bit_count);
}

/// A flat image of one byte.
Raster Flat(int bit_count, uint8_t value) {
  Rng rng(1);
  Raster image(rng, 20, 20, bit_count, UsualModel(bit_count), {});
  for (int y = 0; y < image.height; ++y) std::fill_n(image.Row(y), image.RowBytes(), value);
  return image;
}

TEST(Sampling, EqualsTheOracleInsideAndOutside) {
  Rng rng(2);
  constexpr float kPositions[] = {0.0f,  -0.0f,  -1.0f,   -1.2f, -1.6f,    0.49999997f,
                                  1e10f, -1e10f, 8388608, NAN,   INFINITY, -6.5f};
  for (int round = 0; round < 40; ++round) {
    const int depth = kAllDepths[static_cast<size_t>(rng.Int(0, 7))];
    const Raster image = RandomRaster(rng, rng.Int(0, 30), rng.Int(0, 30), depth);
    const auto position = [&](int size) {
      if (rng.OneIn(8)) return kPositions[rng.Int(0, 11)];
      const float anywhere = rng.Float(-8.0f, static_cast<float>(size) + 8.0f);
      return rng.OneIn(4) ? std::floor(anywhere) : anywhere;
    };
    for (int i = 0; i < 600; ++i) {
      const float x = position(image.width);
      const float y = position(image.height);
      const int method = rng.Int(-1, 17);
      EXPECT_EQ(Sample(image, x, y, method),
                reference::Interpolated(image.Bits(), x, y, image.width, image.height, image.stride,
                                        method, image.bit_count))
          << image.Describe() << " at " << x << ", " << y << " by method " << method;
    }
  }
}

TEST(Sampling, BesselIsOddAndItsBranchesMeet) {
  EXPECT_EQ(KernelBessel_Order1(0.0f), 0.0f);
  EXPECT_NEAR(KernelBessel_Order1(std::nextafter(8.0f, 0.0f)), KernelBessel_Order1(8.0f), 1e-6);
  for (int i = 1; i < 4000; ++i) {
    const float x = static_cast<float>(i) / 100.0f;
    EXPECT_EQ(KernelBessel_Order1(-x), -KernelBessel_Order1(x));
    EXPECT_EQ(KernelBessel_Order1(x), reference::BesselOrder1(x));
    EXPECT_NEAR(KernelBessel_Order1(x), j1(static_cast<double>(x)), 2e-7);
  }
  // All digits of the coefficients: sums over the ranges of the three approximations.
  double sums[3] = {};
  for (int i = 0; i < 800; ++i) {
    sums[0] += KernelBessel_J1(i / 100.0);
    sums[1] += KernelBessel_P1(8 + i / 10.0);
    sums[2] += KernelBessel_Q1(8 + i / 10.0);
  }
  EXPECT_EQ(sums[0], 97.846395795946734);
  EXPECT_EQ(sums[1], 800.13316208409049);
  EXPECT_EQ(sums[2], 37.485551313783859);
}

TEST(Sampling, KeepsTruncatedPositionsForMethodOne) {
  Rng rng(4);
  const Raster image = RandomRaster(rng, 20, 20, 24);
  EXPECT_EQ(Sample(image, 7.9f, 8.9f, 1), Sample(image, 7.0f, 8.0f, 0) | 0xFF000000u);
}

TEST(Sampling, KeepsAlphaAwayFromTheBorderOnly) {
  const Raster image = Flat(32, 200);
  EXPECT_EQ(Sample(image, 5.5f, 5.5f, 3) >> 24, 200u);
  EXPECT_EQ(Sample(image, 0.5f, 5.5f, 3) >> 24, 0u) << "near the border, 4 by 4";
  EXPECT_NE(Sample(image, 0.5f, 5.5f, 5) >> 24, 0u) << "near the border, 12 by 12";
}

// A position of -1.0 counts its taps from -2, so that the pixel itself is the third of four.
TEST(Sampling, KeepsExtraStepBelowZero) {
  EXPECT_EQ(TapOrigin(-1.0f), -2);
  EXPECT_EQ(TapOrigin(-0.5f), -1);
  EXPECT_EQ(TapOrigin(1.0f), 1);
}

TEST(Sampling, KeepsFarBoundsOfTheLargeKernel) {
  const Raster image = Flat(32, 200);
  const uint32_t outside = 0x01C8C8C8;
  EXPECT_EQ(Sample(image, 25.0f, 5.0f, 5), outside) << "beyond the size plus four";
  EXPECT_EQ(Sample(image, 5.0f, -6.5f, 5), outside) << "beyond six below";
  // Still sums of taps, all of them outside: in between, their weights do not add up to one.
  EXPECT_NE(Sample(image, 24.5f, 5.5f, 5), outside);
  EXPECT_NE(Sample(image, 5.5f, -4.5f, 5), outside);
}

TEST(Sampling, KeepsUnscaledCosineSum) {
  EXPECT_EQ(Sample(Flat(24, 100), 5.0f, 5.0f, 10), 0x00FFFFFFu) << "four times 100, clamped";
  EXPECT_EQ(Sample(Flat(24, 30), 5.0f, 5.0f, 10), 0x00787878u) << "weights 0, 1, 0, 1";
}

TEST(Sampling, KeepsDampedHermiteTail) {
  EXPECT_EQ(MethodOf(8).kernel(std::nextafter(1.0f, 0.0f)), 1.0f - 0.92f);
  EXPECT_EQ(MethodOf(8).kernel(1.0f), 0.0f);
}

}  // namespace
}  // namespace qel::test
