#include <algorithm>

#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

class IncreaseBpp : public OperationTest {
 protected:
  static std::vector<RGBQUAD> RandomPalette(Rng& rng, int count) {
    std::vector<RGBQUAD> palette(static_cast<size_t>(count));
    for (RGBQUAD& entry : palette) {
      entry = {static_cast<uint8_t>(rng.Next()), static_cast<uint8_t>(rng.Next()),
               static_cast<uint8_t>(rng.Next()), static_cast<uint8_t>(rng.Next())};
    }
    return palette;
  }
};
QEL_INSTANTIATE_LEVELS(IncreaseBpp);

// Only entry 2 of four is used by the row; beyond the palette lies other memory of the image.
TEST_P(IncreaseBpp, KeepsIndicesBeyondThePalette) {
  Rng rng(3);
  for (const int bit_count : {24, 32}) {
    Raster source = RandomRaster(rng, 70, 1, 8);
    for (int x = 0; x < 70; ++x) source.Row(0)[x] = static_cast<uint8_t>(x);
    source.palette = RandomPalette(rng, 70);
    const std::vector<RGBQUAD> all = source.palette;
    // The entries stay where they are, only fewer are reported.
    const auto image = TestImage::Make(source);
    image->raster.palette.resize(40);
    SmartPtr<IQEL> result;
    EXPECT_EQ(module_->transform->IncreaseBpp(image.Get(), result.Put(), bit_count, 0), kOk);
    const Raster& wide = static_cast<TestImage*>(result.Get())->raster;
    EXPECT_EQ(wide.Row(0)[bit_count / 8 * 65], all[65].blue);
    EXPECT_EQ(wide.Row(0)[bit_count / 8 * 65 + 2], all[65].red);
  }
}

TEST_P(IncreaseBpp, KeepsAlphaOfTheNewImageUnderAPalette) {
  Rng rng(4);
  Raster source = RandomRaster(rng, 9, 1, 8);
  std::fill_n(source.Row(0), 9, uint8_t{5});
  source.palette = RandomPalette(rng, 256);
  source.palette[5] = {10, 20, 30, 77};
  const Raster wide = ResultOf(source, Call("IncreaseBpp", 32, 0));
  const uint8_t* const row = wide.Row(0);
  EXPECT_EQ(std::vector<uint8_t>(row + 32, row + 36), (std::vector<uint8_t>{10, 20, 30, 0xCD}));
}

}  // namespace
}  // namespace qel::test
