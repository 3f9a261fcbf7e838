#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// Behaviour of the warps that looks like a mistake, each with an example in
/// numbers.
class Warps : public OperationTest {
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
QEL_INSTANTIATE_LEVELS(Warps);

TEST_P(Warps, KeepsGapsAfterColumnZero) {
  const auto source = Plain(3, 1, 24, 200);
  const auto target = Plain(9, 1, 24, 0);
  Stretch stretch(4);
  ASSERT_EQ(module_->transform->TransformPaste(&stretch, source.Get(), target.Get(), 0, 0, 0, 0),
            kOk);
  for (int x = 0; x < 9; ++x) {
    EXPECT_EQ(target->raster.Row(0)[3 * x], x == 0 || x >= 4 ? 200 : 0) << "column " << x;
  }
}

TEST_P(Warps, KeepsTheLastColumnOfGreysUnpasted) {
  const auto source = Plain(3, 1, 8, 1);
  source->raster.Row(0)[1] = 2;
  source->raster.Row(0)[2] = 3;
  const auto target = Plain(3, 1, 8, 0);
  Stretch identity(1);
  ASSERT_EQ(module_->transform->TransformPaste(&identity, source.Get(), target.Get(), 0, 0, 0, 0),
            kOk);
  EXPECT_EQ(target->raster.Row(0)[2], 2) << "the neighbour's second column";
}

TEST_P(Warps, KeepsThreeNeighboursForColourVoids) {
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

TEST_P(Warps, KeepsSumsAsWeightsOfBlendedQuads) {
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

TEST_P(Warps, KeepsUnwrappingOnHalfTheColumns) {
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

TEST_P(Warps, KeepsTheModelWhenAlphaIsAdded) {
  const auto image = Plain(8, 8, 24, 3);
  ASSERT_EQ(module_->deform->CircleTransform(image.Get(), kCircleBulge, 1, 1), kOk);
  EXPECT_EQ(image->raster.bit_count, 32);
  EXPECT_EQ(image->raster.model, kModelBgr);
}

}  // namespace
}  // namespace qel::test
