#include <cmath>

#include "reference/operations.h"
#include "reference/pixels.h"
#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

/// Every pixel says where it came from, so that no wrong position goes unnoticed.
Raster Numbered(int width, int height) {
  Rng rng(1);
  Raster raster(rng, width, height, 32, kModelArgb, {});
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      reference::StoreWord(raster.Row(y) + 4 * x, (x & 0xFFF) | y << 12 | 0x40000000);
    }
  }
  return raster;
}

using CircleReadings = ReadingTest;
using Circle = OperationTest;
QEL_INSTANTIATE_LEVELS(Circle);

// The mappings are computed otherwise than they are defined: every pixel of many sizes.
TEST_F(CircleReadings, EqualTheOperationAtEverySize) {
  Rng rng(2);
  for (int width = 1; width < 230 && !HasFailure(); width += rng.Int(1, kSanitized ? 60 : 11)) {
    const Raster raster = Numbered(width, rng.OneIn(4) ? width : rng.Int(1, 230));
    for (int mode = 0; mode < 5; ++mode)
      ExpectSame({raster}, Call("CircleTransform", mode, 0, rng.Float(0.05f, 3)));
  }
  // More than one tile per row, and more than one band; squared distances beyond 31 bits, and
  // beyond 32, where pixels come back into the disc; turns beyond the kernels' reach.
  constexpr struct {
    int width, height;
    float factor;
  } kLarge[] = {{1201, 50, 1}, {4211, 31, 1}, {92700, 2, 0.001f}, {140000, 1, 1}};
  for (int i = 0; i < 20; i += kSanitized ? 3 : 1) {
    const auto& [width, height, factor] = kLarge[i / 5];
    ExpectSame({Numbered(width, height)}, Call("CircleTransform", i % 5, 0, factor));
  }
}

TEST_P(Circle, KeepsTheLowerHalfOnTheColumnsOfTheUpper) {
  const Raster unwrapped =
      ResultOf(Numbered(100, 100), Call("CircleTransform", int{kCircleUnwrap}, 0, 1));
  bool reaches[52] = {};
  for (int y = 0; y < 100; ++y) {
    for (int x = 0; x < 100; ++x) {
      const int word = reference::LoadWord(unwrapped.Row(y) + 4 * x);
      if (word >> 24 == 1) continue;
      ASSERT_LE(word & 0xFFF, 50);
      reaches[word & 0xFFF] = true;
      // One row up from the centre and one row down from it meet.
      if (y == 49) {
        EXPECT_EQ(word, reference::LoadWord(unwrapped.Row(51) + 4 * x));
      }
    }
  }
  EXPECT_TRUE(reaches[0] && reaches[25] && reaches[50]);
}

TEST_P(Circle, KeepsTheColorModelWhenAlphaIsAdded) {
  Rng rng(3);
  const Raster image = ResultOf(Raster(rng, 50, 50, 24, kModelBgr, {}),
                                Call("CircleTransform", int{kCircleBulge}, 1, 1));
  EXPECT_EQ(image.bit_count, 32);
  EXPECT_EQ(image.model, kModelBgr);
  EXPECT_EQ(image.Row(25)[4 * 25 + 3], 255) << "the centre";
  EXPECT_EQ(image.Row(0)[3], 1) << "the corner is outside";
}

}  // namespace
}  // namespace qel::test
