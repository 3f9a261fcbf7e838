#include "image/pixel_access.h"

#include <gtest/gtest.h>

#include <utility>

#include "image/nearest_gray.h"
#include "reference/pixels.h"
#include "tests/support/rasters.h"

namespace qel::test {
namespace {

// The nearest entry depends on the sum of the channels only: it is the one nearest to their mean.
TEST(NearestGray, EqualsTheSearchOverAllSums) {
  Rng rng(2);
  for (int sum = 0; sum <= 3 * 255; ++sum) {
    for (int split = 0; split < 20; ++split) {
      const int blue = rng.Int(std::max(0, sum - 510), std::min(255, sum));
      const int green = rng.Int(std::max(0, sum - blue - 255), std::min(255, sum - blue));
      const int red = sum - blue - green;
      EXPECT_EQ(NearestGray(static_cast<uint32_t>(blue), static_cast<uint32_t>(green),
                            static_cast<uint32_t>(red)),
                reference::NearestIndex(reference::Pack(blue, green, red, 0)));
    }
  }
  EXPECT_EQ(NearestGray(0, 0, 255), 85);
}

TEST(PixelAccess, KeepsTopLeftColorOutside) {
  const uint8_t pixels[] = {10, 20, 30, 40, 50, 60};
  EXPECT_EQ(GetPixelColor(pixels, -1, 5, 2, 1, 6, 24), 0x011E140Au);
  EXPECT_EQ(GetPixelColor(nullptr, 0, 0, 2, 1, 6, 24), 0x01000000u);
  EXPECT_EQ(GetPixelColor(pixels, 0, 0, 0, 0, 6, 24), 0u);
  ImageView view{{2, 1, 1, 24, kModelBgr}, const_cast<uint8_t*>(pixels), 6};
  EXPECT_EQ(OutsideColor(view), 0x011E140Au);
}

TEST(PixelAccess, KeepsWritingOnePastTheEnd) {
  uint8_t row[3] = {1, 2, 3};
  SetPixelColor(row, 2, 0, 2, 1, 3, 0xC8C8C8, 8);
  EXPECT_EQ(row[2], 200);
  EXPECT_EQ(GetPixelColor(row, 2, 0, 2, 1, 3, 8), 0x01010101u);
}

TEST(PixelAccess, KeepsInteriorOpaque) {
  const uint32_t pixels[] = {0x05000001, 0x06000002, 0x07000003, 0x08000004};
  const auto* const bits = reinterpret_cast<const uint8_t*>(pixels);
  EXPECT_EQ(GetBilinearColor(bits, 0, 0, 2, 2, 8, 32), 0xFF000001u);
  EXPECT_EQ(GetBilinearColor(bits, 0, 0, 2, 2, 8, 24), 0xFF000001u);
  EXPECT_EQ(GetBilinearColor(bits, 1, 0, 2, 2, 8, 32), 0x06000002u);
  EXPECT_EQ(GetPixelColor(bits, 0, 0, 2, 2, 8, 32), 0x05000001u);
}

TEST(PixelAccess, KeepsNearBlackGraysOfShallowDepths) {
  uint8_t byte = 0xA3;
  EXPECT_EQ(GetPixelColor(&byte, 0, 0, 2, 1, 1, 4), 0x0A0A0Au);
  EXPECT_EQ(GetPixelColor(&byte, 1, 0, 2, 1, 1, 4), 0x030303u);
  SetPixelColor(&byte, 0, 0, 2, 1, 1, 0xC8C8C8, 4);
  EXPECT_EQ(byte, 0x83);
  SetPixelColor(&byte, 7, 0, 8, 1, 1, 0xC8C8C8, 1);
  EXPECT_EQ(byte, 0x82);
}

}  // namespace
}  // namespace qel::test
