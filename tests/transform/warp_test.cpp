#include <cmath>
#include <cstring>
#include <limits>

#include "reference/operations.h"
#include "reference/pixels.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

/// FillVoids is reachable through the component class only.
result_t FillVoids(const ComponentSet& components, IQEL* image) {
  constexpr size_t kFillVoidsSlot = 20;
  const auto primary = QueryFor<IUnknown>(components.transform.Get());
  return CallSlot(primary.Get(), kFillVoidsSlot, image);
}

using WarpReadings = ReadingTest;

class Warp : public OperationTest {
 protected:
  IQELTransform& transform() { return *module_->transform; }
  /// Pastes one row onto zeros through `map` and returns the target's rows, one byte per channel.
  std::vector<uint8_t> Paste(int bit_count, const std::vector<uint8_t>& row, int width, int height,
                             int fill_voids, reference::PointTransform map) {
    Rng rng(1);
    const int bytes = bit_count / 8;
    const int pixels = static_cast<int>(row.size()) / bytes;
    const auto source = TestImage::Make(Raster(rng, pixels, 1, bit_count, 0, {}));
    const auto target = TestImage::Make(Raster(rng, width, height, bit_count, 0, {}));
    std::copy(row.begin(), row.end(), source->raster.Row(0));
    std::fill_n(target->raster.Row(0), width * height * bytes, uint8_t{0});
    PointMap points(std::move(map));
    EXPECT_EQ(transform().TransformPaste(&points, source.Get(), target.Get(), 0, 0,
                                         static_cast<int16_t>(fill_voids), 0),
              kOk);
    return {target->raster.Row(0), target->raster.Row(0) + width * height * bytes};
  }
};
QEL_INSTANTIATE_LEVELS(Warp);

using Bytes = std::vector<uint8_t>;

// Rows of several tiles, which wait for each other.
TEST_F(WarpReadings, EqualWideRows) {
  Rng rng(9);
  for (const int depth : {8, 24, 32}) {
    const Layout layout = {.fence = Layout::Fence::kAfter};
    Raster::NewImageLayout() = layout;
    const Raster raster(rng, 1300, 40, depth, UsualModel(depth), layout);
    for (const int option : {0, 1}) {
      ExpectSame({raster}, Call("Skew", 0.4f, 0.02f, 0, 0, 77, option));
      ExpectSame({raster}, Call("Quad", 10, 1, 1290, 9, 2, 30, 1280, 38, 1200, 40, option));
    }
  }
  Raster::NewImageLayout() = {};
}

// Bytes whose positions change slowly are looked up in blocks of few rows, or in squares. Gains to
// both sides of what these take, at the ends of memory; and positions that change slowly on the
// whole only.
TEST_F(WarpReadings, EqualCloseBytes) {
  Rng rng(10);
  for (const auto fence : {Layout::Fence::kBefore, Layout::Fence::kAfter}) {
    const Layout layout = {.bottom_up = rng.OneIn(2), .fence = fence};
    const Raster raster(rng, 700, 60, 8, kModelMono, layout);
    // The last rows are shifted by numbers of columns up to four blocks to both sides.
    for (int shift = 0; shift < 36; ++shift) {
      const float rises[] = {0.0f, 0.03f, 0.12f, 0.19f, 0.25f, 0.7f, 1.15f};
      const float rise = shift % 2 == 0 ? 0.0f : rises[shift % 7];
      const float gain = static_cast<float>(shift) / 31.0f;
      ExpectSame({raster}, Call("Skew", shift % 3 == 0 ? -gain : gain, shift % 4 < 2 ? rise : -rise,
                                0, shift % 5 == 0 ? 40 : 1, 0, 0));
    }
    ExpectSame({raster}, Call("Quad", 1, 20, 650, 40, 30, 50, 690, 58, 900, 35, 0));
    for (const int often : {2, 40, 300}) {
      const auto jump = [=](double& x, double& y) {
        const bool jumps = static_cast<int>(x + y) % often == 0;
        x = 0.9 * x + (jumps ? often % 3 * 9 - 9 : 0);
        y = y - 0.05 * x + (jumps ? often % 5 - 2 : 0);
      };
      ExpectSame({raster}, Call("Transform", SmartPtr<ITransform>::Adopt(new PointMap(jump)), 0, 9,
                                690, 60, 0, 0));
    }
  }
}

// Points that land next to each other, twice on one column, with gaps between them, on the borders,
// beyond all numbers and nowhere; the memory after the rows belongs to nobody.
TEST_F(WarpReadings, EqualWidePoints) {
  Rng rng(11);
  const int depths[] = {8, 24, 32};
  const double steps[] = {1, 0.98, 0.7, 1.04, 2, -1};
  const double odd[] = {-0.0,   -1e-300, 0.0,         299.9999999, 1e300,
                        -1e300, 0x1p31,  -0x1p31 - 1, INFINITY};
  for (int round = 0; round < 120 && !HasFailure(); ++round) {
    const int depth = depths[rng.Int(0, 2)];
    const auto image = [&](int width, int height) {
      const Layout layout = {
          .bottom_up = rng.OneIn(2),
          .fence = rng.OneIn(2) ? Layout::Fence::kBefore : Layout::Fence::kAfter};
      return Raster(rng, width, height, depth, UsualModel(depth), layout);
    };
    const double a = steps[rng.Int(0, 5)], b = rng.OneIn(2) ? 0.12 : 0.0;
    const auto often = static_cast<size_t>(rng.OneIn(2) ? rng.Int(20, 400) : INT32_MAX);
    const int dx = a < 0 ? 280 : rng.Int(-2, 40), dy = rng.Int(-3, 5);
    const auto map = [=](double& x, double& y) {
      const auto number = static_cast<size_t>(std::abs(x + 331 * y));
      x = a * x - b * y + dx;
      y = y + b * x + dy;
      if (number % often == 0) (number % 2 == 0 ? x : y) = odd[number / often % std::size(odd)];
    };
    const auto points = [&] { return SmartPtr<ITransform>::Adopt(new PointMap(map)); };
    const int x_offset = rng.OneIn(2) ? 0 : rng.Int(-30, 30);
    ExpectSame({image(300, 30)},
               Call("Transform", points(), x_offset, 1, rng.Int(200, 330), 0, 0, 0));
    // Whole groups that end at the last column, or just anything.
    const int width = rng.OneIn(2) ? 240 + dx + x_offset : rng.Int(200, 340);
    ExpectSame({image(300, 20), image(width, 40)},
               Call("TransformPaste", points(), x_offset, rng.Int(0, 1), rng.Int(0, 1), 0));
  }
}

TEST_F(WarpReadings, EqualFilledVoids) {
  Rng rng(10);
  for (int round = 0; round < 720 && !HasFailure(); ++round) {
    const Shape& size = kSizes[round % std::size(kSizes)];
    Raster image =
        RandomRaster(rng, size.width, size.height, kAllDepths[static_cast<size_t>(rng.Int(0, 7))]);
    if (rng.OneIn(2)) image.model = kModelAbgr;
    const int unit = image.bit_count == 32 ? 4 : 1;
    for (int y = 0; y < image.height; ++y) {
      for (int64_t i = 0; i + unit <= image.RowBytes(); i += unit) {
        if (rng.OneIn(2)) std::memset(image.Row(y) + i, 0, static_cast<size_t>(unit));
      }
    }
    ExpectSame({image}, {[&](auto& c, auto images, IQEL**) { return FillVoids(c, images[0]); },
                         [&](auto images, Raster&) { return reference::FillVoids(images[0]); }});
  }
}

// Targets of fewer bits have no room for the pixels; their neighbours' memory stays whole.
TEST_P(Warp, PastesNothingIntoShallowerTargets) {
  Rng rng(2);
  PointMap points([](double&, double&) {});
  const auto source = TestImage::Make(RandomRaster(rng, 30, 5, 32));
  const auto target = TestImage::Make(RandomRaster(rng, 30, 5, 8));
  const Raster before = target->raster;
  EXPECT_EQ(transform().TransformPaste(&points, source.Get(), target.Get(), 0, 0, 0, 0), kOk);
  EXPECT_EQ(target->raster.Difference(before), "");
}

TEST_P(Warp, AsksTheTransformOncePerPixelInRowOrder) {
  Rng rng(3);
  const auto source = TestImage::Make(RandomRaster(rng, 3, 2, 24));
  const auto target = TestImage::Make(RandomRaster(rng, 3, 2, 24));
  std::vector<std::pair<double, double>> asked;
  int host_calls = -1;
  PointMap points([&](double& x, double& y) {
    if (asked.empty()) host_calls = TestHost::Instance().calls;
    EXPECT_EQ(TestHost::Instance().calls, host_calls) << "the host is called in between";
    asked.emplace_back(x, y);
  });
  SmartPtr<IQEL> result;
  transform().Transform(&points, source.Get(), result.Put(), 10, -1, 2, 2, 0, 0);
  EXPECT_EQ(asked, (std::vector<std::pair<double, double>>{{10, -1}, {11, -1}, {10, 0}, {11, 0}}));
  asked.clear();
  transform().TransformPaste(&points, source.Get(), target.Get(), 5, 5, 1, 0);
  const std::vector<std::pair<double, double>> all = {{0, 0}, {1, 0}, {2, 0},
                                                      {0, 1}, {1, 1}, {2, 1}};
  EXPECT_EQ(asked, all);
  // Also where there is nothing to write to.
  for (const auto& nowhere : {RandomRaster(rng, 0, 2, 24), RandomRaster(rng, 3, 2, 8)}) {
    asked.clear();
    transform().TransformPaste(&points, source.Get(), TestImage::Make(nowhere).Get(), 0, 0, 0, 0);
    EXPECT_EQ(asked, all);
  }
}

TEST_P(Warp, LetsExceptionsOfTheTransformPass) {
  Rng rng(4);
  const auto source = TestImage::Make(RandomRaster(rng, 3, 2, 24));
  const int live = TestHost::Instance().live_objects;
  PointMap points([](double& x, double&) {
    if (x == 1) throw TestHost::Exception{};
  });
  auto* const untouched = static_cast<IQEL*>(source.Get());
  IQEL* result = untouched;
  EXPECT_THROW(transform().Transform(&points, source.Get(), &result, 0, 0, 0, 0, 0, 0),
               TestHost::Exception);
  EXPECT_EQ(result, untouched);
  EXPECT_EQ(source->references(), 1u);
  EXPECT_EQ(TestHost::Instance().live_objects, live);
}

// Half-way between two columns the upper pixels count three times as much as the lower ones.
TEST_P(Warp, KeepsBlendingBySumsOfWeights) {
  Rng rng(6);
  for (const int depth : {24, 32, 40}) {
    Raster raster(rng, 8, 4, depth, 0, {});
    const int bytes = depth / 8;
    for (int c = 0; c < bytes; ++c) {
      const int at = 2 * bytes + c;
      raster.Row(1)[at] = 10, raster.Row(1)[at + bytes] = 50;
      raster.Row(2)[at] = 100, raster.Row(2)[at + bytes] = 220;
    }
    // The scan line runs from column 2 to 3 in two steps.
    const Raster blended = ResultOf(raster, Call("Quad", 2, 1, 3, 1, 2, 2, 3, 2, 2, 1, 1));
    EXPECT_EQ(blended.Row(0)[bytes], (3 * 10 + 3 * 50 + 100 + 220 + 4) / 8) << depth;
  }
}

TEST_P(Warp, KeepsTheLastColumnOfGraysUnpasted) {
  const auto stay = [](double&, double&) {};
  EXPECT_EQ(Paste(8, {7, 8, 9}, 4, 1, 0, stay), (Bytes{7, 8, 8, 0}));
  EXPECT_EQ(Paste(8, {7}, 4, 1, 1, stay), (Bytes{0, 0, 0, 0}));
}

// Gaps are closed behind a pixel that was written, but column 0 counts as none.
TEST_P(Warp, KeepsGapsAfterColumnZero) {
  const auto spread = [](double& x, double&) { x = x * 2; };
  EXPECT_EQ(Paste(24, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 5, 1, 0, spread),
            (Bytes{1, 2, 3, 0, 0, 0, 4, 5, 6, 7, 8, 9, 7, 8, 9}));
}

TEST_P(Warp, KeepsThreeNeighboursForColors) {
  const struct {
    int depth;
    uint32_t top, right, center;
  } cases[] = {
      {8, 90, 0, 90}, {24, 0x5A5A5A, 0, 0}, {32, 0x5A5A5A, 0, 0}, {32, 0, 0x00102030, 0xFF102030}};
  for (const auto& c : cases) {
    Rng rng(7);
    Raster raster(rng, 3, 3, c.depth, kModelArgb, {});
    const int bytes = c.depth / 8;
    std::fill_n(raster.Row(0), 9 * bytes, uint8_t{0});
    std::memcpy(raster.Row(0) + bytes, &c.top, static_cast<size_t>(bytes));
    std::memcpy(raster.Row(1) + 2 * bytes, &c.right, static_cast<size_t>(bytes));
    const auto image = TestImage::Make(raster);
    EXPECT_EQ(FillVoids(*module_, image.Get()), kOk);
    EXPECT_EQ(std::memcmp(image->raster.Row(1) + bytes, &c.center, static_cast<size_t>(bytes)), 0);
  }
}

}  // namespace
}  // namespace qel::test
