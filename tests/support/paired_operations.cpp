#include "tests/support/paired_operations.h"

#include <cstdlib>

#include "operations/point_maps.h"
#include "reference/readings.h"

namespace qel::test {
namespace {

using operations::MethodCall;

/// How one number of a call is drawn.
struct Draw {
  double low = 0, high = 0;
  bool whole = true;
  int odds = 0;  ///< one in so many is one of `special`
  std::vector<double> special = {};

  Draw Or(int one_in, std::vector<double> values) && {
    odds = one_in;
    special = std::move(values);
    return std::move(*this);
  }
  double From(Rng& rng) const {
    if (odds != 0 && rng.OneIn(odds)) return special[rng.Next() % special.size()];
    if (!whole) return rng.Float(static_cast<float>(low), static_cast<float>(high));
    return low + rng.Next() % static_cast<uint64_t>(high - low + 1);
  }
};

Draw Int(double low, double high) { return {low, high}; }
Draw Real(double low, double high) { return {low, high, false}; }
Draw Flag(int one_in) { return Int(0, 0).Or(one_in, {1}); }
/// Usually ordinary and sometimes extreme.
Draw Amount(double low, double high) {
  return Int(low, high).Or(20, {INT32_MIN, INT32_MIN + 255, INT32_MAX - 255, INT32_MAX});
}
Draw Factor() { return Real(-3, 3).Or(3, {0, 1, 2, -1, 0.5, 1e30}); }
Draw Key() { return Int(0, UINT32_MAX).Or(2, {0xFF000000}); }

/// How calls of a method, or of one of several, are drawn.
struct Generator {
  std::string name;
  std::vector<int> depths;
  std::vector<Draw> numbers = {};
  std::vector<std::string> methods = {};   ///< empty: the one called `name`
  std::vector<std::string> images = {""};  ///< ways of `MethodCall` to give images
  bool may_be_wide = false;                ///< works on wide images in tiles of columns
};

SmartPtr<ITransform> DrawMap(Rng& rng) {
  return SmartPtr<ITransform>::Adopt(
      new operations::AffineMap({rng.Float(-1.5f, 1.5f), rng.Float(-1, 1), rng.Float(-20, 20),
                                 rng.Float(-1, 1), rng.Float(-1.5f, 1.5f), rng.Float(-5, 5)}));
}

std::vector<int> DrawKernel(Rng& rng, int size) {
  std::vector<int> kernel(static_cast<size_t>(size * size) + 1);
  const int reach = rng.OneIn(5) ? 1 << 28 : rng.OneIn(2) ? 3 : 300;
  const bool flat = rng.OneIn(4);
  for (int& weight : kernel) weight = flat ? 1 : rng.Int(-reach, reach);
  return kernel;
}

template <typename Value>
const Value& DrawOne(Rng& rng, const std::vector<Value>& values) {
  return values[rng.Next() % values.size()];
}

MethodCall DrawCall(Rng& rng, const Generator& generator) {
  const std::string& method =
      generator.methods.empty() ? generator.name : DrawOne(rng, generator.methods);
  MethodCall call(method, {}, DrawOne(rng, generator.images));
  std::vector<double>& numbers = call.arguments.numbers;
  for (const Draw& draw : generator.numbers) numbers.push_back(draw.From(rng));
  using Parameter = operations::Method::Parameter;
  if (call.method->Count(Parameter::kMap) > 0) {
    call.arguments.map = DrawMap(rng);
  }
  if (call.method->Count(Parameter::kWeights) > 0) {
    const int size = static_cast<int>(numbers[0]);
    call.arguments.weights = DrawKernel(rng, size);
    if (rng.OneIn(3)) numbers[1] = size * size;
  }
  for (int i = 0; i < 256 * call.method->Count(Parameter::kTable); ++i) {
    call.arguments.table.push_back(static_cast<uint8_t>(rng.Int(0, 255)));
  }
  return call;
}

/// Images of one depth and size; sometimes of a few rows that are thousands of pixels wide.
std::vector<Raster> DrawImages(Rng& rng, const Generator& generator, int count) {
  const int depth = DrawOne(rng, generator.depths);
  const bool wide = generator.may_be_wide && rng.OneIn(25);
  const int width = wide ? rng.Int(3000, 12000) : rng.OneIn(12) ? rng.Int(0, 2) : rng.Int(1, 70);
  const int height = wide ? rng.Int(1, 3) : rng.OneIn(12) ? rng.Int(0, 2) : rng.Int(1, 16);
  std::vector<Raster> images;
  for (int i = 0; i < count; ++i) images.push_back(RandomRaster(rng, width, height, depth));
  Raster::NewImageLayout() = RandomLayout(rng);
  return images;
}

std::vector<Generator> Generators() {
  const std::vector<int>& all = kAllDepths;
  const std::vector<int> bytes = {8, 24, 32};
  const Draw method = Int(-1, 16);
  const Draw corner = Real(-10, 80);
  std::vector<Generator> generators = {
      {"Colorize", all, {Int(0, 255), Int(0, 255).Or(5, {0}), Real(-0.2, 1.2).Or(4, {0.999})}},
      {"Lut", all},
      {"Fixed",
       all,
       {},
       {"Negative", "GrayScale", "Flip", "Mirror", "FlipBits", "FlipImageAndBits"}},
      {"ShiftRGB", all, {Amount(-300, 300), Amount(-300, 300), Amount(-300, 300)}},
      {"Gamma", all, {Real(-1, 4).Or(6, {0})}},
      {"Light", all, {Amount(-300, 300), Amount(-150, 300)}},
      {"Threshold", all, {Amount(-5, 260)}},
      {"SetImageAlpha", all, {Int(-1, 300), Int(3, 3)}},
      {"SetImageAlphaTransparency", all, {Int(-1, 300), Key()}},
      {"SetImageTransparentPixel", all, {Key()}},
      {"QuarterTurns", all, {Draw().Or(1, {90, 180, 270})}, {"Rotate"}},
      {"IncreaseBpp", all, {Int(1, 64).Or(2, {24, 32}), Int(kModelArgb, kModelArgb)}},
      {"Resample", all, {Int(0, 90), Int(0, 24), method, Flag(4)}},
      // Below 8 bits rows of one byte per pixel run over each other; hosts keep slack, rasters
      // less.
      {"Rotate", bytes, {Int(-400, 400), method, Flag(3), Flag(3)}},
      {"RotatePaste", {24, 32}, {Real(-4, 4), method, Int(0, 0xFFFFFF).Or(2, {0})}},
      {"Skew",
       all,
       {Real(-2, 2), Real(-2, 2).Or(3, {0}), Int(-3, 80), Int(-3, 20), Int(0, 0), Flag(3)}},
      {"Quad",
       all,
       {corner, corner, corner, corner, corner, corner, corner, corner, Int(1, 80).Or(3, {0}),
        Int(1, 30).Or(3, {70000}), Flag(2)}},
      {"Transform", all, {Int(-9, 9), Int(-9, 9), Int(0, 80)}},
      {"TransformPaste", all, {Int(-9, 30), Int(-9, 9), Flag(2)}},
      {"CircleTransform", all, {Int(-1, 6), Flag(2), Real(0.2, 4)}},
      {"Equal", {8, 16, 24, 32}, {Int(INT32_MIN, INT32_MAX)}, {}, {"01", "0-"}},
      {"Copy", all, {Int(-1, 20), Int(-1, 5)}, {}, {"010", "01-"}},
      {"AddScale", bytes, {Factor(), Factor(), Real(-100, 100)}, {}, {"0123", "012-"}},
      {"Subtract", all, {Int(0, 4)}},
      {"Add", all, {Factor()}},
      {"Scale", bytes, {Factor(), Real(-100, 100)}, {}, {"012", "01-"}},
      {"CreateDestImage", all, {Draw().Or(1, {0, 8, 24, 32}), Draw().Or(2, {kModelMono})}},
  };
  for (const Generator& filter : std::initializer_list<Generator>{
           {"Filter", all, {Int(0, 9), Int(-40, 40), Amount(-50, 200)}},
           {"FixedFilters", all, {}, {"Emboss", "Blur", "Soften", "Sharpen", "Contour"}},
           {"GaussianBlur", all, {Int(0, 3)}},
           {"Extrema",
            all,
            {Int(1, 9).Or(6, {-1, 0, 13, 21, 32, 40})},
            {"Erode", "Dilate", "Edge"}},
           {"Median", all, {Int(0, 11)}},
           {"Random", all, {Amount(-300, 300)}, {"Jitter", "Noise"}}}) {
    generators.push_back(filter);
    generators.back().may_be_wide = true;
  }
  return generators;
}

}  // namespace

const std::vector<PairedOperation>& PairedOperations() {
  static const std::vector<PairedOperation> operations = [] {
    std::vector<PairedOperation> rows;
    for (const Generator& generator : Generators()) {
      rows.push_back({generator.name, [generator](Rng& rng) {
                        const MethodCall call = DrawCall(rng, generator);
                        const auto seed = static_cast<unsigned>(rng.Next());
                        return PairedCase{
                            DrawImages(rng, generator, call.ImageCount()),
                            [=](const ComponentSet& components, auto images, IQEL** result) {
                              const std::vector<IQELImage*> given(images.begin(), images.end());
                              std::srand(seed);
                              return call.Run(components, given, result);
                            },
                            [=](std::span<Raster> images, Raster& result) {
                              std::srand(seed);
                              return Read(call, images, result);
                            }};
                      }});
    }
    return rows;
  }();
  return operations;
}

std::string CompareCase(const PairedCase& paired, const ComponentSet& components) {
  std::vector<SmartPtr<TestImage>> images;
  std::vector<TestImage*> pointers;
  for (const Raster& input : paired.inputs) {
    images.push_back(TestImage::Make(input));
    pointers.push_back(images.back().Get());
  }
  std::vector<Raster> rasters = paired.inputs;
  Raster expected_result;
  SmartPtr<IQEL> result;
  const result_t expected = paired.oracle(rasters, expected_result);
  const result_t actual = paired.module(components, pointers, result.Put());
  if (actual != expected) {
    return "result code " + std::to_string(actual) + ", not " + std::to_string(expected);
  }
  for (size_t i = 0; i < images.size(); ++i) {
    const std::string difference = images[i]->raster.Difference(rasters[i]);
    if (!difference.empty()) return "image " + std::to_string(i) + ": " + difference;
    const bool handed_back = static_cast<IQEL*>(images[i].Get()) == result.Get();
    if (images[i]->references() != (handed_back ? 2u : 1u)) {
      return "references of image " + std::to_string(i);
    }
  }
  if (static_cast<bool>(result) != (expected_result.bit_count != 0)) {
    return result ? "a result that should not be" : "no result";
  }
  if (!result) return {};
  const std::string difference =
      static_cast<TestImage*>(result.Get())->raster.Difference(expected_result);
  return difference.empty() ? "" : "result: " + difference;
}

}  // namespace qel::test
