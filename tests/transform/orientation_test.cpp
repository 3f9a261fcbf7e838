#include <algorithm>

#include "reference/operations.h"
#include "tests/support/module_under_test.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

/// Slot of `Rotate4` in the primary table, after the operations of the interface.
constexpr size_t kRotate4Slot = 19;

result_t Rotate4(const ComponentSet& components, IQEL* source, IQELImage* dest, int angle) {
  const auto primary = QueryFor<IUnknown>(components.transform.Get());
  return CallSlot(primary.Get(), kRotate4Slot, source, dest, angle);
}

using TransformReadings = ReadingTest;

class Orientation : public OperationTest {
 protected:
  /// `image` turned into a fresh image.
  SmartPtr<TestImage> Turned(IQEL* image, int angle) {
    auto dest = TestImage::Make({});
    EXPECT_EQ(Rotate4(*module_, image, dest.Get(), angle), kOk);
    return dest;
  }
};
QEL_INSTANTIATE_LEVELS(Orientation);

// Of flips, turns, scales and warps.
TEST_F(TransformReadings, EqualEveryOperationByEveryMethod) {
  ExpectSameDraws("transform", 500);
  // Drawn in one call of hundreds.
  Rng rng(13);
  const Raster source = RandomRaster(rng, 40, 30, 24);
  ExpectSame({source}, Call("Resample", 80, 60, 5, 0));
  ExpectSame({source}, Call("Rotate", 20, 5, 0, 1));
  ExpectRun(kResampleMethods);
  ExpectRun(kRotateMethods);
  ExpectRun(kCircleMethods);
}

// Whole stored rows are copied, of which padding may be all.
TEST_F(TransformReadings, EqualFlipsOfRowsOfNoWidth) {
  Rng rng(4);
  Raster::NewImageLayout() = {.padding = 6};
  ExpectSame({Raster(rng, 0, 3, 24, kModelBgr, {.padding = 9, .bottom_up = true})}, Call("Flip"));
}

// Rows that go past the caches in several parts.
TEST_F(TransformReadings, EqualLongRows) {
  Rng rng(5);
  for (const int depth : {8, 24, 32}) {
    const Raster source = RandomRaster(rng, 4101, 3, depth);
    ExpectSame({source}, Call("Flip"));
    ExpectSame({source}, Call("Mirror"));
    ExpectSame({source}, Call("Rotate", 180, 0, 0, 0));
  }
  ExpectSame({RandomRaster(rng, 4101, 3, 8)}, Call("IncreaseBpp", 24, kModelBgr));
}

// Sizes round the tiles and bands of quarter turns, several planes, pixels of any number of bytes,
// strides that are no whole number of words.
TEST_F(TransformReadings, EqualQuarterTurns) {
  Rng rng(2);
  for (const int depth : {1, 8, 16, 24, 25, 32, 39, 40, 64}) {
    for (const Shape& size : {Shape{1, 1, 0},
                              {3, 2, 0},
                              {16, 16, 0},
                              {15, 17, 0},
                              {70, 64, 0},
                              {50, 131, 0},
                              {130, 40, 0},
                              {2070, 65, 0},
                              {0, 3, 0}}) {
      for (const int angle : {90, 180, 270, 45, -90}) {
        if (kSanitized && size.width > 1000 && depth != 8 && depth != 24 && angle != 90) continue;
        const int planes = rng.Int(0, 3);
        Raster::NewImageLayout() = RandomLayout(rng);
        const Raster source(rng, size.width, size.height, depth, UsualModel(depth),
                            RandomLayout(rng), planes);
        ExpectSame({source, Raster(rng, 2, 2, 8, kModelMono, {})},
                   {[&](auto& c, auto i, IQEL**) { return Rotate4(c, i[0], i[1], angle); },
                    [&](auto i, Raster&) { return reference::Rotate4(i[0], i[1], angle); }});
      }
    }
  }
}

TEST_P(Orientation, KeepsShiftOfHalfTurns) {
  Rng rng(5);
  for (const auto& [depth, shifted] : {std::pair(8, false), {16, true}, {24, true}, {32, false}}) {
    const auto image = TestImage::Make(Raster(rng, 5, 1, depth, 0, {.padding = 3}));
    const auto dest = Turned(image.Get(), 180);
    const int bytes = depth / 8;
    const uint8_t* const from = image->raster.Row(0) + (shifted ? 3 : 4) * bytes;
    EXPECT_TRUE(std::equal(from, from + bytes, dest->raster.Row(0))) << depth << " bits, first";
    const uint8_t* const last = image->raster.Row(0) - (shifted ? bytes : 0);
    EXPECT_TRUE(std::equal(last, last + bytes, dest->raster.Row(0) + 4 * bytes)) << depth;
  }
}

TEST_P(Orientation, KeepsWholeWordsOfStridesInQuarterTurns) {
  Rng rng(6);
  const auto image = TestImage::Make(Raster(rng, 2, 3, 32, kModelArgb, {.padding = 3}));
  Raster::NewImageLayout() = {};
  const auto dest = Turned(image.Get(), 90);
  const uint8_t* const words = image->raster.Bits();
  for (int x = 0; x < 3; ++x) {
    const uint8_t* const from = words + (2 - x) * 8;  // 11 bytes count as two words
    EXPECT_TRUE(std::equal(from, from + 4, dest->raster.Row(0) + 4 * x)) << x;
  }
}

// Two rows are exchanged with bytes 0 and 2; the middle row changes in its first half only, always
// in steps of four bytes; alpha stays in its row.
TEST_P(Orientation, KeepsHalfOfTheMiddleRowAndAlpha) {
  const auto after = [&](int bit_count, std::vector<uint8_t> bytes) {
    Rng rng(7);
    const int width = static_cast<int>(bytes.size()) / 3 * 8 / bit_count;
    Raster image(rng, width, 3, bit_count, 0, {});
    std::copy(bytes.begin(), bytes.end(), image.Bits());
    image = ResultOf(image, Call("FlipImageAndBits"));
    return std::vector<uint8_t>(image.Bits(), image.Bits() + bytes.size());
  };
  EXPECT_EQ(after(32, {1,  2,  3,  4,  5,  6,  7,  8,  11, 12, 13, 14,
                       15, 16, 17, 18, 21, 22, 23, 24, 25, 26, 27, 28}),
            (std::vector<uint8_t>{23, 22, 21, 4,  27, 26, 25, 8,  13, 12, 11, 14,
                                  15, 16, 17, 18, 3,  2,  1,  24, 7,  6,  5,  28}));
  EXPECT_EQ(after(24, {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 21, 22, 23, 24, 25, 26,
                       27, 28, 29, 30, 31, 32, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52}),
            (std::vector<uint8_t>{43, 42, 41, 46, 45, 44, 49, 48, 47, 52, 51, 50,
                                  23, 22, 21, 24, 27, 26, 25, 28, 29, 30, 31, 32,
                                  3,  2,  1,  6,  5,  4,  9,  8,  7,  12, 11, 10}));
}

}  // namespace
}  // namespace qel::test
