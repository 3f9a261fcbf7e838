#include <cstdlib>
#include <cstring>

#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// Behaviour of the filters that looks like a mistake, each with an example in numbers.
class Filters : public OperationTest {
 protected:
  /// An 8-bit image without padding, row by row.
  static SmartPtr<TestImage> Greys(int width, const std::vector<int>& levels) {
    Rng rng(1);
    const int height = static_cast<int>(levels.size()) / width;
    auto image = TestImage::Make(Raster(rng, width, height, 8, kModelMono, {}));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        image->raster.Row(y)[x] = static_cast<uint8_t>(levels[static_cast<size_t>(y * width + x)]);
      }
    }
    return image;
  }
  static const Raster& RasterOf(const SmartPtr<IQEL>& result) {
    return static_cast<TestImage*>(result.Get())->raster;
  }
};
QEL_INSTANTIATE_LEVELS(Filters);

TEST_P(Filters, KeepsEvenSizesReachingUpAndLeft) {
  std::vector<int> levels(25, 0);
  levels[2 * 5 + 2] = 255;
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->filter->Dilate(Greys(5, levels).Get(), 2, result.Put()), kOk);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 5; ++x) {
      const bool lit = (x == 2 || x == 3) && (y == 2 || y == 3);
      EXPECT_EQ(RasterOf(result).Row(y)[x], lit ? 255 : 0) << x << ", " << y;
    }
  }
}

TEST_P(Filters, KeepsComparingADifferenceWithAKeptValue) {
  // 30 exceeds the centre 10 by 20 and is kept; 38 exceeds it by 28 only, which is not above 30.
  SmartPtr<IQEL> result;
  ASSERT_EQ(
      module_->filter->Contour(Greys(3, {10, 10, 10, 30, 10, 38, 10, 10, 10}).Get(), result.Put()),
      kOk);
  EXPECT_EQ(RasterOf(result).Row(1)[1], 255 - 30);
}

TEST_P(Filters, KeepsTheDarkerLevelOfTheGaussianBlur) {
  SmartPtr<IQEL> result;
  ASSERT_EQ(
      module_->filter->GaussianBlur(Greys(7, std::vector<int>(49, 255)).Get(), 2, result.Put()),
      kOk);
  EXPECT_EQ(RasterOf(result).Row(3)[3], 255 * 268 / 273);
  // The weight of the pixel two to the left is 2, that of the one two to the right 7.
  std::vector<int> levels(49, 0);
  levels[3 * 7 + 1] = levels[3 * 7 + 5] = 255;
  levels[3 * 7 + 5] = 0;
  ASSERT_EQ(module_->filter->GaussianBlur(Greys(7, levels).Get(), 2, result.Put()), kOk);
  EXPECT_EQ(RasterOf(result).Row(3)[3], 255 * 2 / 273);
}

TEST_P(Filters, KeepsJitterReachingTwiceAsFarAsNoise) {
  constexpr int kAmount = 8;
  std::vector<int> levels(250);
  for (int x = 0; x < 250; ++x) levels[static_cast<size_t>(x)] = x;
  int farthest = 0;
  for (unsigned seed = 1; seed < 40; ++seed) {
    std::srand(seed);
    SmartPtr<IQEL> result;
    ASSERT_EQ(module_->filter->Jitter(Greys(250, levels).Get(), kAmount, result.Put()), kOk);
    for (int x = 0; x < 250; ++x) {
      farthest = std::max(farthest, std::abs(RasterOf(result).Row(0)[x] - x));
    }
  }
  EXPECT_GT(farthest, kAmount / 2);
  EXPECT_LE(farthest, kAmount);
}

TEST_P(Filters, KeepsOnlyTheLastTapOfKernel) {
  constexpr size_t kKernelSlot = 20;
  // Integers four columns wide; the stride of 16 bytes counts 16 integers.
  Rng rng(2);
  const auto image = TestImage::Make(Raster(rng, 4, 4, 32, kModelMono, {}));
  const int32_t value = 50;
  std::memcpy(image->raster.Bits() + 4 * (16 * 1 + 1), &value, sizeof(value));
  int16_t kernel[] = {1000, 1000, 1000, 3};
  SmartPtr<IQEL> result;
  const auto filter = QueryFor<IUnknown>(module_->filter.Get());
  ASSERT_EQ(CallSlot(filter.Get(), kKernelSlot, static_cast<IQEL*>(image.Get()), &kernel[0], 2, 0,
                     7, result.Put()),
            kOk);
  int32_t written = 0;
  std::memcpy(&written, RasterOf(result).Bits() + 4 * (16 * 1 + 1), sizeof(written));
  EXPECT_EQ(written, 3 * 50 + 7);
}

}  // namespace
}  // namespace qel::test
