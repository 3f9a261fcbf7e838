#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "reference/operations.h"
#include "reference/pixels.h"
#include "tests/support/module_under_test.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

using Bytes = std::vector<uint8_t>;

class Color : public OperationTest {
 protected:
  Bytes After(int bit_count, const Bytes& bytes, const PairedCall& call) {
    return FirstRow(ResultOf(RowOf(bit_count, bytes), call));
  }
  IQELColorTransform& color() { return *module_->color; }
};
QEL_INSTANTIATE_LEVELS(Color);

using ColorReadings = ReadingTest;

TEST_F(ColorReadings, EqualEveryOperation) { ExpectSameDraws("color", 500); }

// Large images go along a line or a curve where their table is one.
TEST_F(ColorReadings, EqualLargeImages) {
  Rng rng(2);
  std::vector<uint8_t> falling, thirds;  // a line of thirds is one of 256ths with the least offset
  for (int i = 0; i < 256; ++i) {
    falling.push_back(static_cast<uint8_t>(250 * std::exp(-i * i / 20000.0)));
    thirds.push_back(static_cast<uint8_t>(i / 3));
  }
  for (int round = 0; round < 9; ++round) {
    const Raster image = RandomRaster(rng, 8209, 9, kCommonDepths[static_cast<size_t>(round % 3)]);
    ExpectSame({image}, Call("Light", rng.Int(-200, 200), rng.Int(-110, 160)));
    ExpectSame({image}, Call("Gamma", std::exp2(rng.Float(-2, 2))));
    ExpectSame({image}, Call("Lut", falling));
    ExpectSame({image}, Call("Lut", thirds));
    ExpectSame({image}, Call("Colorize", rng.Int(0, 255), rng.Int(0, 255), rng.Float(0.2f, 1.2f)));
  }
}

// The channels differ still, and only their sum counts.
TEST_P(Color, ThresholdGoesOnWithoutAnImage) {
  TestHost::Instance().refuses_images = true;
  EXPECT_EQ(After(24, {10, 20, 31, 9, 9, 9}, Call("Threshold", 20)),
            (Bytes{255, 255, 255, 0, 0, 0}));
  // One byte alone differs from the next one.
  for (size_t place = 0; place < 3 * 64; ++place) {
    Bytes row(3 * 64, 10), expected(3 * 64, 0);
    std::fill_n(row.begin(), place, uint8_t{11});
    std::fill_n(expected.begin(), (place + 2) / 3 * 3, uint8_t{255});
    EXPECT_EQ(After(24, row, Call("Threshold", 10)), expected) << place;
  }
}

TEST_P(Color, KeepsReadingPastTheRowAtEightBits) {
  Rng rng(6);
  Raster image(rng, 2, 1, 8, kModelMono, {.padding = 2});
  const Bytes row = {100, 0, 200, 250};  // the last two are padding
  std::copy(row.begin(), row.end(), image.Row(0));
  image = ResultOf(image, Call("GrayScale"));
  EXPECT_EQ(image.Row(0)[0], (117 * 100 + 306 * 200) >> 10);
  EXPECT_EQ(image.Row(0)[1], (601 * 200 + 306 * 250) >> 10);
}

TEST_P(Color, KeepsAlphaZeroForTheKey) {
  const Bytes pixel = {1, 2, 3, 200};
  const auto alpha_of = [&](int alpha) {
    return After(32, pixel, Call("SetImageAlpha", alpha, 0))[3];
  };
  EXPECT_EQ(alpha_of(0), 1);
  EXPECT_EQ(alpha_of(256), 0) << "only the whole number 0 is replaced";
}

// Pages without the key are read-only, with pixels of the key right before and after them: what
// stores anything else ends the test.
TEST_P(Color, StoresOnlyThePixelsOfTheKey) {
  constexpr uint8_t kKey[] = {0x10, 0x20, 0x30}, kOther[] = {0x10, 0x20, 0x31};
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  Rng rng(9);
  for (const bool sparse : {false, true}) {
    const auto image = TestImage::Make(Raster(rng, 1021, 17, 32, kModelArgb, {}));
    Raster& raster = image->raster;
    uint8_t* const begin = raster.Row(0);
    uint8_t* const end = raster.Row(17);
    const auto first = (reinterpret_cast<uintptr_t>(begin) / page + 2) * page;
    auto* const sealed = reinterpret_cast<uint8_t*>(first);
    for (uint8_t* pixel = begin; pixel < end; pixel += 4) {
      const bool is_key =
          (pixel < sealed || pixel >= sealed + 3 * page) && !(sparse && rng.OneIn(3));
      std::copy_n(is_key ? kKey : kOther, 3, pixel);
    }
    Raster expected = raster;
    reference::SetImageTransparentPixel(expected, 0xAA102030);
    ASSERT_EQ(mprotect(sealed, 3 * page, PROT_READ), 0);
    EXPECT_EQ(color().SetImageTransparentPixel(image.Get(), 0xAA102030), kOk);
    mprotect(sealed, 3 * page, PROT_READ | PROT_WRITE);
    EXPECT_EQ(raster.Difference(expected), "");
  }
}

TEST_P(Color, KeepsAlphaAsymmetryAtOddBitCounts) {
  Rng rng(7);
  for (const int bit_count : {25, 31, 33, 40}) {
    const Raster image(rng, 8, 1, bit_count, 0, {});
    EXPECT_EQ(ResultOf(image, Call("SetImageTransparentPixel", 0)), image);
    EXPECT_EQ(ResultOf(image, Call("SetImageAlphaTransparency", 9, 0)), image);
    const Raster opaque = ResultOf(image, Call("SetImageAlpha", 0x155, 0));
    for (int at = 3; at < 4 * 8; at += 4) EXPECT_EQ(opaque.Row(0)[at], 0x55);
  }
}

TEST_P(Color, KeepsLowerEndAtExactly360Degrees) {
  const auto red_of = [&](uint8_t hue) {
    return After(24, {128, 128, 128}, Call("Colorize", hue, 255, 1))[2];
  };
  EXPECT_EQ(red_of(170), 1) << "240 + 120 degrees";
  EXPECT_GT(red_of(171), 1);
}

TEST_P(Color, KeepsMixingUpTo999) {
  const auto blue_of = [&](float blend) {
    return After(24, {255, 0, 0}, Call("Colorize", 0, 0, blend))[0];
  };
  EXPECT_EQ(blue_of(0.999f), (128 * 255 + 255) >> 8);
  EXPECT_EQ(blue_of(0.9991f), 128);
}

// Estimates decide nearly everywhere: never where the power would be cut off to another number.
TEST_F(ColorReadings, EqualPowersOfTheLibrary) {
  Rng rng(8);
  Raster ramp(rng, 256, 1, 8, kModelMono, {});
  for (int i = 0; i < 256; ++i) ramp.Row(0)[i] = static_cast<uint8_t>(i);
  const auto compare = [&](float gamma) { ExpectSame({ramp}, Call("Gamma", gamma)); };
  for (int n = 1; n <= 200; ++n) {  // powers with many whole numbers, and beyond what is estimated
    compare(static_cast<float>(n));
    compare(1.0f / static_cast<float>(n));
    compare(std::nextafter(1.0f, 0.0f) - static_cast<float>(n - 1) * 1e-6f);
  }
  const float infinite = std::numeric_limits<float>::infinity();
  for (const float gamma : {0.0f, -0.0f, -1.0f, -0.001f, -3e38f, 1e-40f, 1e-8f, 1e8f, 3e38f,
                            infinite, -infinite, std::nanf("")}) {
    compare(gamma);
  }
  for (int round = 0; round < (kSanitized ? 300 : 5000) && !HasFailure(); ++round) {
    compare(std::exp2(rng.Float(-7, 7)));
  }
}

// One table of 256 lightnesses per call stands for the arithmetic on every pixel.
TEST(Colorize, GivesEveryHueSaturationAndLightness) {
  auto& color = *ModuleUnderTest::ForLevel(DetectCpuLevel()).color;
  TestHost::Instance().Reset();
  Rng rng(8);
  Raster grays(rng, 256, 1, 24, kModelBgr, {});
  for (int i = 0; i < 3 * 256; ++i) grays.Row(0)[i] = static_cast<uint8_t>(i / 3);
  const auto image = TestImage::Make(grays);
  const Bytes start(grays.Row(0), grays.Row(0) + 3 * 256);
  for (int hue = 0; hue < 256; ++hue) {
    for (int saturation = 0; saturation < 256; saturation += kSanitized ? 15 : 1) {
      std::copy(start.begin(), start.end(), image->raster.Row(0));
      std::copy(start.begin(), start.end(), grays.Row(0));
      const auto h = static_cast<uint8_t>(hue), s = static_cast<uint8_t>(saturation);
      color.Colorize(image.Get(), h, s, 1.0f);
      reference::Colorize(grays, h, s, 1.0f);
      ASSERT_TRUE(std::equal(grays.Row(0), grays.Row(0) + 3 * 256, image->raster.Row(0)))
          << "hue " << hue << ", saturation " << saturation;
    }
  }
}

}  // namespace
}  // namespace qel::test
