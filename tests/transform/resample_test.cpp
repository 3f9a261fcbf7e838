#include <algorithm>
#include <cmath>

#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"
#include "tests/support/sanitized.h"
#include "transform/resample/resample_plan.h"
#include "transform/tap_tolerance.h"

namespace qel::test {
namespace {

using ResampleReadings = ReadingTest;
using Resample = OperationTest;
QEL_INSTANTIATE_LEVELS(Resample);

// Every method at the depths that have quick ways: enlarging by whole and odd factors, and with one
// axis shrinking, so that windows of taps lie close together or far apart.
TEST_F(ResampleReadings, EqualEveryMethod) {
  Rng rng(2);
  for (int method = -1; method <= 16 && !HasFailure(); ++method) {
    for (const int depth : {8, 24, 28, 32}) {
      const Raster source = RandomRaster(rng, rng.Int(14, 40), rng.Int(13, 20), depth);
      ExpectSame({source}, Call("Resample", 2 * source.width, 2 * source.height, method, 0));
      ExpectSame({source}, Call("Resample", source.width + rng.Int(1, 30),
                                source.height + rng.Int(1, 7), method, 0));
      ExpectSame({source},
                 Call("Resample", source.width / rng.Int(2, 5), source.height + 3, method, 0));
    }
  }
}

// Flat areas of all values, steps, and slopes: at twice the size many sums lie at whole numbers or
// next to them, where other orders of addition give other bytes.
TEST_F(ResampleReadings, EqualSumsNextToWholeNumbers) {
  Rng rng(12);
  Raster source = RandomRaster(rng, 96, 48, 32);
  for (int i = 0; i < 96 * 48; ++i) {
    const int x = i % 96, y = i / 96, flat = y / 6 * 16 + x / 6;
    const int values[] = {2 * flat, 255 - 2 * flat, x + 2 * y, flat % 2 * 255};
    std::copy(std::begin(values), std::end(values), source.Row(y) + 4 * x);
  }
  for (int method = 2; method <= 15 && !HasFailure(); ++method)
    ExpectSame({source}, Call("Resample", 192, 96, method, 0));
}

// Tiles go down a band of rows at a time, and are narrower than these pictures.
TEST_F(ResampleReadings, EqualTallAndWidePictures) {
  Rng rng(8);
  for (const int depth : {8, 24, 32}) {
    const Raster source = RandomRaster(rng, rng.Int(257, 290), 7, depth);
    for (const int method : {5, 11})
      ExpectSame({source}, Call("Resample", 2 * source.width, 14, method, 0));
  }
  for (const int method : {3, 9}) {
    const Raster source = RandomRaster(rng, 3, 653, method == 3 ? 24 : 8);
    ExpectSame({source}, Call("Resample", 6, 1306, method, 0));
    ExpectSame({source}, Call("Resample", 4, 1205, method, 0));
  }
}

// Sums whose distance from whole numbers is about what they are rounded by: in noise some of them,
// in flat areas of dark values all, and where steep gradients and edges are, others.
TEST_F(ResampleReadings, EqualSumsOfTwelveTapsNearWholeNumbers) {
  Rng rng(12);
  const auto expect_doubled = [&](const Raster& source) {
    ExpectSame({source}, Call("Resample", 2 * source.width, 2 * source.height, 5, 0));
  };
  for (const int depth : {8, 24, 32}) {
    expect_doubled(RandomRaster(rng, 190, kSanitized ? 12 : 60, depth));
  }
  if (kSanitized) return;
  const auto painted = [&](int width, int height, const auto& value_at) {
    Raster picture = RandomRaster(rng, width, height, 8);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) picture.Row(y)[x] = static_cast<uint8_t>(value_at(x, y));
    }
    expect_doubled(picture);
  };
  painted(16 * 14, 16 * 14, [](int x, int y) { return y / 14 * 16 + x / 14; });
  painted(140, 20, [](int x, int) { return x / 28; });
  painted(140, 20, [](int x, int y) { return 4 * x + 8 * y; });
  painted(140, 20, [](int x, int y) { return (x ^ y) % 2 * 255; });
  painted(140, 20, [](int x, int y) { return (x / 3 + y / 5) % 2 * (255 - x / 28); });
}

// Pixels further and further apart, at the end of memory.
TEST_F(ResampleReadings, EqualNearestPixels) {
  Rng rng(6);
  for (const int depth : {8, 16, 24, 32}) {
    for (int round = 0; round < 30 && !HasFailure(); ++round) {
      const int width = rng.Int(1, 400);
      const Raster source(rng, width, rng.Int(1, 4), depth, UsualModel(depth),
                          {.fence = Layout::Fence::kAfter});
      ExpectSame({source},
                 Call("Resample", std::max(1, 10 * width / (9 + round)), rng.Int(1, 4), 0, 1));
    }
  }
}

// Boxes of all shapes: sums of 16 and of 32 bits, and areas of one pixel.
TEST_F(ResampleReadings, EqualBoxesOfEveryArea) {
  Rng rng(3);
  for (const int depth : {4, 8, 16, 24, 32}) {
    for (int round = 0; round < 40 && !HasFailure(); ++round) {
      const Raster source = RandomRaster(rng, rng.Int(1, 300), rng.Int(1, 60), depth);
      ExpectSame({source},
                 Call("Resample", rng.Int(1, source.width), rng.Int(1, source.height), 3, 0));
    }
    // Only white: the largest sums.
    Raster white = RandomRaster(rng, 64, 64, depth);
    for (int y = 0; y < 64; ++y) std::fill_n(white.Row(y), white.RowBytes(), uint8_t{255});
    for (int size = 1; size < 33; ++size)
      ExpectSame({white}, Call("Resample", size, 33 - size, 0, 0));
  }
  for (const int depth : {8, 24, 32}) {
    const Raster source = RandomRaster(rng, 2 * rng.Int(1, 90), 2 * rng.Int(1, 9), depth);
    ExpectSame({source}, Call("Resample", source.width / 2, source.height / 2, 0, 0));
  }
}

// Of boxes of one row, all areas whose sums fit 16 bits; quotients are wrong first where they step.
TEST_F(ResampleReadings, EqualMeansOfSmallBoxes) {
  for (int area = 2; area <= 128 && !HasFailure(); ++area) {
    Rng rng(11);
    constexpr int kSteps = 2 * 255;
    Raster source(rng, area * kSteps, 1, 8, kModelMono, {});
    uint8_t* byte = source.Row(0);
    for (int i = 0; i < kSteps; ++i) {
      int left = (i / 2 + 1) * area - i % 2;  // a quotient's smallest sum, and the one before it
      for (int k = area; k > 0; --k, ++byte) {
        *byte = static_cast<uint8_t>(std::max(left - 255 * (k - 1), 0));
        left -= *byte;
      }
    }
    ExpectSame({source}, Call("Resample", kSteps, 1, 3, 0));
  }
}

TEST_P(Resample, LeavesTheResultUntouchedUntilAnImageIsAskedFor) {
  Rng rng(5);
  TestHost& host = TestHost::Instance();
  const auto source = TestImage::Make(RandomRaster(rng, 4, 4, 24));
  IQEL* result = source.Get();
  host.Reset();
  host.fault = TestHost::Fault::kFail;
  host.fault_at = 0;
  EXPECT_EQ(module_->transform->Resample(source.Get(), &result, 2, 2, 0, 0), TestHost::kFaultCode);
  EXPECT_EQ(result, source.Get());
  host.Reset();
  host.refuses_images = true;
  EXPECT_EQ(module_->transform->Resample(source.Get(), &result, 2, 2, 0, 0), kFail);
  EXPECT_EQ(result, nullptr);
}

// From 2^24 on, offsets in single precision are even: row 17 of an odd stride starts a byte late.
TEST_P(Resample, KeepsSinglePrecisionRowOffsets) {
  Rng rng(7);
  constexpr int kWidth = 1048583;
  Raster source(rng, kWidth, 18, 8, kModelMono, {.fence = Layout::Fence::kAfter});
  source.Row(17)[0] = 10;
  source.Row(17)[1] = 20;
  EXPECT_EQ(ResultOf(source, Call("Resample", 3, 18, 0, 1)).Row(17)[0], 20);
}

// From 2^24 on, products in single precision are even; byte offsets are products in double.
TEST_F(ResampleReadings, EqualBoxesBeyondSinglePrecision) {
  Rng rng(10);
  const Layout layout = {.fence = Layout::Fence::kAfter};
  Raster::NewImageLayout() = layout;
  ExpectSame({Raster(rng, 6'000'000, 1, 24, kModelBgr, layout)},
             Call("Resample", 2'999'000, 1, 3, 0));
}

// Ten columns into four: boxes of two columns from 0, 2, 5 and 7; columns 4 and 9 are not read.
TEST_P(Resample, KeepsDroppingFractionsOfBoxes) {
  const Raster source = RowOf(8, {10, 20, 30, 41, 255, 60, 70, 80, 90, 255});
  EXPECT_EQ(FirstRow(ResultOf(source, Call("Resample", 4, 1, 3, 0))),
            (std::vector<uint8_t>{15, 35, 65, 85}));
}

TEST_P(Resample, KeepsAlphaOfTheNewImageInBoxes) {
  Rng rng(9);
  const Raster scaled = ResultOf(RandomRaster(rng, 100, 20, 32), Call("Resample", 50, 10, 3, 0));
  for (int x = 0; x < 50; ++x) EXPECT_EQ(scaled.Row(9)[4 * x + 3], 0xCD) << "as it was created";
}

// Even columns lie 3/4 of a pixel behind one of the source. Odd ones, 1/4 behind, take the same
// weights in reverse.
TEST(ResamplePlan, HasWeightsOfEvenAndOddColumns) {
  ImageView source, dest;
  uint8_t pixel;
  source.bits = dest.bits = &pixel;
  source.bit_count = dest.bit_count = 8;
  source.width = source.height = 32;
  dest.width = dest.height = 64;
  for (int method = 2; method <= 15; ++method) {
    const ResamplePlan plan = PlanResample(source, dest, method, false);
    ASSERT_EQ(plan.method, ResampleMethod::kDoubling);
    const TapWindow& window = method == 5 ? kTaps12 : kTaps4;
    float even[kMaxTaps], odd[kMaxTaps];
    TapWeights(window, MethodOf(method).kernel, 0.75f, 0, even);
    TapWeights(window, MethodOf(method).kernel, 0.25f, 0, odd);
    for (int k = 0; k < window.count; ++k) {
      EXPECT_EQ(plan.weights[k], even[k]) << method;
      EXPECT_EQ(plan.weights[k], odd[window.count - 1 - k]) << method;
    }
  }
}

TEST(TapTolerance, AddsWeightsUpFromTheEndThatIsAskedFor) {
  const float weights[] = {1, -3, 4, 0.5f};
  const auto expect = [](const WeightLine& line, double running_sum, double running_sizes) {
    EXPECT_EQ(line.sum, 2.5);
    EXPECT_EQ(line.sizes, 8.5);
    EXPECT_EQ(line.running_sum, running_sum);
    EXPECT_EQ(line.running_sizes, running_sizes);
  };
  expect(LineOf<4>(weights, 1), 1 + 2 + 2, 1 + 4 + 8);
  expect(LineOf<4>(weights + 3, -1), 0.5 + 4.5 + 1.5, 0.5 + 4.5 + 7.5);
}

// A bound that is proven on paper, tried on sums in both orders.
TEST(TapTolerance, HoldsForSumsInEitherOrder) {
  constexpr size_t kTaps = 12;
  Rng rng(31);
  double most = 0;  // of the tolerance, that is reached
  for (int draw = 0; draw < 2000; ++draw) {
    float rows[kTaps], columns[kTaps];
    const float least = rng.OneIn(2) ? 0.0f : -0.3f;
    for (float& weight : rows) weight = rng.Float(least, 0.4f);
    for (float& weight : columns) weight = rng.Float(least, 0.4f);
    const int lowest = rng.OneIn(2) ? 0 : rng.Int(0, 255), highest = rng.Int(lowest, 255);
    float stated = 0, down[kTaps] = {}, across = 0;
    for (size_t j = 0; j < kTaps; ++j) {
      for (size_t k = 0; k < kTaps; ++k) {
        const auto value = static_cast<float>(rng.OneIn(2) ? highest : rng.Int(lowest, highest));
        stated += rows[j] * columns[k] * value;
        down[k] += rows[j] * value;
      }
    }
    for (size_t k = 0; k < kTaps; ++k) across += columns[k] * down[k];
    const double off = std::abs(static_cast<double>(stated) - static_cast<double>(across));
    const double tolerance =
        ToleranceOf<kTaps>(LineOf<kTaps>(rows, 1), LineOf<kTaps>(columns, 1), 0)
            .Of(lowest, highest);
    ASSERT_LE(off, tolerance);
    most = std::max(most, off / tolerance);
  }
  EXPECT_GT(most, 0.01) << "so wide that all sums would be formed twice";
}

}  // namespace
}  // namespace qel::test
