#include <cmath>

#include "reference/pixels.h"
#include "reference/transform.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

class Circle : public OperationTest {
 protected:
  IQELDeform& deform() { return *module_->deform; }
  void ExpectOracle(const Raster& raster, int mode, int with_alpha, float factor) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", factor " << factor);
    Raster expected = raster;
    const result_t code = oracle::CircleTransform(expected, mode, with_alpha, factor);
    ExpectSame(
        {raster},
        [&](auto images, IQEL**) {
          return deform().CircleTransform(images[0], mode, with_alpha, factor);
        },
        [&](auto images, Raster&) { return images[0] = expected, code; });
    if (mode < 0 || with_alpha != 0) return;
    ExpectSameByMethods(raster, expected, kCircleMethods,
                        [&](size_t by, const ImageView& from, const ImageView& to) {
                          return module_->plans->circle(static_cast<CircleMethod>(by), from, to,
                                                        mode, factor);
                        });
  }
  /// Every pixel says where it came from, so that no wrong position goes unnoticed.
  static Raster Numbered(int width, int height) {
    Rng rng(1);
    Raster raster(rng, width, height, 32, kModelArgb, {});
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        oracle::StoreWord(raster.Row(y) + 4 * x, (x & 0xFFF) | y << 12 | 0x40000000);
      }
    }
    return raster;
  }
};
QEL_INSTANTIATE_LEVELS(Circle);

TEST_P(Circle, EqualsTheOracleAtEveryDepth) {
  constexpr float kFactors[] = {1, 0.3f, 5, -1, 0.01f, 0, INFINITY, 1e-9f};
  for (uint64_t seed = 0; seed < 12 && !HasFailure(); ++seed) {
    ForEachRaster(seed, kAllDepths, [&](const Raster& raster, Rng& rng) {
      const int mode = rng.OneIn(8) ? INT32_MAX : rng.Int(-1, 5);
      ExpectOracle(raster, mode, rng.Int(0, 1), kFactors[rng.Int(0, 7)]);
    });
  }
  EXPECT_EQ(methods_run_.size(), std::size(kCircleMethods));
}

// The mappings are computed otherwise than they are defined: every pixel of many sizes.
TEST_P(Circle, EqualsTheOracleAtEverySize) {
  Rng rng(2);
  for (int width = 1; width < 230 && !HasFailure(); width += rng.Int(1, 11)) {
    const Raster raster = Numbered(width, rng.OneIn(4) ? width : rng.Int(1, 230));
    for (int mode = 0; mode < 5; ++mode) ExpectOracle(raster, mode, 0, rng.Float(0.05f, 3));
  }
  // More than one tile per row; squared distances beyond 31 bits, and beyond 32, where pixels come
  // back into the disc; turns beyond the kernels' reach.
  for (int mode = 0; mode < 5; ++mode) {
    ExpectOracle(Numbered(1201, 50), mode, 0, 1);
    ExpectOracle(Numbered(92700, 2), mode, 0, 0.001f);
    ExpectOracle(Numbered(140000, 1), mode, 0, 1);
  }
}

TEST_P(Circle, RefusesWhatItCannotDo) {
  TestHost& host = TestHost::Instance();
  const auto image = TestImage::Make(Numbered(20, 20));
  const Raster before = image->raster;
  host.Reset();
  EXPECT_EQ(deform().CircleTransform(nullptr, 0, 0, 1), kFail);
  EXPECT_EQ(deform().CircleTransform(image.Get(), -1, 0, 1), kInvalidArgument);
  EXPECT_EQ(host.calls, 0) << "nothing is touched";
  host.refuses_images = true;
  EXPECT_EQ(deform().CircleTransform(image.Get(), 0, 0, 1), kFail);
  host.Reset();
  host.refuses_queries = true;
  EXPECT_EQ(deform().CircleTransform(image.Get(), 0, 0, 1), kOk);
  EXPECT_EQ(image->raster.Difference(before), "");
}

TEST_P(Circle, KeepsTheLowerHalfOnTheColumnsOfTheUpper) {
  const auto image = TestImage::Make(Numbered(100, 100));
  ASSERT_EQ(deform().CircleTransform(image.Get(), kCircleUnwrap, 0, 1), kOk);
  bool reaches[52] = {};
  for (int y = 0; y < 100; ++y) {
    for (int x = 0; x < 100; ++x) {
      const int word = oracle::LoadWord(image->raster.Row(y) + 4 * x);
      if (word >> 24 == 1) continue;
      ASSERT_LE(word & 0xFFF, 50);
      reaches[word & 0xFFF] = true;
      // One row up from the centre and one row down from it meet.
      if (y == 49) {
        EXPECT_EQ(word, oracle::LoadWord(image->raster.Row(51) + 4 * x));
      }
    }
  }
  EXPECT_TRUE(reaches[0] && reaches[25] && reaches[50]);
}

TEST_P(Circle, KeepsTheColourModelWhenAlphaIsAdded) {
  Rng rng(3);
  const auto image = TestImage::Make(Raster(rng, 50, 50, 24, kModelBgr, {}));
  ASSERT_EQ(deform().CircleTransform(image.Get(), kCircleBulge, 1, 1), kOk);
  EXPECT_EQ(image->raster.bit_count, 32);
  EXPECT_EQ(image->raster.model, kModelBgr);
  EXPECT_EQ(image->raster.Row(25)[4 * 25 + 3], 255) << "the centre";
  EXPECT_EQ(image->raster.Row(0)[3], 1) << "the corner is outside";
}

}  // namespace
}  // namespace qel::test
