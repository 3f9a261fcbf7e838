#include "reference/color.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>

#include "reference/pixels.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// Arguments for any operation, each of which takes what it needs.
struct Draw {
  Draw(Rng& rng, const Raster& image) {
    constexpr int kExtremes[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 100, 0, -100};
    constexpr float kFloats[] = {0.0f, 1.0f, 2.2f, -1.0f, 1e-30f, 1e30f, 0.999f, 0.9991f, 1.5f};
    for (int& value : whole) {
      value = rng.OneIn(8) ? kExtremes[rng.Int(0, 5)] : rng.Int(-300, 300);
    }
    real = rng.OneIn(3) ? kFloats[rng.Int(0, 8)] : rng.Float(0.0f, 1.2f);
    hue = static_cast<uint8_t>(rng.Next());
    saturation = static_cast<uint8_t>(rng.OneIn(4) ? 0 : rng.Next());
    for (uint8_t& entry : table) entry = static_cast<uint8_t>(rng.Next());
    key = rng.Next();
    if (image.Bits() != nullptr && image.bit_count >= 24) {
      // The colour of the first pixel: keys must be found. The top byte stays random.
      const uint8_t* const pixel = image.Row(0);
      key = (key & 0xFF000000u) | oracle::Pack(pixel[2], pixel[1], pixel[0], 0);
    }
  }

  int whole[3];
  float real;
  uint8_t hue, saturation;
  uint8_t table[256];
  uint32_t key;
};

struct Operation {
  const char* name;
  std::function<result_t(IQELColorTransform&, IQEL*, Draw&)> call;
  std::function<result_t(Raster&, Draw&)> oracle;
};

template <typename Method, typename Oracle, typename Arguments>
Operation Row(const char* name, Method method, Oracle oracle, Arguments arguments) {
  return {name,
          [=](IQELColorTransform& color, IQEL* image, Draw& draw) {
            return std::apply([&](auto... a) { return (color.*method)(image, a...); },
                              arguments(draw));
          },
          [=](Raster& image, Draw& draw) {
            return std::apply([&](auto... a) { return oracle(image, a...); }, arguments(draw));
          }};
}

using I = IQELColorTransform;
const Operation kOperations[] = {
    Row("Lut", &I::Lut, oracle::Lut, [](Draw& d) { return std::tuple(d.table); }),
    Row("Light", &I::Light, oracle::Light,
        [](Draw& d) { return std::tuple(d.whole[0], d.whole[1]); }),
    Row("Gamma", &I::Gamma, oracle::Gamma, [](Draw& d) { return std::tuple(3 * d.real); }),
    Row("Negative", &I::Negative, oracle::Negative, [](Draw&) { return std::tuple(); }),
    Row("ShiftRGB", &I::ShiftRGB, oracle::ShiftRGB,
        [](Draw& d) { return std::tuple(d.whole[0], d.whole[1], d.whole[2]); }),
    Row("GrayScale", &I::GrayScale, oracle::GrayScale, [](Draw&) { return std::tuple(); }),
    Row("Threshold", &I::Threshold, oracle::Threshold,
        [](Draw& d) { return std::tuple(d.whole[0]); }),
    Row("SetImageAlpha", &I::SetImageAlpha, oracle::SetImageAlpha,
        [](Draw& d) { return std::tuple(d.whole[0], d.whole[1]); }),
    Row("SetImageTransparentPixel", &I::SetImageTransparentPixel, oracle::SetImageTransparentPixel,
        [](Draw& d) { return std::tuple(d.key); }),
    Row("SetImageAlphaTransparency", &I::SetImageAlphaTransparency,
        oracle::SetImageAlphaTransparency, [](Draw& d) { return std::tuple(d.whole[0], d.key); }),
    Row("Colorize", &I::Colorize, oracle::Colorize,
        [](Draw& d) { return std::tuple(d.hue, d.saturation, d.real); }),
};

class Color : public OperationTest {
 protected:
  /// One image of one row: `bytes` as its pixels, changed by `call`.
  std::vector<uint8_t> After(int bit_count, const std::vector<uint8_t>& bytes,
                             const std::function<result_t(IQEL*)>& call) {
    Rng rng(1);
    const int width = static_cast<int>(bytes.size()) * 8 / bit_count;
    const auto image =
        TestImage::Make(Raster(rng, width, 1, bit_count, UsualModel(bit_count), {.padding = 9}));
    std::copy(bytes.begin(), bytes.end(), image->raster.Row(0));
    EXPECT_EQ(call(image.Get()), kOk);
    return {image->raster.Row(0), image->raster.Row(0) + bytes.size()};
  }
  IQELColorTransform& color() { return *module_->color; }
};
QEL_INSTANTIATE_LEVELS(Color);

using Bytes = std::vector<uint8_t>;

TEST_P(Color, EveryOperationEqualsItsOracle) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    for (int round = 0; round < 3; ++round) {
      ForEachRaster(static_cast<uint64_t>(round), kAllDepths, [&](const Raster& raster, Rng& rng) {
        Draw draw(rng, raster);
        ExpectSame(
            {raster}, [&](auto images, IQEL**) { return operation.call(color(), images[0], draw); },
            [&](auto images, Raster&) { return operation.oracle(images[0], draw); });
      });
      if (HasFailure()) return;
    }
  }
}

TEST_P(Color, RefusesNullArgumentsAndShallowAlpha) {
  Rng rng(2);
  Draw draw(rng, {});
  for (const Operation& operation : kOperations) {
    EXPECT_EQ(operation.call(color(), nullptr, draw), kFail) << operation.name;
  }
  EXPECT_EQ(color().Lut(TestImage::Make({}).Get(), nullptr), kFail);
  EXPECT_EQ(TestHost::Instance().calls, 0) << "nothing is touched";
}

// The two operations that go through a second image: no image, and a source that takes none.
TEST_P(Color, GrayScaleNeedsAnImageAndThresholdDoesNot) {
  TestHost& host = TestHost::Instance();
  const int live = host.live_objects;
  const Bytes pixels = {10, 20, 31, 200, 200, 201};
  host.refuses_images = true;
  {
    Rng rng(3);
    const auto image = TestImage::Make(Raster(rng, 2, 2, 24, kModelBgr, {}));
    const Raster before = image->raster;
    EXPECT_EQ(color().GrayScale(image.Get()), kFail);
    EXPECT_EQ(image->raster.Difference(before), "");
  }
  // The channels differ still, and only their sum counts.
  EXPECT_EQ(After(24, pixels, [&](IQEL* i) { return color().Threshold(i, 20); }),
            (Bytes{255, 255, 255, 255, 255, 255}));
  host.refuses_images = false;
  host.refuses_queries = true;
  EXPECT_EQ(After(24, pixels, [&](IQEL* i) { return color().GrayScale(i); }), pixels);
  EXPECT_EQ(host.live_objects, live);
}

TEST_P(Color, GivesWhatItTookWhenAHostCallThrows) {
  TestHost& host = TestHost::Instance();
  const int live = host.live_objects;
  Rng rng(4);
  for (int at = 0; at < 30; ++at) {
    for (const auto fault : {TestHost::Fault::kThrow, TestHost::Fault::kFail}) {
      host.Reset();
      const auto image = TestImage::Make(Raster(rng, 5, 3, 32, kModelArgb, {}));
      host.fault = fault;
      host.fault_at = at;
      try {
        color().Threshold(image.Get(), 100);
      } catch (const TestHost::Exception&) {
        EXPECT_EQ(fault, TestHost::Fault::kThrow);
      }
      EXPECT_EQ(image->references(), 1u);
      EXPECT_EQ(host.live_objects, live + 1);
    }
  }
}

TEST_P(Color, ReadsAnImageOnceAndCallsNothingElse) {
  TestHost& host = TestHost::Instance();
  Rng rng(5);
  const auto image = TestImage::Make(Raster(rng, 5, 3, 32, kModelArgb, {}));
  for (const Operation& operation : kOperations) {
    if (operation.name == std::string("GrayScale") || operation.name == std::string("Threshold")) {
      continue;
    }
    host.Reset();
    host.logging = true;
    Draw draw(rng, image->raster);
    operation.call(color(), image.Get(), draw);
    std::sort(host.log.begin(), host.log.end());
    EXPECT_EQ(host.log, (std::vector<std::string>{"GetBits", "GetFormat", "GetSize"}))
        << operation.name;
  }
}

TEST_P(Color, GivesTheValuesOfRoundExamples) {
  const struct {
    const char* what;
    int bit_count;
    Bytes before, after;
    std::function<result_t(IQEL*)> call;
  } cases[] = {
      {"Light adds",
       8,
       {0, 54, 55, 255},
       {200, 254, 255, 255},
       [&](IQEL* i) { return color().Light(i, 200, 0); }},
      {"Light flattens",
       8,
       {0, 54, 255},
       {138, 138, 138},
       [&](IQEL* i) { return color().Light(i, 10, -100); }},
      {"Gamma 0 blackens",
       32,
       {9, 1, 255, 77},
       {0, 0, 0, 77},
       [&](IQEL* i) { return color().Gamma(i, 0.0f); }},
      {"Gamma 1 keeps",
       24,
       {9, 1, 255},
       {9, 1, 255},
       [&](IQEL* i) { return color().Gamma(i, 1.0f); }},
      {"ShiftRGB saturates",
       24,
       {9, 8, 7},
       {0, 8, 255},
       [&](IQEL* i) { return color().ShiftRGB(i, 300, 0, -300); }},
      {"GrayScale truncates",
       32,
       {10, 20, 31, 5},
       {20, 20, 20, 5},
       [&](IQEL* i) { return color().GrayScale(i); }},
      {"Threshold is above",
       24,
       {127, 127, 127, 128, 128, 128},
       {0, 0, 0, 255, 255, 255},
       [&](IQEL* i) { return color().Threshold(i, 127); }},
      {"SetImageAlpha keeps a byte",
       32,
       {1, 2, 3, 4},
       {1, 2, 3, 44},
       [&](IQEL* i) { return color().SetImageAlpha(i, 300, 7); }},
      {"SetImageTransparentPixel: red",
       32,
       {0, 0, 255, 9, 0, 0, 254, 9},
       {0, 0, 255, 0, 0, 0, 254, 9},
       [&](IQEL* i) { return color().SetImageTransparentPixel(i, 0xFF0000FF); }},
      {"SetImageAlphaTransparency: white",
       32,
       {255, 255, 255, 9, 0, 0, 0, 9},
       {255, 255, 255, 0, 0, 0, 0, 128},
       [&](IQEL* i) { return color().SetImageAlphaTransparency(i, 128, 0xFFFFFF); }},
      {"Colorize: grey",
       24,
       {10, 20, 31},
       {21, 21, 21},
       [&](IQEL* i) { return color().Colorize(i, 99, 0, 1.5f); }},
      {"Colorize: nothing",
       24,
       {10, 20, 31},
       {10, 20, 31},
       [&](IQEL* i) { return color().Colorize(i, 99, 200, -1.0f); }},
      {"Colorize: red",
       24,
       {128, 128, 128},
       {1, 1, 254},
       [&](IQEL* i) { return color().Colorize(i, 0, 255, 1.0f); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(After(c.bit_count, c.before, c.call), c.after) << c.what;
  }
}

TEST_P(Color, KeepsReadingPastTheRowAtEightBits) {
  Rng rng(6);
  const auto image = TestImage::Make(Raster(rng, 2, 1, 8, kModelMono, {.padding = 2}));
  const Bytes row = {100, 0, 200, 250};  // the last two are padding
  std::copy(row.begin(), row.end(), image->raster.Row(0));
  color().GrayScale(image.Get());
  EXPECT_EQ(image->raster.Row(0)[0], (117 * 100 + 306 * 200) >> 10);
  EXPECT_EQ(image->raster.Row(0)[1], (601 * 200 + 306 * 250) >> 10);
}

TEST_P(Color, KeepsAlphaZeroForTheKey) {
  const Bytes pixel = {1, 2, 3, 200};
  const auto alpha_of = [&](int alpha) {
    return After(32, pixel, [&](IQEL* i) { return color().SetImageAlpha(i, alpha, 0); })[3];
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
    oracle::SetImageTransparentPixel(expected, 0xAA102030);
    ASSERT_EQ(mprotect(sealed, 3 * page, PROT_READ), 0);
    EXPECT_EQ(color().SetImageTransparentPixel(image.Get(), 0xAA102030), kOk);
    mprotect(sealed, 3 * page, PROT_READ | PROT_WRITE);
    EXPECT_EQ(raster.Difference(expected), "");
  }
}

TEST_P(Color, KeepsAlphaAsymmetryAtOddBitCounts) {
  Rng rng(7);
  for (const int bit_count : {25, 31, 33, 40}) {
    const auto image = TestImage::Make(Raster(rng, 8, 1, bit_count, 0, {}));
    const Raster before = image->raster;
    EXPECT_EQ(color().SetImageTransparentPixel(image.Get(), 0), kOk);
    EXPECT_EQ(color().SetImageAlphaTransparency(image.Get(), 9, 0), kOk);
    EXPECT_EQ(image->raster.Difference(before), "");
    EXPECT_EQ(color().SetImageAlpha(image.Get(), 0x155, 0), kOk);
    for (int at = 3; at < 4 * 8; at += 4) EXPECT_EQ(image->raster.Row(0)[at], 0x55);
  }
}

TEST_P(Color, KeepsLowerEndAtExactly360Degrees) {
  const auto red_of = [&](uint8_t hue) {
    return After(24, {128, 128, 128}, [&](IQEL* i) { return color().Colorize(i, hue, 255, 1); })[2];
  };
  EXPECT_EQ(red_of(170), 1) << "240 + 120 degrees";
  EXPECT_GT(red_of(171), 1);
}

TEST_P(Color, KeepsMixingUpTo999) {
  const auto blue_of = [&](float blend) {
    return After(24, {255, 0, 0}, [&](IQEL* i) { return color().Colorize(i, 0, 0, blend); })[0];
  };
  EXPECT_EQ(blue_of(0.999f), (128 * 255 + 255) >> 8);
  EXPECT_EQ(blue_of(0.9991f), 128);
}

// One table of 256 lightnesses per call stands for the arithmetic on every pixel.
TEST(Colorize, GivesEveryHueSaturationAndLightness) {
  auto& color = *ModuleUnderTest::ForLevel(DetectCpuLevel()).color;
  TestHost::Instance().Reset();
  Rng rng(8);
  Raster greys(rng, 256, 1, 24, kModelBgr, {});
  for (int i = 0; i < 3 * 256; ++i) greys.Row(0)[i] = static_cast<uint8_t>(i / 3);
  const auto image = TestImage::Make(greys);
  const Bytes start(greys.Row(0), greys.Row(0) + 3 * 256);
  for (int hue = 0; hue < 256; ++hue) {
    for (int saturation = 0; saturation < 256; ++saturation) {
      std::copy(start.begin(), start.end(), image->raster.Row(0));
      std::copy(start.begin(), start.end(), greys.Row(0));
      const auto h = static_cast<uint8_t>(hue), s = static_cast<uint8_t>(saturation);
      color.Colorize(image.Get(), h, s, 1.0f);
      oracle::Colorize(greys, h, s, 1.0f);
      ASSERT_TRUE(std::equal(greys.Row(0), greys.Row(0) + 3 * 256, image->raster.Row(0)))
          << "hue " << hue << ", saturation " << saturation;
    }
  }
}

}  // namespace
}  // namespace qel::test
