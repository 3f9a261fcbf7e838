#include "reference/filter.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "filter/median/median.h"
#include "tests/support/module_under_test.h"

namespace qel::test {
namespace {

using Result = IQEL**;
using ModuleFilter = std::function<result_t(IQELFilterTransform& filter, IQEL* image, Result)>;
using OracleFilter = std::function<result_t(const Raster& source, Raster& result)>;

class Filters : public OperationTest {
 protected:
  /// Of operations with several methods, all that can are compared.
  void Expect(const Raster& source, const ModuleFilter& call, const OracleFilter& oracle,
              std::span<const MethodText> methods = {}, const MethodCall& by_method = {}) {
    Raster expected;
    const result_t code = oracle(source, expected);
    ExpectSame(
        {source}, [&](auto images, Result r) { return call(*module_->filter, images[0], r); },
        [&](auto /*images*/, Raster& result) { return result = expected, code; });
    ExpectSameByMethods(source, expected, methods, by_method);
  }

  void ExpectConvolution(const Raster& source, std::vector<int> kernel, int size, int divisor,
                         int offset) {
    SCOPED_TRACE("size " + std::to_string(size) + ", divisor " + std::to_string(divisor) +
                 ", offset " + std::to_string(offset));
    Expect(
        source,
        [&](auto& filter, IQEL* image, Result r) {
          return filter.Filter(image, kernel.data(), size, divisor, offset, r);
        },
        [&](const Raster& s, Raster& r) {
          return oracle::Filter(s, kernel.data(), size, divisor, offset, r);
        },
        kConvolutionMethods,
        [&](size_t method, const ImageView& from, const ImageView& to) {
          return size > 0 &&
                 module_->plans->convolution(static_cast<ConvolutionMethod>(method), from, to,
                                             kernel.data(), size, divisor, offset);
        });
  }

  void ExpectMorphology(const Raster& source, int size, int oracle_size) {
    SCOPED_TRACE("size " + std::to_string(size));
    const auto by_method = [&](Extrema extrema) {
      return [=, this](size_t method, const ImageView& from, const ImageView& to) {
        return size > 0 && module_->plans->extrema(
                               {static_cast<ExtremaMethod>(method), extrema, size}, from, to);
      };
    };
    Expect(
        source, [=](auto& f, IQEL* i, Result r) { return f.Erode(i, size, r); },
        [=](const Raster& s, Raster& r) { return oracle::Erode(s, oracle_size, r); },
        kExtremaMethods, by_method(Extrema::kMinimum));
    Expect(
        source, [=](auto& f, IQEL* i, Result r) { return f.Dilate(i, size, r); },
        [=](const Raster& s, Raster& r) { return oracle::Dilate(s, oracle_size, r); },
        kExtremaMethods, by_method(Extrema::kMaximum));
    Expect(
        source, [=](auto& f, IQEL* i, Result r) { return f.Edge(i, size, r); },
        [=](const Raster& s, Raster& r) { return oracle::Edge(s, oracle_size, r); },
        kExtremaMethods, by_method(Extrema::kRange));
  }

  void ExpectMedian(const Raster& source, int size) {
    SCOPED_TRACE("size " + std::to_string(size));
    Expect(
        source, [=](auto& f, IQEL* i, Result r) { return f.Median(i, size, r); },
        [=](const Raster& s, Raster& r) { return oracle::Median(s, size, r); }, kMedianMethods,
        [&](size_t method, const ImageView& from, const ImageView& to) {
          return size > 0 &&
                 module_->plans->median(static_cast<MedianMethod>(method), from, to, size);
        });
  }
};
QEL_INSTANTIATE_LEVELS(Filters);

int AnyDepth(Rng& rng) {
  return rng.OneIn(2) ? kCommonDepths[static_cast<size_t>(rng.Int(0, 2))]
                      : kAllDepths[static_cast<size_t>(rng.Int(0, 7))];
}
Raster AnyImage(Rng& rng, int most_columns, int most_rows) {
  Raster::NewImageLayout() = RandomLayout(rng);
  return RandomRaster(rng, rng.Int(1, most_columns), rng.Int(1, most_rows), AnyDepth(rng));
}

/// Kernels of every kind that goes its own way: narrow and wide weights, sparse ones, products of a
/// column and a row, equal weights.
std::vector<int> AnyKernel(Rng& rng, int size) {
  constexpr int kReach[] = {1, 20, 127, 128, 3000, 32767, 70000, INT32_MAX};
  const int reach = kReach[rng.Int(0, 7)];
  const bool positive = rng.OneIn(2);
  const auto draw = [&](int most) {
    const int lowest = most == INT32_MAX ? INT32_MIN : -most;
    return rng.Int(positive ? 0 : lowest, most);
  };
  std::vector<int> kernel(static_cast<size_t>(size * size));
  const int kind = rng.Int(0, 3);
  const int equal = draw(std::min(reach, 200));
  std::vector<int> down(static_cast<size_t>(size)), across(down);
  const bool even_down = rng.OneIn(4), even_across = rng.OneIn(4);
  for (int& weight : down) weight = even_down ? 2 : draw(std::min(reach, 300) / size + 1);
  for (int& weight : across) weight = even_across ? 1 : draw(size < 8 ? 40 : 3);
  for (size_t i = 0; i < kernel.size(); ++i) {
    const auto side = static_cast<size_t>(size);
    kernel[i] = kind == 0   ? equal
                : kind == 1 ? down[i / side] * across[i % side]
                : kind == 2 ? (rng.OneIn(6) ? draw(reach) : 0)
                            : draw(reach);
  }
  return kernel;
}

int AnyDivisor(Rng& rng, const std::vector<int>& kernel) {
  uint32_t sum = 0;
  for (const int weight : kernel) sum += static_cast<uint32_t>(weight);
  constexpr int kSpecial[] = {0, 1, -1, INT32_MIN, INT32_MAX};
  if (rng.OneIn(2)) return static_cast<int>(sum);
  return rng.OneIn(3) ? kSpecial[rng.Int(0, 4)] : rng.Int(-300, 300);
}
int AnyOffset(Rng& rng) {
  return rng.OneIn(2) ? 0 : rng.OneIn(4) ? static_cast<int>(rng.Next()) : rng.Int(-300, 300);
}

TEST_P(Filters, ConvolutionEqualsItsOracle) {
  for (uint64_t round = 0; round < 500 && !HasFailure(); ++round) {
    Rng rng(round);
    const int size = rng.OneIn(4) ? rng.Int(-1, 18) : rng.Int(1, 7);
    // Without taps the kernel does not matter, not even a null one.
    const std::vector<int> kernel = size > 0 ? AnyKernel(rng, size) : std::vector<int>();
    const int divisor = AnyDivisor(rng, kernel);
    ExpectConvolution(AnyImage(rng, rng.OneIn(9) ? 300 : 70, 12), kernel, size, divisor,
                      AnyOffset(rng));
  }
  EXPECT_EQ(methods_run_.size(), std::size(kConvolutionMethods));
}

// Products of a column and a row but for the middle, up to where sums leave 16 bits.
TEST_P(Filters, SquaresOfFewWeightsEqualTheirOracle) {
  for (uint64_t round = 0; round < 300 && !HasFailure(); ++round) {
    Rng rng(round);
    const int size = rng.OneIn(4) ? 5 : 3;
    const int most = rng.OneIn(2) ? 3 : 64;
    const int lowest = rng.OneIn(2) ? 0 : -most;
    int down[3], across[3];
    for (int& weight : down) weight = rng.Int(lowest, most);
    for (int& weight : across) weight = rng.Int(lowest < 0 ? -2 : 0, most == 3 ? 8 : 2);
    std::vector<int> kernel(static_cast<size_t>(size * size));
    const int first = size / 2 - 1;
    for (int i = 0; i < 9; ++i) {
      kernel[static_cast<size_t>((first + i / 3) * size + first + i % 3)] =
          down[i / 3] * across[i % 3];
    }
    kernel[static_cast<size_t>(size * size / 2)] += rng.OneIn(3) ? 0 : rng.Int(-128, 127);
    Raster image = AnyImage(rng, rng.OneIn(9) ? 1100 : 150, 6);
    const bool glaring = rng.OneIn(2);
    for (int y = 0; glaring && y < image.height; ++y) {
      for (int i = 0; i < image.RowBytes(); ++i) image.Row(y)[i] = rng.OneIn(3) ? 0 : 255;
    }
    ExpectConvolution(image, kernel, size, AnyDivisor(rng, kernel),
                      rng.OneIn(2) ? 0 : rng.Int(-300, 300));
  }
}

TEST_P(Filters, ConvolutionWorksWhereTilesEndAndWindowsOutgrowThem) {
  Rng rng(2);
  for (const int depth : {4, 8, 24, 32}) {
    for (const int size : {3, 9, 15}) {
      const Raster wide = RandomRaster(rng, rng.Int(4090, 4300), 3, depth);
      std::vector<int> kernel = AnyKernel(rng, size);
      ExpectConvolution(wide, kernel, size, AnyDivisor(rng, kernel), 0);
      std::fill(kernel.begin(), kernel.end(), 1);
      ExpectConvolution(wide, kernel, size, size * size, 0);
    }
    for (const int size : {33, 63, 64, 65, 130}) {
      const Raster small = RandomRaster(rng, rng.Int(1, 12), rng.Int(1, 9), depth);
      std::vector<int> kernel(static_cast<size_t>(size * size));
      for (int& weight : kernel) weight = rng.Int(-100, 110);
      ExpectConvolution(small, kernel, size, 700, 20);
      // Where the middle of long rows is read in place and their ends are put together.
      const Raster wide = RandomRaster(rng, rng.Int(200, 500), 2, depth);
      if (size < 64 && depth > 8) ExpectConvolution(wide, kernel, size, 700, 20);
      std::fill(kernel.begin(), kernel.end(), rng.Int(1, 3));
      ExpectConvolution(small, kernel, size, size * size, 0);
      if (size < 64 && depth > 8) ExpectConvolution(wide, kernel, size, size * size, 0);
    }
  }
}

TEST_P(Filters, FixedFiltersEqualTheirOracles) {
  ForEachRaster(3, kAllDepths, [&](const Raster& raster, Rng& rng) {
    Expect(
        raster, [](auto& f, IQEL* i, Result r) { return f.Emboss(i, r); }, oracle::Emboss);
    Expect(
        raster, [](auto& f, IQEL* i, Result r) { return f.Blur(i, r); }, oracle::Blur);
    Expect(
        raster, [](auto& f, IQEL* i, Result r) { return f.Soften(i, r); }, oracle::Soften);
    Expect(
        raster, [](auto& f, IQEL* i, Result r) { return f.Sharpen(i, r); }, oracle::Sharpen);
    Expect(
        raster, [](auto& f, IQEL* i, Result r) { return f.Contour(i, r); }, oracle::Contour);
    const int level = rng.Int(-1, 4);
    Expect(
        raster, [=](auto& f, IQEL* i, Result r) { return f.GaussianBlur(i, level, r); },
        [=](const Raster& s, Raster& r) { return oracle::GaussianBlur(s, level, r); });
  });
}

TEST_P(Filters, MorphologyEqualsItsOracle) {
  ForEachRaster(4, kAllDepths, [&](const Raster& raster, Rng& rng) {
    const int size = rng.OneIn(3) ? rng.Int(-1, 40) : rng.Int(1, 6);
    ExpectMorphology(raster, size, size);
  });
  Rng rng(4);
  for (const int size : {31, 127, 128}) {
    const Raster wide = RandomRaster(rng, rng.Int(130, 200), 1, AnyDepth(rng));
    ExpectMorphology(wide, size, size);
    const Raster wider = RandomRaster(rng, rng.Int(400, 900), 2, rng.OneIn(2) ? 24 : 32);
    ExpectMorphology(wider, size, size);
    const Raster tall = RandomRaster(rng, 2, rng.Int(40, 70), AnyDepth(rng));
    ExpectMorphology(tall, size, size);
  }
  // What all windows of a strip contain is folded in pieces.
  for (const int depth : kCommonDepths)
    ExpectMorphology(RandomRaster(rng, 140, 1, depth), 300, 300);
  // Whatever the size, windows that cover everything see the same.
  const Raster image = RandomRaster(rng, 20, 9, 32);
  ExpectMorphology(image, INT32_MAX, 41);
  ExpectMorphology(image, INT32_MAX - 1, 42);
  EXPECT_EQ(methods_run_.size(), std::size(kExtremaMethods));
}

TEST_P(Filters, MedianEqualsItsOracle) {
  for (uint64_t round = 0; round < 160 && !HasFailure(); ++round) {
    Rng rng(round);
    const int size = rng.OneIn(3) ? rng.Int(-1, 30) : rng.Int(1, 7);
    ExpectMedian(AnyImage(rng, size > 9 ? 30 : 90, size > 9 ? 12 : 9), size);
  }
  Rng rng(5);
  ExpectMedian(RandomRaster(rng, 1100, 3, 24), 16);
  ExpectMedian(RandomRaster(rng, 4200, 2, 8), 3);
  for (const int size : {3, 5, 6, 7, 9, 15}) {
    const int depth = kCommonDepths[static_cast<size_t>(rng.Int(0, 2))];
    ExpectMedian(RandomRaster(rng, rng.Int(200, 330), 2, depth), size);
  }
  ExpectMedian(RandomRaster(rng, 5, 4, 32), 70);
  ExpectMedian(RandomRaster(rng, 30, 20, 24), 127);
  ExpectMedian(RandomRaster(rng, 7, 3, 32), 255);
  // Whatever the size, windows far larger than the image have what is outside in their middle.
  Expect(
      RandomRaster(rng, 6, 4, 32),
      [](auto& f, IQEL* i, Result r) { return f.Median(i, INT32_MAX, r); },
      [](const Raster& s, Raster& r) { return oracle::Median(s, 25, r); });
  EXPECT_EQ(methods_run_.size(), std::size(kMedianMethods));
  // Where values fall, the largest windows find their middle by going down.
  for (const int depth : {8, 24}) {
    Raster falling = RandomRaster(rng, 40, 2, depth);
    for (int i = 0; i < falling.RowBytes(); ++i) {
      const int left = 250 * (static_cast<int>(falling.RowBytes()) - i);
      falling.Row(i % 2)[i] = static_cast<uint8_t>(left / falling.RowBytes() + rng.Int(0, 5));
    }
    ExpectMedian(falling, 128);
  }
}

TEST(Median, OrdersColoursByBrightnessWithoutAlpha) {
  const uint8_t colours[][4] = {{0, 0, 0, 255}, {255, 0, 0, 0}, {0, 0, 255, 9}, {0, 255, 0, 3}};
  constexpr int32_t kLevels[] = {0, 29, 76, 149};
  for (size_t i = 0; i < std::size(colours); ++i) {
    for (size_t j = 0; j < std::size(colours); ++j) {
      EXPECT_EQ(CompareColors(colours[i], colours[j]), kLevels[i] - kLevels[j]);
    }
  }
}

TEST_P(Filters, RandomFiltersDrawAsTheirOracles) {
  ForEachRaster(6, kAllDepths, [&](const Raster& raster, Rng& rng) {
    const int amount = rng.OneIn(6) ? static_cast<int>(rng.Next()) : rng.Int(-300, 300);
    const auto seed = static_cast<unsigned>(rng.Next());
    int next[2] = {};
    const auto draw = [&](int& after, auto&& run) {
      std::srand(seed);
      const result_t result = run();
      after = std::rand();
      return result;
    };
    for (const bool jitter : {false, true}) {
      Expect(
          raster,
          [&](auto& f, IQEL* i, Result r) {
            return draw(next[0],
                        [&] { return jitter ? f.Jitter(i, amount, r) : f.Noise(i, amount, r); });
          },
          [&](const Raster& s, Raster& r) {
            return draw(next[1], [&] {
              return jitter ? oracle::Jitter(s, amount, r) : oracle::Noise(s, amount, r);
            });
          });
      EXPECT_EQ(next[0], next[1]) << "results of rand that were used";
    }
  });
}

TEST_P(Filters, SourceWithoutMemoryReadsAsMarkedBlack) {
  Rng rng(7);
  constexpr int kGetBits = 1;  // after GetSize
  std::vector<int> kernel(20 * 20, 3);
  const struct {
    ModuleFilter module;
    OracleFilter oracle;
  } kCases[] = {
      {[&](auto& f, IQEL* i, Result r) { return f.Filter(i, kernel.data(), 4, 7, 90, r); },
       [&](auto& s, Raster& r) { return oracle::Filter(s, kernel.data(), 4, 7, 90, r); }},
      {[&](auto& f, IQEL* i, Result r) { return f.Filter(i, kernel.data(), 20, 7, 90, r); },
       [&](auto& s, Raster& r) { return oracle::Filter(s, kernel.data(), 20, 7, 90, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Edge(i, 3, r); },
       [](auto& s, Raster& r) { return oracle::Edge(s, 3, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Erode(i, 200, r); },
       [](auto& s, Raster& r) { return oracle::Erode(s, 200, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Contour(i, r); }, oracle::Contour},
      {[](auto& f, IQEL* i, Result r) { return f.Median(i, 3, r); },
       [](auto& s, Raster& r) { return oracle::Median(s, 3, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Median(i, 17, r); },
       [](auto& s, Raster& r) { return oracle::Median(s, 17, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Noise(i, 0, r); },
       [](auto& s, Raster& r) { return oracle::Noise(s, 0, r); }},
      {[](auto& f, IQEL* i, Result r) { return f.Jitter(i, 3, r); },
       [](auto& s, Raster& r) { return oracle::Jitter(s, 3, r); }},
  };
  for (const auto& filter : kCases) {
    SCOPED_TRACE(&filter - kCases);
    const auto image = TestImage::Make(RandomRaster(rng, 33, 5, 32));
    Raster black = image->raster;
    black.Fill(0x01000000);
    TestHost& host = TestHost::Instance();
    host.calls = 0;
    host.fault = TestHost::Fault::kFail;
    host.fault_at = kGetBits;
    SmartPtr<IQEL> result;
    EXPECT_EQ(filter.module(*module_->filter, image.Get(), result.Put()), kOk);
    host.Reset();
    Raster expected;
    filter.oracle(black, expected);
    EXPECT_EQ(static_cast<TestImage*>(result.Get())->raster.Difference(expected), "");
  }
}

TEST_P(Filters, HandOverAssignsOrLeavesTheSourceAndFailuresChangeNothing) {
  Rng rng(8);
  IQELFilterTransform& filter = *module_->filter;
  const auto image = TestImage::Make(RandomRaster(rng, 9, 7, 24));
  Raster expected;
  oracle::Blur(image->raster, expected);
  const Raster before = image->raster;
  TestHost::Instance().refuses_queries = true;
  EXPECT_EQ(filter.Blur(image.Get(), nullptr), kOk);
  EXPECT_EQ(image->raster.Difference(before), "") << "a source that cannot be assigned to";
  TestHost::Instance().Reset();
  EXPECT_EQ(filter.Blur(image.Get(), nullptr), kOk);
  EXPECT_EQ(image->raster.Difference(expected), "");

  int weight = 1;
  std::srand(1);
  const int first_draw = std::rand();
  std::srand(1);
  TestHost::Instance().refuses_images = true;
  const Raster kept = image->raster;
  for (IQEL* const source : {static_cast<IQEL*>(nullptr), static_cast<IQEL*>(image.Get())}) {
    IQEL* result = source;
    EXPECT_EQ(filter.Filter(source, &weight, 1, 1, 0, &result), kFail);
    EXPECT_EQ(filter.Emboss(source, &result), kFail);
    EXPECT_EQ(filter.Erode(source, 3, &result), kFail);
    EXPECT_EQ(filter.Contour(source, &result), kFail);
    EXPECT_EQ(filter.Median(source, 3, &result), kFail);
    EXPECT_EQ(filter.Noise(source, 3, &result), kFail);
    EXPECT_EQ(filter.Jitter(source, 3, &result), kFail);
    EXPECT_EQ(result, source) << "results are not touched";
  }
  TestHost::Instance().Reset();
  IQEL* none = nullptr;
  EXPECT_EQ(filter.Filter(image.Get(), nullptr, 3, 1, 0, &none), kFail);
  EXPECT_EQ(filter.GaussianBlur(nullptr, 4, &none), kFail);
  EXPECT_EQ(TestHost::Instance().calls, 0) << "nothing was asked of the host";
  EXPECT_EQ(std::rand(), first_draw) << "nothing was drawn";
  EXPECT_EQ(image->raster.Difference(kept), "");
}

/// A 24- or 32-bit image of one colour.
Raster Uniform(int width, int height, int bit_count, uint32_t colour) {
  Rng rng(9);
  Raster raster = RandomRaster(rng, width, height, bit_count);
  raster.Fill(colour);
  return raster;
}

/// Runs a filter that must succeed.
Raster ResultOf(IQELFilterTransform& filter, const Raster& source, const ModuleFilter& call) {
  SmartPtr<IQEL> result;
  EXPECT_EQ(call(filter, TestImage::Make(source).Get(), result.Put()), kOk);
  return static_cast<TestImage*>(result.Get())->raster;
}

TEST_P(Filters, WorkedExamples) {
  IQELFilterTransform& filter = *module_->filter;
  const struct {
    const char* what;
    uint32_t colour;
    uint32_t expected;
    ModuleFilter call;
  } kUniform[] = {
      {"emboss", 0x336699, 0x7F7F7F, [](auto& f, IQEL* i, Result r) { return f.Emboss(i, r); }},
      {"blur", 0x336699, 0x336699, [](auto& f, IQEL* i, Result r) { return f.Blur(i, r); }},
      {"sharpen", 0x336699, 0x336699, [](auto& f, IQEL* i, Result r) { return f.Sharpen(i, r); }},
      {"edge", 0x336699, 0x000000, [](auto& f, IQEL* i, Result r) { return f.Edge(i, 5, r); }},
      {"contour", 0x336699, 0xFFFFFF, [](auto& f, IQEL* i, Result r) { return f.Contour(i, r); }},
      {"noise", 0x336699, 0x336699, [](auto& f, IQEL* i, Result r) { return f.Noise(i, 1, r); }},
  };
  for (const auto& example : kUniform) {
    for (const int side : {1, 20}) {
      const Raster result = ResultOf(filter, Uniform(side, side, 24, example.colour), example.call);
      for (int channel = 0; channel < 3; ++channel) {
        EXPECT_EQ(result.Row(side / 2)[3 * (side / 2) + channel],
                  static_cast<uint8_t>(example.expected >> (8 * channel)))
            << example.what << ", side " << side;
      }
    }
  }
  Raster corner = Uniform(6, 6, 24, 0x00FF00);
  corner.Row(0)[1] = 0;
  corner.Row(0)[2] = 255;
  const Raster blurred =
      ResultOf(filter, corner, [](auto& f, IQEL* i, Result r) { return f.Blur(i, r); });
  EXPECT_GT(blurred.Row(5)[3 * 3 + 2], 0) << "the far border has a share of the red corner";
  EXPECT_EQ(blurred.Row(3)[3 * 3 + 2], 0) << "the middle has none";
}

TEST_P(Filters, KeepsLopsidedGaussianOfLevel2) {
  const Raster result =
      ResultOf(*module_->filter, Uniform(9, 9, 24, 0xFFFFFF),
               [](auto& f, IQEL* i, Result r) { return f.GaussianBlur(i, 2, r); });
  EXPECT_EQ(result.Row(4)[12], 250) << "255 * 268 / 273";
  Raster spot = Uniform(9, 9, 24, 0);
  spot.Row(4)[12] = 255;
  const Raster spread = ResultOf(
      *module_->filter, spot, [](auto& f, IQEL* i, Result r) { return f.GaussianBlur(i, 2, r); });
  EXPECT_EQ(spread.Row(4)[3 * 2], 255 * 7 / 273);
  EXPECT_EQ(spread.Row(4)[3 * 6], 255 * 2 / 273);
}

TEST_P(Filters, KeepsEvenWindowsReachingUpAndLeft) {
  Raster spot = Uniform(7, 7, 24, 0);
  spot.Row(3)[9] = 255;
  const Raster grown = ResultOf(*module_->filter, spot,
                                [](auto& f, IQEL* i, Result r) { return f.Dilate(i, 2, r); });
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
  const Raster traced =
      ResultOf(*module_->filter, image, [](auto& f, IQEL* i, Result r) { return f.Contour(i, r); });
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
  EXPECT_EQ(widest(ResultOf(*module_->filter, ramp,
                            [](auto& f, IQEL* i, Result r) { return f.Noise(i, 9, r); })),
            4);
  EXPECT_EQ(widest(ResultOf(*module_->filter, ramp,
                            [](auto& f, IQEL* i, Result r) { return f.Jitter(i, 9, r); })),
            8);
}

/// In the primary table, by the order of declaration in the class.
constexpr size_t kKernelSlot = 20;

void* PrimaryOf(IQELFilterTransform& filter) {
  SmartPtr<IUnknown> primary;
  filter.QueryInterface(IID_IUnknown, primary.PutVoid());
  return primary.Get();
}

TEST_P(Filters, KeepsLastTapOnlyInKernel) {
  void* const object = PrimaryOf(*module_->filter);
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
    ExpectSame(
        {source},
        [&](auto images, Result r) {
          return CallSlot(object, kKernelSlot, static_cast<IQEL*>(images[0]), taps, size, divisor,
                          offset, r);
        },
        [&](auto images, Raster& result) {
          return oracle::Kernel(images[0], taps, size, divisor, offset, result);
        });
  }
  int16_t weight = 1;
  IQEL* none = nullptr;
  EXPECT_EQ(CallSlot(object, kKernelSlot, none, &weight, 1, 1, 0, &none), kInvalidArgument);
}

}  // namespace
}  // namespace qel::test
