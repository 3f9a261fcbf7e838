#include "tests/support/paired_operations.h"

#include <cstdlib>
#include <memory>
#include <tuple>

#include "reference/color.h"
#include "reference/filter.h"
#include "reference/maths.h"
#include "reference/transform.h"

namespace qel::test {
namespace {

using Images = std::span<TestImage* const>;
using Rasters = std::span<Raster>;

int DrawDepth(Rng& rng, const std::vector<int>& depths) {
  return depths[static_cast<size_t>(rng.Int(0, static_cast<int>(depths.size()) - 1))];
}

/// Images of one depth and size; sometimes of a few rows that are thousands of pixels wide.
std::vector<Raster> DrawImages(Rng& rng, int count, const std::vector<int>& depths,
                               bool may_be_wide) {
  const int depth = DrawDepth(rng, depths);
  const bool wide = may_be_wide && rng.OneIn(25);
  const int width = wide ? rng.Int(3000, 12000) : rng.OneIn(12) ? rng.Int(0, 2) : rng.Int(1, 70);
  const int height = wide ? rng.Int(1, 3) : rng.OneIn(12) ? rng.Int(0, 2) : rng.Int(1, 16);
  std::vector<Raster> images;
  for (int i = 0; i < count; ++i) images.push_back(RandomRaster(rng, width, height, depth));
  Raster::NewImageLayout() = RandomLayout(rng);
  return images;
}

/// A draw that is usually ordinary and sometimes extreme.
int DrawAmount(Rng& rng, int low, int high) {
  if (rng.OneIn(20))
    return rng.OneIn(2) ? INT32_MAX - rng.Int(0, 300) : INT32_MIN + rng.Int(0, 300);
  return rng.Int(low, high);
}

float DrawFactor(Rng& rng) {
  constexpr float kSpecial[] = {0.0f, 1.0f, 2.0f, -1.0f, 0.5f, 1e30f};
  return rng.OneIn(3) ? kSpecial[rng.Int(0, 5)] : rng.Float(-3.0f, 3.0f);
}

/// A transform of points for both sides: an affine map.
class AffineTransform final : public ITransform {
 public:
  explicit AffineTransform(Rng& rng)
      : xx_(rng.Float(-1.5f, 1.5f)),
        xy_(rng.Float(-1.0f, 1.0f)),
        x0_(rng.Float(-20, 20)),
        yx_(rng.Float(-1.0f, 1.0f)),
        yy_(rng.Float(-1.5f, 1.5f)),
        y0_(rng.Float(-5, 5)) {}
  void Apply(double& x, double& y) const {
    const double old_x = x;
    x = xx_ * old_x + xy_ * y + x0_;
    y = yx_ * old_x + yy_ * y + y0_;
  }
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return 1; }
  uint32_t Release() override { return 1; }
  result_t TransformPoint(double* x, double* y, double*) override {
    Apply(*x, *y);
    return kOk;
  }

 private:
  double xx_, xy_, x0_, yx_, yy_, y0_;
};

/// Builds the table: one line for each operation and side.
class Table {
 public:
  std::vector<PairedOperation> rows;
  /// For operations that work on wide images in tiles of columns.
  bool may_be_wide = false;

  /// An in-place operation with arguments drawn by `draw`, which returns the two calls as a pair.
  template <typename Draw>
  void Add(const std::string& name, int images, const std::vector<int>& depths, Draw draw) {
    rows.push_back({name, [=, wide = may_be_wide](Rng& rng) {
                      PairedCase paired;
                      paired.inputs = DrawImages(rng, images, depths, wide);
                      std::tie(paired.module, paired.oracle) = draw(rng);
                      return paired;
                    }});
  }
};

using Pair = std::pair<decltype(PairedCase::module), decltype(PairedCase::oracle)>;

void AddColor(Table& table) {
  const auto& all = kAllDepths;
  table.Add("Colorize", 1, all, [](Rng& rng) -> Pair {
    const auto hue = static_cast<uint8_t>(rng.Int(0, 255));
    const auto saturation = static_cast<uint8_t>(rng.OneIn(5) ? 0 : rng.Int(0, 255));
    const float blend = rng.OneIn(4) ? 0.999f : rng.Float(-0.2f, 1.2f);
    return {
        [=](auto& c, Images i, IQEL**) { return c.color->Colorize(i[0], hue, saturation, blend); },
        [=](Rasters r, Raster&) { return oracle::Colorize(r[0], hue, saturation, blend); }};
  });
  table.Add("Lut", 1, all, [](Rng& rng) -> Pair {
    std::vector<uint8_t> values(256);
    for (uint8_t& value : values) value = static_cast<uint8_t>(rng.Int(0, 255));
    return {[=](auto& c, Images i, IQEL**) mutable { return c.color->Lut(i[0], values.data()); },
            [=](Rasters r, Raster&) { return oracle::Lut(r[0], values.data()); }};
  });
  table.Add("Negative", 1, all, [](Rng&) -> Pair {
    return {[](auto& c, Images i, IQEL**) { return c.color->Negative(i[0]); },
            [](Rasters r, Raster&) { return oracle::Negative(r[0]); }};
  });
  table.Add("GrayScale", 1, all, [](Rng&) -> Pair {
    return {[](auto& c, Images i, IQEL**) { return c.color->GrayScale(i[0]); },
            [](Rasters r, Raster&) { return oracle::GrayScale(r[0]); }};
  });
  table.Add("ShiftRGB", 1, all, [](Rng& rng) -> Pair {
    const int red = DrawAmount(rng, -300, 300), green = DrawAmount(rng, -300, 300),
              blue = DrawAmount(rng, -300, 300);
    return {[=](auto& c, Images i, IQEL**) { return c.color->ShiftRGB(i[0], red, green, blue); },
            [=](Rasters r, Raster&) { return oracle::ShiftRGB(r[0], red, green, blue); }};
  });
  table.Add("Gamma", 1, all, [](Rng& rng) -> Pair {
    const float gamma = rng.OneIn(6) ? 0.0f : rng.Float(-1.0f, 4.0f);
    return {[=](auto& c, Images i, IQEL**) { return c.color->Gamma(i[0], gamma); },
            [=](Rasters r, Raster&) { return oracle::Gamma(r[0], gamma); }};
  });
  table.Add("Light", 1, all, [](Rng& rng) -> Pair {
    const int brightness = DrawAmount(rng, -300, 300), contrast = DrawAmount(rng, -150, 300);
    return {[=](auto& c, Images i, IQEL**) { return c.color->Light(i[0], brightness, contrast); },
            [=](Rasters r, Raster&) { return oracle::Light(r[0], brightness, contrast); }};
  });
  table.Add("Threshold", 1, all, [](Rng& rng) -> Pair {
    const int level = DrawAmount(rng, -5, 260);
    return {[=](auto& c, Images i, IQEL**) { return c.color->Threshold(i[0], level); },
            [=](Rasters r, Raster&) { return oracle::Threshold(r[0], level); }};
  });
  table.Add("Alpha", 1, all, [](Rng& rng) -> Pair {
    const int alpha = rng.Int(-1, 300), which = rng.Int(0, 2);
    const auto key = static_cast<uint32_t>(rng.OneIn(2) ? 0xFF000000u : rng.Next());
    return {[=](auto& c, Images i, IQEL**) {
              return which == 0   ? c.color->SetImageAlpha(i[0], alpha, 3)
                     : which == 1 ? c.color->SetImageAlphaTransparency(i[0], alpha, key)
                                  : c.color->SetImageTransparentPixel(i[0], key);
            },
            [=](Rasters r, Raster&) {
              return which == 0   ? oracle::SetImageAlpha(r[0], alpha, 3)
                     : which == 1 ? oracle::SetImageAlphaTransparency(r[0], alpha, key)
                                  : oracle::SetImageTransparentPixel(r[0], key);
            }};
  });
}

void AddTransform(Table& table) {
  const auto& all = kAllDepths;
  table.Add("Orientation", 1, all, [](Rng& rng) -> Pair {
    const int which = rng.Int(0, 6);
    constexpr int kTurns[] = {90, 180, 270};
    const int turn = kTurns[rng.Int(0, 2)];
    return {[=](auto& c, Images i, IQEL** result) {
              return which == 0   ? c.transform->Flip(i[0], result)
                     : which == 1 ? c.transform->Mirror(i[0], result)
                     : which == 2 ? c.transform->FlipBits(i[0])
                     : which == 3 ? c.transform->FlipImageAndBits(i[0])
                                  : c.transform->Rotate(i[0], result, turn, 0, 0, 0);
            },
            [=](Rasters r, Raster& result) {
              return which == 0   ? oracle::Flip(r[0], result)
                     : which == 1 ? oracle::Mirror(r[0], result)
                     : which == 2 ? oracle::FlipBits(r[0])
                     : which == 3 ? oracle::FlipImageAndBits(r[0])
                                  : oracle::Rotate4(r[0], result, turn);
            }};
  });
  table.Add("IncreaseBpp", 1, all, [](Rng& rng) -> Pair {
    const int bits = rng.OneIn(4) ? rng.Int(1, 64) : rng.OneIn(2) ? 24 : 32;
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->IncreaseBpp(i[0], result, bits, kModelArgb);
            },
            [=](Rasters r, Raster& result) {
              return oracle::IncreaseBpp(r[0], result, bits, kModelArgb);
            }};
  });
  table.Add("Resample", 1, all, [](Rng& rng) -> Pair {
    const int width = rng.Int(0, 90), height = rng.Int(0, 24), method = rng.Int(-1, 16);
    const int nearest = rng.OneIn(4) ? 1 : 0;
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->Resample(i[0], result, width, height, method, nearest);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Resample(r[0], result, width, height, method, nearest);
            }};
  });
  // Below 8 bits rows of one byte per pixel run over each other; hosts keep slack, rasters less.
  table.Add("Rotate", 1, {8, 24, 32}, [](Rng& rng) -> Pair {
    const int angle = rng.Int(-400, 400), method = rng.Int(-1, 16);
    const int force = rng.OneIn(3) ? 1 : 0, keep = rng.OneIn(3) ? 1 : 0;
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->Rotate(i[0], result, angle, method, force, keep);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Rotate(r[0], result, angle, method, force, keep);
            }};
  });
  table.Add("RotatePaste", 2, {24, 32}, [](Rng& rng) -> Pair {
    const double angle = rng.Float(-4, 4);
    const int method = rng.Int(-1, 16);
    const int key = rng.OneIn(2) ? 0 : rng.Int(0, 0xFFFFFF);
    return {
        [=](auto& c, Images i, IQEL**) {
          return c.transform->RotatePaste(i[1], i[0], angle, method, key);
        },
        [=](Rasters r, Raster&) { return oracle::RotatePaste(r[1], r[0], angle, method, key); }};
  });
  table.Add("Skew", 1, all, [](Rng& rng) -> Pair {
    const float x_gain = rng.Float(-2, 2), y_gain = rng.OneIn(3) ? 0.0f : rng.Float(-2, 2);
    const int x_pivot = rng.Int(-3, 80), y_pivot = rng.Int(-3, 20), force = rng.OneIn(3) ? 1 : 0;
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->Skew(i[0], result, x_gain, y_gain, x_pivot, y_pivot, 0, force);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Skew(r[0], result, x_gain, y_gain, x_pivot, y_pivot, force);
            }};
  });
  table.Add("Quad", 1, all, [](Rng& rng) -> Pair {
    double p[8];
    for (double& value : p) value = rng.Float(-10, 80);
    const auto width = static_cast<uint32_t>(rng.OneIn(3) ? 0 : rng.Int(1, 80));
    const auto height = static_cast<uint32_t>(rng.OneIn(3) ? 70000 : rng.Int(1, 30));
    const auto blend = static_cast<int16_t>(rng.Int(0, 1));
    const oracle::Corners corners{p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]};
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->Quad(i[0], result, corners.x1, corners.y1, corners.x2, corners.y2,
                                       corners.x3, corners.y3, corners.x4, corners.y4, width,
                                       height, blend);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Quad(r[0], result, corners, width, height, blend);
            }};
  });
  table.Add("Transform", 1, all, [](Rng& rng) -> Pair {
    auto map = std::make_shared<AffineTransform>(rng);
    const int x = rng.Int(-9, 9), y = rng.Int(-9, 9);
    const auto width = static_cast<uint32_t>(rng.Int(0, 80));
    return {[=](auto& c, Images i, IQEL** result) {
              return c.transform->Transform(map.get(), i[0], result, x, y, width, 0, 0, 0);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Transform([&](double& px, double& py) { map->Apply(px, py); }, r[0],
                                       result, x, y, width, 0);
            }};
  });
  table.Add("TransformPaste", 2, all, [](Rng& rng) -> Pair {
    auto map = std::make_shared<AffineTransform>(rng);
    const int x = rng.Int(-9, 30), y = rng.Int(-9, 9);
    const auto fill = static_cast<int16_t>(rng.Int(0, 1));
    return {[=](auto& c, Images i, IQEL**) {
              return c.transform->TransformPaste(map.get(), i[1], i[0], x, y, fill, 0);
            },
            [=](Rasters r, Raster&) {
              return oracle::TransformPaste([&](double& px, double& py) { map->Apply(px, py); },
                                            r[1], r[0], x, y, fill);
            }};
  });
  table.Add("CircleTransform", 1, all, [](Rng& rng) -> Pair {
    const int mode = rng.Int(-1, 6), alpha = rng.Int(0, 1);
    const float factor = rng.Float(0.2f, 4.0f);
    return {[=](auto& c, Images i, IQEL**) {
              return c.deform->CircleTransform(i[0], mode, alpha, factor);
            },
            [=](Rasters r, Raster&) { return oracle::CircleTransform(r[0], mode, alpha, factor); }};
  });
}

void AddFilters(Table& table) {
  const auto& all = kAllDepths;
  table.may_be_wide = true;
  table.Add("Filter", 1, all, [](Rng& rng) -> Pair {
    const int size = rng.Int(0, 9);
    std::vector<int> kernel(static_cast<size_t>(size * size) + 1);
    const int reach = rng.OneIn(5) ? 1 << 28 : rng.OneIn(2) ? 3 : 300;
    const bool flat = rng.OneIn(4);
    for (int& weight : kernel) weight = flat ? 1 : rng.Int(-reach, reach);
    const int divisor = rng.OneIn(3) ? size * size : rng.Int(-40, 40);
    const int offset = DrawAmount(rng, -50, 200);
    return {[=](auto& c, Images i, IQEL** result) mutable {
              return c.filter->Filter(i[0], kernel.data(), size, divisor, offset, result);
            },
            [=](Rasters r, Raster& result) {
              return oracle::Filter(r[0], kernel.data(), size, divisor, offset, result);
            }};
  });
  table.Add("FixedFilters", 1, all, [](Rng& rng) -> Pair {
    const int which = rng.Int(0, 8);
    return {[=](auto& c, Images i, IQEL** result) {
              return which == 0   ? c.filter->Emboss(i[0], result)
                     : which == 1 ? c.filter->Blur(i[0], result)
                     : which == 2 ? c.filter->Soften(i[0], result)
                     : which == 3 ? c.filter->Sharpen(i[0], result)
                     : which == 4 ? c.filter->Contour(i[0], result)
                                  : c.filter->GaussianBlur(i[0], which - 5, result);
            },
            [=](Rasters r, Raster& result) {
              return which == 0   ? oracle::Emboss(r[0], result)
                     : which == 1 ? oracle::Blur(r[0], result)
                     : which == 2 ? oracle::Soften(r[0], result)
                     : which == 3 ? oracle::Sharpen(r[0], result)
                     : which == 4 ? oracle::Contour(r[0], result)
                                  : oracle::GaussianBlur(r[0], which - 5, result);
            }};
  });
  table.Add("Morphology", 1, all, [](Rng& rng) -> Pair {
    const int which = rng.Int(0, 2), size = rng.OneIn(6) ? rng.Int(-1, 40) : rng.Int(1, 9);
    return {[=](auto& c, Images i, IQEL** result) {
              return which == 0   ? c.filter->Erode(i[0], size, result)
                     : which == 1 ? c.filter->Dilate(i[0], size, result)
                                  : c.filter->Edge(i[0], size, result);
            },
            [=](Rasters r, Raster& result) {
              return which == 0   ? oracle::Erode(r[0], size, result)
                     : which == 1 ? oracle::Dilate(r[0], size, result)
                                  : oracle::Edge(r[0], size, result);
            }};
  });
  table.Add("Median", 1, all, [](Rng& rng) -> Pair {
    const int size = rng.Int(0, 11);
    return {[=](auto& c, Images i, IQEL** result) { return c.filter->Median(i[0], size, result); },
            [=](Rasters r, Raster& result) { return oracle::Median(r[0], size, result); }};
  });
  table.Add("Random", 1, all, [](Rng& rng) -> Pair {
    const int amount = DrawAmount(rng, -300, 300), jitter = rng.Int(0, 1);
    const auto seed = static_cast<unsigned>(rng.Next());
    return {[=](auto& c, Images i, IQEL** result) {
              std::srand(seed);
              return jitter ? c.filter->Jitter(i[0], amount, result)
                            : c.filter->Noise(i[0], amount, result);
            },
            [=](Rasters r, Raster& result) {
              std::srand(seed);
              return jitter ? oracle::Jitter(r[0], amount, result)
                            : oracle::Noise(r[0], amount, result);
            }};
  });
}

void AddMaths(Table& table) {
  const auto& all = kAllDepths;
  table.may_be_wide = false;
  table.Add("Equal", 2, {8, 16, 24, 32}, [](Rng& rng) -> Pair {
    const int value = static_cast<int>(rng.Next());
    const bool masked = rng.OneIn(2);
    return {
        [=](auto& c, Images i, IQEL**) {
          return c.maths->Equal(i[0], masked ? i[1] : nullptr, value);
        },
        [=](Rasters r, Raster&) { return oracle::Equal(r[0], masked ? &r[1] : nullptr, value); }};
  });
  table.Add("Copy", 2, all, [](Rng& rng) -> Pair {
    const int x = rng.Int(-1, 20), y = rng.Int(-1, 5);
    const bool into_zeros = rng.OneIn(2);
    return {[=](auto& c, Images i, IQEL**) {
              return c.maths->Copy(i[0], i[1], into_zeros ? i[0] : nullptr, x, y);
            },
            [=](Rasters r, Raster&) {
              return oracle::Copy(r[0], r[1], into_zeros ? &r[0] : nullptr, x, y);
            }};
  });
  table.Add("AddScale", 4, {8, 24, 32}, [](Rng& rng) -> Pair {
    const float a = DrawFactor(rng), b = DrawFactor(rng), offset = rng.Float(-100, 100);
    const bool masked = rng.OneIn(2);
    return {[=](auto& c, Images i, IQEL**) {
              return c.maths->AddScale(i[0], i[1], i[2], masked ? i[3] : nullptr, a, b, offset);
            },
            [=](Rasters r, Raster&) {
              return oracle::AddScale(r[0], r[1], r[2], masked ? &r[3] : nullptr, a, b, offset);
            }};
  });
  table.Add("Subtract", 3, all, [](Rng& rng) -> Pair {
    const int flags = rng.Int(0, 4);
    return {[=](auto& c, Images i, IQEL**) { return c.maths->Subtract(i[0], i[1], i[2], flags); },
            [=](Rasters r, Raster&) { return oracle::Subtract(r[0], r[1], r[2], flags); }};
  });
  table.Add("Add", 3, all, [](Rng& rng) -> Pair {
    const float divisor = DrawFactor(rng);
    return {[=](auto& c, Images i, IQEL**) { return c.maths->Add(i[0], i[1], i[2], divisor); },
            [=](Rasters r, Raster&) { return oracle::Add(r[0], r[1], r[2], divisor); }};
  });
  table.Add("Scale", 3, {8, 24, 32}, [](Rng& rng) -> Pair {
    const float factor = DrawFactor(rng), offset = rng.Float(-100, 100);
    const bool masked = rng.OneIn(2);
    return {[=](auto& c, Images i, IQEL**) {
              return c.maths->Scale(i[0], i[1], masked ? i[2] : nullptr, factor, offset);
            },
            [=](Rasters r, Raster&) {
              return oracle::Scale(r[0], r[1], masked ? &r[2] : nullptr, factor, offset);
            }};
  });
}

}  // namespace

const std::vector<PairedOperation>& PairedOperations() {
  static const std::vector<PairedOperation> operations = [] {
    Table table;
    AddColor(table);
    AddTransform(table);
    AddFilters(table);
    AddMaths(table);
    return table.rows;
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
