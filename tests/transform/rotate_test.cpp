#include <algorithm>
#include <bit>
#include <cmath>

#include "image/interpolated_sampling.h"
#include "reference/operations.h"
#include "reference/pixels.h"
#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"
#include "tests/support/sanitized.h"
#include "transform/rotate/bounded_kernels.h"
#include "transform/rotate/tap_kernels.h"

namespace qel::test {
namespace {

using RotationReadings = ReadingTest;

class Rotation : public OperationTest {
 protected:
  IQELTransform& transform() { return *module_->transform; }
};
QEL_INSTANTIATE_LEVELS(Rotation);

// Sources that begin or end where memory does: kernels read whole words.
TEST_F(RotationReadings, EqualEveryMethod) {
  Rng rng(2);
  const auto layout = [&]() -> Layout {
    const auto fence = rng.OneIn(2) ? Layout::Fence::kBefore : Layout::Fence::kAfter;
    return {.bottom_up = rng.OneIn(2), .fence = fence};
  };
  for (int method = -1; method <= 16 && !HasFailure(); ++method) {
    for (const int depth : {8, 24, 28, 32}) {
      // Pixels of 8 bits go in squares, where there is room.
      const int most = depth == 8 ? 140 : 60;
      const int width = rng.Int(20, most);
      const Raster source(rng, width, rng.Int(20, most), depth, UsualModel(depth), layout());
      ExpectSame({source}, Call("Rotate", rng.Int(1, 360), method, rng.OneIn(3), rng.OneIn(2)));
      ExpectSame({source}, Call("Rotate", 360, method, 0, 0));
    }
  }
}

// Large enough for remembered weights: positions of every binade, read more than once.
TEST_F(RotationReadings, EqualRememberedWeights) {
  Rng rng(3);
  for (const int method : {9, 10, 11, 12}) {
    const Raster source = RandomRaster(rng, 1100, 66, rng.OneIn(2) ? 24 : 32);
    ExpectSame({source}, Call("Rotate", rng.Int(1, 20), method, 0, 1));
  }
}

// Bytes of pictures hide wrong last bits of weights: all of them, at positions of every binade,
// among them whole ones and those just below.
TEST_P(Rotation, WeighsTapsAsSingleNumbers) {
  constexpr uint32_t kStep = 1024 - 5;
  for (int method = 0; method < 16; ++method) {
    const WeighTaps weigh = TapKernelsFor(GetParam()).weights[method];
    if (weigh == nullptr) continue;
    const TapWindow& window = method == 5 ? kTaps12 : kTaps4;
    const auto taps = static_cast<size_t>(window.count);
    for (auto bits = std::bit_cast<uint32_t>(method == 5 ? 5.0f : 0.5f);
         bits < std::bit_cast<uint32_t>(2100.0f);) {
      float positions[kSampleChunk];
      for (float& position : positions) position = std::bit_cast<float>(bits += kStep);
      positions[7] = std::floor(positions[7]);
      positions[8] = std::nextafter(std::floor(positions[8]) + 1, 0.0f);
      float weights[kSampleChunk * kMaxTaps];
      weigh(weights, positions, kSampleChunk);
      for (size_t i = 0; i < kSampleChunk; ++i) {
        float expected[kMaxTaps];
        TapWeights(window, MethodOf(method).kernel, positions[i], TapOrigin(positions[i]),
                   expected);
        for (size_t tap = 0; tap < taps; ++tap) {
          ASSERT_EQ(weights[WeightPlace(i, taps) + tap * kWeightGroup], expected[tap])
              << "method " << method << ", tap " << tap << " of " << positions[i];
        }
      }
    }
  }
}

// Of every thirteenth fraction that positions from 4 on have.
TEST_P(Rotation, BoundsWhatWeightsAreOff) {
  constexpr int kFractions = 1 << 21;
  constexpr int kStep = 13;
  double most = 0;
  WeightLine highest;
  for (int first = 0; first < kFractions; first += kStep * static_cast<int>(kSampleChunk)) {
    float positions[kSampleChunk];
    for (size_t i = 0; i < kSampleChunk; ++i) {
      const int fraction = (first + kStep * static_cast<int>(i)) % kFractions;
      positions[i] = 5 + std::ldexp(static_cast<float>(fraction), -21);
    }
    float weights[kBoundedTaps * kSampleChunk];
    BoundedKernelsFor(GetParam()).weigh(weights, positions, kSampleChunk);
    for (size_t i = 0; i < kSampleChunk; ++i) {
      float stated[kBoundedTaps];
      TapWeights(kTaps12, MethodOf(5).kernel, positions[i], 5, stated);
      double error = 0;
      for (size_t k = 0; k < kBoundedTaps; ++k) {
        error += std::abs(static_cast<double>(weights[k * kSampleChunk + i]) - double{stated[k]});
      }
      most = std::max(most, std::ldexp(error, 24));
      for (const WeightLine& line : {LineOf(stated, 1), LineOf(weights + i, kSampleChunk)}) {
        highest.sum = std::max(highest.sum, line.sum);
        highest.sizes = std::max(highest.sizes, line.sizes);
        highest.running_sum = std::max(highest.running_sum, line.running_sum);
        highest.running_sizes = std::max(highest.running_sizes, line.running_sizes);
      }
    }
  }
  EXPECT_LE(most, kBoundedWeightError);
  EXPECT_LE(highest.sum, kLanczosLine.sum);
  EXPECT_LE(highest.sizes, kLanczosLine.sizes);
  EXPECT_LE(highest.running_sum, kLanczosLine.running_sum);
  EXPECT_LE(highest.running_sizes, kLanczosLine.running_sizes);
  EXPECT_LE(highest.running_sizes, kLanczosApart.running_sizes);
}

// Sums of 12 x 12 taps whose distance from whole numbers is about what they are rounded by: in
// noise some of them, all where nothing is turned, and where values are dark and alike.
TEST_F(RotationReadings, EqualSumsNearWholeNumbers) {
  Rng rng(14);
  for (const int depth : {8, 24, 32}) {
    const Raster source = RandomRaster(rng, kSanitized ? 40 : 150, kSanitized ? 30 : 90, depth);
    for (const int angle : {360, rng.Int(1, 89), rng.Int(91, 179), rng.Int(181, 359)}) {
      ExpectSame({source}, Call("Rotate", angle, 5, 0, 1));
    }
    ExpectSame({source, RandomRaster(rng, source.width, source.height, rng.OneIn(2) ? 24 : 32)},
               Call("RotatePaste", rng.OneIn(2) ? 0.3 : 0.0, 5, -1));
  }
  if (kSanitized) return;
  Raster flat = RandomRaster(rng, 240, 240, 8);
  for (int y = 0; y < 240; ++y) {
    for (int x = 0; x < 240; ++x) flat.Row(y)[x] = static_cast<uint8_t>(y / 15 * 16 + x / 15);
  }
  ExpectSame({flat}, Call("Rotate", 1, 5, 0, 1));
  for (int y = 0; y < 240; ++y) {
    for (int x = 0; x < 240; ++x) flat.Row(y)[x] = (x ^ y) % 2 != 0 || y / 20 % 2 != 0 ? 255 : 0;
  }
  ExpectSame({flat}, Call("Rotate", 31, 5, 0, 1));
}

// So wide that the frame is sampled in bands of columns.
TEST_F(RotationReadings, EqualWideFrames) {
  Rng rng(6);
  for (const int depth : {8, 24, 32}) {
    const Raster source = RandomRaster(rng, rng.Int(4400, 4900), 20, depth);
    ExpectSame({source}, Call("Rotate", rng.OneIn(2) ? 2 : -178, rng.OneIn(2) ? 0 : 3, 0, 1));
    ExpectSame({source, RandomRaster(rng, 4700, 40, depth)},
               Call("RotatePaste", 0.003, rng.OneIn(2) ? 0 : 3, -1));
  }
  // Rows of a byte per pixel that run over each other.
  ExpectSame({RandomRaster(rng, 4700, 20, 4)}, Call("Rotate", 360, 0, 0, 0));
}

TEST_F(RotationReadings, EqualAnImagePastedOntoItself) {
  Rng rng(5);
  for (const int depth : {24, 32}) {
    ExpectSame({RandomRaster(rng, 40, 30, depth)}, CallOn("00", "RotatePaste", 0.3, 3, -1));
  }
}

// Source and target are windows of one picture, upside down or not.
TEST_P(Rotation, PastesOntoItsOwnMemoryPixelByPixel) {
  Rng rng(12);
  for (int round = 0; round < 60 && !HasFailure(); ++round) {
    const int depth = rng.OneIn(2) ? 24 : 32;
    Raster picture = RandomRaster(rng, 70, 60, depth);
    Raster expected = picture;
    const auto window = [&](int x, int y, int height) {
      return std::pair(picture.Window(x, y, 40, height), expected.Window(x, y, 40, height));
    };
    auto [source, plain_source] = window(rng.Int(0, 30), rng.Int(0, 20), 40);
    auto [target, plain_target] = window(rng.Int(0, 30), rng.Int(0, 55), 5);
    if (rng.OneIn(3)) std::swap(source, target), std::swap(plain_source, plain_target);
    const double angle = static_cast<double>(rng.OneIn(3) ? 0.0f : rng.Float(-0.5f, 0.5f));
    const int method = rng.Int(0, 5);
    transform().RotatePaste(TestImage::Make(source).Get(), TestImage::Make(target).Get(), angle,
                            method, -1);
    reference::RotatePaste(plain_source, plain_target, angle, method, -1);
    EXPECT_EQ(picture.Difference(expected), "") << "round " << round;
  }
}

// Between sizes like these, single precision has no halves.
TEST_F(RotationReadings, EqualHugeSizes) {
  Rng rng(13);
  const Layout layout = {.fence = Layout::Fence::kAfter};
  Raster::NewImageLayout() = layout;
  constexpr int kHuge = (1 << 23) + 1;
  ExpectSame({Raster(rng, kHuge, 1, 1, kModelMono, layout)}, Call("Rotate", 45, 0, 0, 1));
  ExpectSame({Raster(rng, 1, kHuge, 1, kModelMono, layout)}, Call("Rotate", 45, 0, 0, 1));
}

TEST_P(Rotation, KeepsMarginOfTheSource) {
  Rng rng(8);
  Raster source(rng, 30, 20, 24, kModelBgr, {});
  for (int y = 0; y < 20; ++y) std::fill_n(source.Row(y), 90, uint8_t{90});
  std::fill_n(source.Row(0), 3, uint8_t{10});
  const Raster turned = ResultOf(source, Call("Rotate", 360, 0, 0));
  ASSERT_EQ(turned.width, 30);
  ASSERT_EQ(turned.height, 20);
  EXPECT_EQ(turned.Row(10)[3 * 2], 10) << "the background";
  EXPECT_EQ(turned.Row(10)[3 * 5], 90);
  EXPECT_EQ(turned.Row(10)[3 * 24], 90);
  EXPECT_EQ(turned.Row(10)[3 * 27], 10);
  const Raster corners = ResultOf(RandomRaster(rng, 100, 100, 32), Call("Rotate", 45, 3, 0));
  EXPECT_EQ(corners.width, 141);
  EXPECT_EQ(corners.Row(0)[3], 255) << "opaque background";
}

// One byte per pixel at 4 bits: rows reach into the next ones, whose margins show it.
TEST_P(Rotation, KeepsWholeBytesAtShallowDepths) {
  Rng rng(9);
  Raster source(rng, 40, 30, 4, kModelMono, {});
  for (int y = 0; y < 30; ++y) std::fill_n(source.Row(y), 20, uint8_t{0x55});
  source.Row(0)[0] = 0x25;
  Raster::NewImageLayout() = {};
  const Raster turned = ResultOf(source, Call("Rotate", 360, 1, 0));
  EXPECT_EQ(turned.Row(2)[1], 2) << "background";
  EXPECT_EQ(turned.Row(15)[1], 5) << "pixel 21 of the row above";
}

TEST_P(Rotation, KeepsUndrawnImageWhenCreationFails) {
  Rng rng(10);
  TestHost& host = TestHost::Instance();
  const auto image = TestImage::Make(RandomRaster(rng, 20, 20, 24));
  host.logging = true;
  SmartPtr<IQEL> result;
  EXPECT_EQ(transform().Rotate(image.Get(), result.Put(), 30, 3, 0, 0), kOk);
  const auto create = std::find(host.log.begin(), host.log.end(), "Create") - host.log.begin();
  host.Reset();
  host.fault = TestHost::Fault::kFail;
  host.fault_at = static_cast<int>(create);
  EXPECT_EQ(transform().Rotate(image.Get(), result.Put(), 30, 3, 0, 0), kOk);
  ASSERT_TRUE(result);
  EXPECT_EQ(static_cast<TestImage*>(result.Get())->raster.Bits(), nullptr);
}

TEST_P(Rotation, KeepsDrawingWhenTheKeyHasATopByte) {
  Rng rng(11);
  const Raster source(rng, 12, 12, 24, kModelBgr, {});
  const uint8_t* const pixel = source.Row(5) + 3 * 5;
  const int color = pixel[0] | pixel[1] << 8 | pixel[2] << 16;
  for (const int top : {0, 1}) {
    const auto from = TestImage::Make(source);
    const auto target = TestImage::Make(Raster(rng, 12, 12, 24, kModelBgr, {}));
    const Raster before = target->raster;
    EXPECT_EQ(transform().RotatePaste(from.Get(), target.Get(), 0.0, 0, color | top << 24), kOk);
    const Raster& expected = top == 0 ? before : source;
    EXPECT_TRUE(std::equal(pixel, pixel + 3, source.Row(5) + 15));
    EXPECT_TRUE(std::equal(expected.Row(5) + 15, expected.Row(5) + 18, target->raster.Row(5) + 15));
  }
}

}  // namespace
}  // namespace qel::test
