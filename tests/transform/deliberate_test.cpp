#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// Behaviour of the geometric operations that looks like a mistake, each with an example in
/// numbers.
class Geometry : public OperationTest {
 protected:
  /// An image whose bytes are all `value`.
  static SmartPtr<TestImage> Plain(int width, int height, int depth, uint8_t value,
                                   const Layout& layout = {}) {
    Rng rng(1);
    auto image = TestImage::Make(Raster(rng, width, height, depth, UsualModel(depth), layout));
    Raster& raster = image->raster;
    for (int y = 0; y < height; ++y) std::fill_n(raster.Row(y), raster.RowBytes(), value);
    return image;
  }

  /// The raster of a result.
  static const Raster& RasterOf(const SmartPtr<IQEL>& result) {
    return static_cast<TestImage*>(result.Get())->raster;
  }

  /// Scales about the origin.
  class Stretch final : public ITransform {
   public:
    explicit Stretch(double factor) : factor_(factor) {}
    result_t QueryInterface(const IID&, void**) override { return kNoInterface; }
    uint32_t AddRef() override { return 1; }
    uint32_t Release() override { return 1; }
    result_t TransformPoint(double* x, double*, double*) override {
      *x *= factor_;
      return kOk;
    }

   private:
    double factor_;
  };
};
QEL_INSTANTIATE_LEVELS(Geometry);

TEST_P(Geometry, KeepsSinglePrecisionRowOffsets) {
  // The stride 2^24 + 1 is 2^24 in single precision: row 1 is read one byte early.
  const auto source = Plain(1, 2, 8, 99, {.padding = 1 << 24, .fence = Layout::Fence::kAfter});
  source->raster.Row(1)[-1] = 77;
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Resample(source.Get(), result.Put(), 2, 4, 0, 1), kOk);
  EXPECT_EQ(RasterOf(result).Row(0)[0], 99);
  EXPECT_EQ(RasterOf(result).Row(2)[0], 77);
}

TEST_P(Geometry, KeepsDroppingTheFractionOfShrinkingScales) {
  const auto source = Plain(5, 1, 8, 0);
  for (int x = 0; x < 5; ++x)
    source->raster.Row(0)[x] = static_cast<uint8_t>(x == 4 ? 250 : 10 * x + 10);
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Resample(source.Get(), result.Put(), 2, 1, 3, 0), kOk);
  EXPECT_EQ(RasterOf(result).Row(0)[0], 15);
  EXPECT_EQ(RasterOf(result).Row(0)[1], 35) << "the last column is never read";
}

TEST_P(Geometry, KeepsAlphaOfAveragesAsCreated) {
  const auto source = Plain(2, 2, 32, 60);
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Resample(source.Get(), result.Put(), 1, 1, 3, 0), kOk);
  EXPECT_EQ(RasterOf(result).Row(0)[2], 60);
  EXPECT_EQ(RasterOf(result).Row(0)[3], 0xCD);
}

TEST_P(Geometry, KeepsMarginOfRotationsUndrawn) {
  const auto source = Plain(20, 20, 24, 50);
  source->raster.Row(0)[0] = 9;
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Rotate(source.Get(), result.Put(), 360, 0, 0, 0), kOk);
  EXPECT_EQ(RasterOf(result).Row(10)[3 * 10], 50);
  EXPECT_EQ(RasterOf(result).Row(10)[3 * 2], 9) << "the background shows";
  EXPECT_EQ(RasterOf(result).Row(10)[3 * 17], 9);
}

TEST_P(Geometry, KeepsThreeBytePixelsOfOddDepthsInRotations) {
  const auto source = Plain(20, 20, 40, 50);
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Rotate(source.Get(), result.Put(), 360, 0, 0, 0), kOk);
  EXPECT_EQ(RasterOf(result).Row(10)[3 * 10], 50);
  EXPECT_EQ(RasterOf(result).Row(10)[5 * 19], 0xCD) << "rows end after three bytes a pixel";
}

TEST_P(Geometry, KeepsKeysWithATopByteFromMatching) {
  for (const auto& [key, drawn] : {std::pair(0x00070707, 0), {0x01070707, 7}}) {
    const auto source = Plain(12, 12, 24, 7);
    const auto target = Plain(12, 12, 24, 0);
    ASSERT_EQ(module_->transform->RotatePaste(source.Get(), target.Get(), 0, 0, key), kOk);
    EXPECT_EQ(target->raster.Row(6)[18], drawn) << std::hex << key;
  }
}

TEST_P(Geometry, KeepsDrawnAlphaOfBlendedPastes) {
  const auto source = Plain(12, 12, 32, 128);
  const auto target = Plain(12, 12, 32, 10);
  ASSERT_EQ(module_->transform->RotatePaste(source.Get(), target.Get(), 0, 0, 0), kOk);
  EXPECT_EQ(target->raster.Row(6)[4 * 6], 69) << "128 and 10, half and half, truncated";
  EXPECT_EQ(target->raster.Row(6)[4 * 6 + 3], 128) << "alpha is replaced, not blended";
}

TEST_P(Geometry, KeepsPaletteAlphaAsCreatedAndIndicesUnchecked) {
  const auto source = Plain(2, 1, 8, 5);
  source->raster.palette.assign(256, {10, 20, 30, 40});
  source->told_entries = 3;
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->IncreaseBpp(source.Get(), result.Put(), 32, kModelArgb), kOk);
  const uint8_t* const pixel = RasterOf(result).Row(0);
  EXPECT_EQ(pixel[0], 10) << "index 5 of three entries";
  EXPECT_EQ(pixel[3], 0xCD);
}

TEST_P(Geometry, KeepsGapsAfterColumnZero) {
  const auto source = Plain(3, 1, 24, 200);
  const auto target = Plain(9, 1, 24, 0);
  Stretch stretch(4);
  ASSERT_EQ(module_->transform->TransformPaste(&stretch, source.Get(), target.Get(), 0, 0, 0, 0),
            kOk);
  for (int x = 0; x < 9; ++x) {
    EXPECT_EQ(target->raster.Row(0)[3 * x], x == 0 || x >= 4 ? 200 : 0) << "column " << x;
  }
}

TEST_P(Geometry, KeepsTheLastColumnOfGreysUnpasted) {
  const auto source = Plain(3, 1, 8, 1);
  source->raster.Row(0)[1] = 2;
  source->raster.Row(0)[2] = 3;
  const auto target = Plain(3, 1, 8, 0);
  Stretch identity(1);
  ASSERT_EQ(module_->transform->TransformPaste(&identity, source.Get(), target.Get(), 0, 0, 0, 0),
            kOk);
  EXPECT_EQ(target->raster.Row(0)[2], 2) << "the neighbour's second column";
}

TEST_P(Geometry, KeepsThreeNeighboursForColourVoids) {
  constexpr size_t kFillVoidsSlot = 20;
  const auto transform = QueryFor<IUnknown>(module_->transform.Get());
  for (const auto& [depth, centre] : {std::pair(8, 90), {24, 0}}) {
    const auto image = Plain(3, 3, depth, 0);
    const int bytes = depth / 8;
    std::fill_n(image->raster.Row(0) + bytes, bytes, uint8_t{90});
    ASSERT_EQ(CallSlot(transform.Get(), kFillVoidsSlot, static_cast<IQEL*>(image.Get())), kOk);
    EXPECT_EQ(image->raster.Row(1)[bytes], centre) << depth << " bits";
  }
}

TEST_P(Geometry, KeepsSumsAsWeightsOfBlendedQuads) {
  const auto source = Plain(8, 8, 24, 0);
  std::fill_n(source->raster.Row(2) + 3 * 2, 3, uint8_t{80});
  std::fill_n(source->raster.Row(2) + 3 * 3, 3, uint8_t{160});
  std::fill_n(source->raster.Row(3) + 3 * 3, 3, uint8_t{8});
  SmartPtr<IQEL> result;
  ASSERT_EQ(module_->transform->Quad(source.Get(), result.Put(), 2, 2, 4, 2, 2, 3, 4, 3, 4, 1, 1),
            kOk);
  // Half-way between the two upper pixels: a bilinear blend would give 120.
  EXPECT_EQ(RasterOf(result).Row(0)[3], (3 * 80 + 3 * 160 + 0 + 8) / 8);
}

TEST_P(Geometry, KeepsUnwrappingOnHalfTheColumns) {
  Rng rng(5);
  const Raster source(rng, 100, 100, 24, kModelBgr, {});
  const auto image = TestImage::Make(source);
  ASSERT_EQ(module_->deform->CircleTransform(image.Get(), kCircleUnwrap, 0, 1), kOk);
  const Raster& turned = image->raster;
  for (const int x : {20, 50, 63, 80}) {
    EXPECT_TRUE(
        std::equal(turned.Row(40) + 3 * x, turned.Row(40) + 3 * x + 3, turned.Row(60) + 3 * x))
        << "above and below the centre, column " << x;
  }
  // Straight left of the centre the angle is 0, straight right half a turn: column 50.
  EXPECT_TRUE(std::equal(turned.Row(50) + 3 * 80, turned.Row(50) + 3 * 80 + 3,
                         source.Row(100 * 30 / 70) + 3 * 50));
}

TEST_P(Geometry, KeepsTheModelWhenAlphaIsAdded) {
  const auto image = Plain(8, 8, 24, 3);
  ASSERT_EQ(module_->deform->CircleTransform(image.Get(), kCircleBulge, 1, 1), kOk);
  EXPECT_EQ(image->raster.bit_count, 32);
  EXPECT_EQ(image->raster.model, kModelBgr);
}

}  // namespace
}  // namespace qel::test
