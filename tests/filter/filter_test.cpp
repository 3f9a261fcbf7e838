#include <algorithm>
#include <cstdlib>
#include <vector>

#include "reference/operations.h"
#include "tests/support/module_under_test.h"
#include "tests/support/paired_operations.h"

namespace qel::test {
namespace {

class FilterReadings : public ReadingTest {
 protected:
  void ExpectMorphology(const Raster& source, int size) {
    for (const char* const name : {"Erode", "Dilate", "Edge"}) {
      ExpectSame({source}, Call(name, size));
    }
  }
};

using Filters = OperationTest;
QEL_INSTANTIATE_LEVELS(Filters);

int AnyDepth(Rng& rng) {
  return rng.OneIn(2) ? kCommonDepths[static_cast<size_t>(rng.Int(0, 2))]
                      : kAllDepths[static_cast<size_t>(rng.Int(0, 7))];
}

TEST_F(FilterReadings, EqualEveryOperationByEveryMethod) {
  ExpectSameDraws("filter", 300);
  Rng rng(1);
  ExpectMorphology(RandomRaster(rng, 40, 5, 24), 1);  // rarely drawn, and a method of its own
  ExpectRun(kConvolutionMethods);
  ExpectRun(kExtremaMethods);
  ExpectRun(kMedianMethods);
}

TEST_F(FilterReadings, EqualConvolutionsWhereTilesEndAndWindowsOutgrowThem) {
  Rng rng(2);
  for (const int depth : {4, 8, 24, 32}) {
    for (const int size : {3, 9, 15}) {
      // More rows than have their ends, or short ones all pixels, taken together.
      for (const int columns : {20, 140}) {
        const Raster high = RandomRaster(rng, columns, rng.Int(35, 75), depth);
        ExpectSame({high}, Call("Filter", AnyKernel(rng, size), size, 100, 0));
        ExpectSame({high}, Call("Edge", rng.Int(2, 7)));
      }
      // At 32 bits, more than the scratch row that stands for what is outside has room for.
      const int width = depth == 32 ? 11400 : rng.Int(4090, 4300);
      const Raster wide = RandomRaster(rng, width, 3, depth);
      std::vector<int> kernel = AnyKernel(rng, size);
      ExpectSame({wide}, Call("Filter", kernel, size, AnyDivisor(rng, kernel), 0));
      std::fill(kernel.begin(), kernel.end(), 1);
      ExpectSame({wide}, Call("Filter", kernel, size, size * size, 0));
    }
    for (const int size : {33, 63, 64, 65, 130}) {
      const Raster small = RandomRaster(rng, rng.Int(1, 12), rng.Int(1, 9), depth);
      std::vector<int> kernel(static_cast<size_t>(size * size));
      for (int& weight : kernel) weight = rng.Int(-100, 110);
      ExpectSame({small}, Call("Filter", kernel, size, 700, 20));
      // Where the middle of long rows is read in place and their ends are put together.
      const Raster wide = RandomRaster(rng, rng.Int(200, 500), 2, depth);
      if (size < 64 && depth > 8) ExpectSame({wide}, Call("Filter", kernel, size, 700, 20));
      // Pairs of rows: many groups of weights, and as far as their scratch memory reaches.
      for (int& weight : kernel) weight = size == 33 ? rng.Int(0, 14) : rng.Int(-1, 3);
      if (size < 64) ExpectSame({wide}, Call("Filter", kernel, size, 3000, 20));
      std::fill(kernel.begin(), kernel.end(), rng.Int(1, 3));
      ExpectSame({small}, Call("Filter", kernel, size, size * size, 0));
      if (size < 64 && depth > 8) ExpectSame({wide}, Call("Filter", kernel, size, size * size, 0));
    }
  }
}

TEST_F(FilterReadings, EqualMorphologyOfLargeWindows) {
  Rng rng(4);
  for (const int size : {31, 127, 128}) {
    ExpectMorphology(RandomRaster(rng, rng.Int(130, 200), 1, AnyDepth(rng)), size);
    ExpectMorphology(RandomRaster(rng, rng.Int(400, 900), 2, rng.OneIn(2) ? 24 : 32), size);
    ExpectMorphology(RandomRaster(rng, 2, rng.Int(40, 70), AnyDepth(rng)), size);
  }
  // Without pixels a window has no alpha either.
  ExpectMorphology(RandomRaster(rng, 5, 3, 32), 0);
  // Several pieces of strips, and groups of rows whose core has blocks.
  for (const int depth : {24, 32}) {
    ExpectMorphology(RandomRaster(rng, rng.Int(2800, 3000), rng.Int(9, 20), depth), rng.Int(8, 17));
  }
  ExpectMorphology(RandomRaster(rng, rng.Int(1030, 1100), rng.Int(17, 30), 8), rng.Int(17, 24));
  // What all windows of a strip contain is folded in pieces.
  for (const int depth : kCommonDepths) ExpectMorphology(RandomRaster(rng, 140, 1, depth), 300);
}

TEST_F(FilterReadings, EqualMediansOfLargeWindows) {
  Rng rng(5);
  ExpectSame({RandomRaster(rng, 1100, 3, 24)}, Call("Median", 16));
  ExpectSame({RandomRaster(rng, 5, 4, 32)}, Call("Median", 70));
  // Tiles: more windows than a strip has, and rows that end within tiles.
  for (const int size : {5, 7, 9, 11, 13, 15}) {
    for (const int depth : {8, rng.OneIn(2) ? 24 : 32}) {
      const Raster image = RandomRaster(rng, rng.Int(1030, 1100), rng.Int(1, 6), depth);
      ExpectSame({image}, Call("Median", size));
    }
  }
  // Colors of 3 x 3 are taken in longer strips than others.
  for (const int depth : {24, 32}) {
    ExpectSame({RandomRaster(rng, 2100, 4, depth)}, Call("Median", 3));
  }
  ExpectSame({RandomRaster(rng, 30, 20, 24)}, Call("Median", 127));
  ExpectSame({RandomRaster(rng, 7, 3, 32)}, Call("Median", 255));
  // Hundreds of taps have the middle key, and differ in color.
  Raster alike = RandomRaster(rng, 70, 45, 32);
  for (int y = 0; y < alike.height; ++y) {
    for (int x = 0; x < alike.width; ++x) {
      uint8_t* const pixel = alike.Row(y) + 4 * x;
      pixel[0] = static_cast<uint8_t>(rng.Int(0, 9));
      pixel[1] = pixel[2] = 100;
    }
  }
  for (const int size : {31, 40}) ExpectSame({alike}, Call("Median", size));
  // Where values fall, the largest windows find their middle by going down.
  for (const int depth : {8, 24}) {
    Raster falling = RandomRaster(rng, 40, 2, depth);
    for (int i = 0; i < falling.RowBytes(); ++i) {
      const int left = 250 * (static_cast<int>(falling.RowBytes()) - i);
      falling.Row(i % 2)[i] = static_cast<uint8_t>(left / falling.RowBytes() + rng.Int(0, 5));
    }
    ExpectSame({falling}, Call("Median", 128));
  }
}

// Windows are squares, though thousands of rows are taken otherwise than thousands of columns.
TEST_P(Filters, HighPicturesHaveTheExtremaOfWideOnes) {
  Rng rng(6);
  for (const int step : {1, 3}) {
    Raster high = RandomRaster(rng, 3, 2600, 8 * step);
    Raster wide = RandomRaster(rng, 2600, 3, 8 * step);
    const auto visit = [&](Raster& up, Raster& along, const auto& visitor) {
      for (int i = 0; i < 3 * step * 2600; ++i) {
        const int y = i / (3 * step), byte = i % (3 * step);
        visitor(y, up.Row(y)[byte], along.Row(byte / step)[step * y + byte % step]);
      }
    };
    // Slopes, whose extrema differ from window to window, and a summit or a valley that all windows
    // contain but the lowest ones.
    visit(high, wide, [&](int y, uint8_t& up, uint8_t& along) {
      const int level = std::abs(y - 144) / 11 + rng.Int(0, 9);
      up = along = static_cast<uint8_t>(step == 1 ? level : 255 - level);
    });
    for (const char* const name : {"Erode", "Dilate", "Edge"}) {
      for (const int size : {1000, 2360}) {
        Raster down = ResultOf(high, Call(name, size));
        Raster across = ResultOf(wide, Call(name, size));
        int differing = 0;
        visit(down, across,
              [&](int, uint8_t up, uint8_t along) { differing += up != along ? 1 : 0; });
        EXPECT_EQ(differing, 0) << name << " " << size << " at " << 8 * step << " bits";
      }
    }
  }
}

// Whatever the size, windows that cover everything see the same; those far larger than the image
// have what is outside in their middle.
TEST_P(Filters, EndlessWindowsActAsOnesThatCoverEverything) {
  Rng rng(7);
  const Raster image = RandomRaster(rng, 20, 9, 32);
  for (const auto& [endless, covering] : {std::pair(INT32_MAX, 41), {INT32_MAX - 1, 42}}) {
    EXPECT_EQ(ResultOf(image, Call("Erode", endless)), ResultOf(image, Call("Erode", covering)));
    EXPECT_EQ(ResultOf(image, Call("Dilate", endless)), ResultOf(image, Call("Dilate", covering)));
    EXPECT_EQ(ResultOf(image, Call("Edge", endless)), ResultOf(image, Call("Edge", covering)));
  }
  const Raster small = RandomRaster(rng, 6, 4, 32);
  EXPECT_EQ(ResultOf(small, Call("Median", INT32_MAX)), ResultOf(small, Call("Median", 25)));
}

TEST_P(Filters, SourceWithoutMemoryReadsAsMarkedBlack) {
  Rng rng(7);
  const std::vector<int> kernel(20 * 20, 3);
  for (const PairedCall& call :
       {Call("Filter", kernel, 4, 7, 90), Call("Filter", kernel, 20, 7, 90), Call("Edge", 3),
        Call("Erode", 200), Call("Contour"), Call("Median", 3), Call("Median", 17),
        Call("Noise", 0), Call("Jitter", 3)}) {
    const auto image = TestImage::Make(RandomRaster(rng, 33, 5, 32));
    TestImage* const images[] = {image.Get()};
    Raster black = image->raster;
    black.Fill(0x01000000);
    TestHost& host = TestHost::Instance();
    host.Reset();
    host.fault = TestHost::Fault::kFail;
    host.fault_at = 1;  // GetBits comes after GetSize
    SmartPtr<IQEL> result;
    EXPECT_EQ(call.module(*module_, images, result.Put()), kOk);
    host.Reset();
    Raster expected;
    call.plain({&black, 1}, expected);
    EXPECT_EQ(static_cast<TestImage*>(result.Get())->raster.Difference(expected), "")
        << call.arguments;
  }
}

TEST_P(Filters, ResultsAreAssignedWhereNoneIsAskedForAndFailuresDrawNothing) {
  Rng rng(8);
  IQELFilterTransform& filter = *module_->filter;
  const auto image = TestImage::Make(RandomRaster(rng, 9, 7, 24));
  Raster expected;
  reference::Blur(image->raster, expected);
  EXPECT_EQ(filter.Blur(image.Get(), nullptr), kOk);
  EXPECT_EQ(image->raster.Difference(expected), "");

  std::srand(1);
  const int first_draw = std::rand();
  std::srand(1);
  IQEL* result = image.Get();
  TestHost::Instance().refuses_images = true;
  EXPECT_EQ(filter.Noise(image.Get(), 3, &result), kFail);
  EXPECT_EQ(filter.Jitter(image.Get(), 3, &result), kFail);
  EXPECT_EQ(result, image.Get()) << "results are not touched";
  EXPECT_EQ(std::rand(), first_draw);
}

/// A 24- or 32-bit image of one colour.
Raster Uniform(int width, int height, int bit_count, uint32_t color) {
  Rng rng(9);
  Raster raster = RandomRaster(rng, width, height, bit_count);
  raster.Fill(color);
  return raster;
}

TEST_P(Filters, KeepsLopsidedGaussianOfLevel2) {
  const Raster result = ResultOf(Uniform(9, 9, 24, 0xFFFFFF), Call("GaussianBlur", 2));
  EXPECT_EQ(result.Row(4)[12], 250) << "255 * 268 / 273";
  Raster spot = Uniform(9, 9, 24, 0);
  spot.Row(4)[12] = 255;
  const Raster spread = ResultOf(spot, Call("GaussianBlur", 2));
  EXPECT_EQ(spread.Row(4)[3 * 2], 255 * 7 / 273);
  EXPECT_EQ(spread.Row(4)[3 * 6], 255 * 2 / 273);
}

TEST_P(Filters, KeepsEvenWindowsReachingUpAndLeft) {
  Raster spot = Uniform(7, 7, 24, 0);
  spot.Row(3)[9] = 255;
  const Raster grown = ResultOf(spot, Call("Dilate", 2));
  for (int y = 0; y < 7; ++y) {
    for (int x = 0; x < 7; ++x) {
      const bool reached = (x == 3 || x == 4) && (y == 3 || y == 4);
      EXPECT_EQ(grown.Row(y)[3 * x], reached ? 255 : 0) << x << ", " << y;
    }
  }
}

TEST_P(Filters, KeepsComparingDifferencesWithKeptValuesInContour) {
  // Centre 10; the neighbours in the order of visiting: 60 is kept since 50 > 0, 65 is not since
  // 55 > 60 fails, 200 is since 190 > 60, and 205 is not since 195 > 200 fails.
  Raster image = Uniform(5, 5, 24, 0);
  const auto put = [&](int x, int y, uint8_t value) { image.Row(y)[3 * x] = value; };
  put(2, 2, 10);
  put(1, 1, 60);
  put(1, 2, 65);
  put(2, 1, 200);
  put(3, 3, 205);
  const Raster traced = ResultOf(image, Call("Contour"));
  EXPECT_EQ(traced.Row(2)[6], 255 - 200);
}

TEST_P(Filters, KeepsJitterAtTwiceTheSpanOfNoise) {
  Raster ramp = Uniform(200, 60, 24, 0);
  for (int y = 0; y < 60; ++y) {
    for (int i = 0; i < 600; ++i) ramp.Row(y)[i] = static_cast<uint8_t>(i / 3 + 20);
  }
  const auto widest = [&](const Raster& result) {
    int most = 0;
    for (int y = 0; y < 60; ++y) {
      for (int i = 0; i < 600; ++i) {
        most = std::max(most, std::abs(result.Row(y)[i] - ramp.Row(y)[i]));
      }
    }
    return most;
  };
  std::srand(5);
  EXPECT_EQ(widest(ResultOf(ramp, Call("Noise", 9))), 4);
  EXPECT_EQ(widest(ResultOf(ramp, Call("Jitter", 9))), 8);
}

/// In the primary table, by the order of declaration in the class.
constexpr size_t kKernelSlot = 20;

TEST_F(FilterReadings, KeepsLastTapOnlyInKernel) {
  const auto kernel_of = [](const ComponentSet& components, auto... arguments) {
    const auto primary = QueryFor<IUnknown>(components.filter.Get());
    return CallSlot(primary.Get(), kKernelSlot, arguments...);
  };
  for (uint64_t round = 0; round < 60; ++round) {
    Rng rng(round);
    const int size = rng.Int(-1, 6);
    int16_t kernel[36];
    for (int16_t& weight : kernel) weight = static_cast<int16_t>(rng.Int(-300, 300));
    int16_t* const taps = rng.OneIn(3) ? nullptr : kernel;
    const int divisor = rng.OneIn(3) ? rng.Int(-1, 1) : rng.Int(1, 3000000);
    const int offset = rng.Int(-20, 200);
    const bool mono = !rng.OneIn(5);
    const Raster source(rng, rng.Int(0, 12), rng.Int(0, 9), rng.OneIn(6) ? 24 : 32,
                        mono ? kModelMono : kModelArgb, {});
    Raster::NewImageLayout() = {};
    ExpectSame({source}, {[&](auto& components, auto images, IQEL** result) {
                            return kernel_of(components, static_cast<IQEL*>(images[0]), taps, size,
                                             divisor, offset, result);
                          },
                          [&](auto images, Raster& result) {
                            return reference::Kernel(images[0], taps, size, divisor, offset,
                                                     result);
                          }});
  }
  int16_t weight = 1;
  IQEL* none = nullptr;
  EXPECT_EQ(kernel_of(ModuleUnderTest::ForLevel(CpuLevel::kSse2), none, &weight, 1, 1, 0, &none),
            kInvalidArgument);
}

}  // namespace
}  // namespace qel::test
