#include "tests/support/paired_operations.h"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "reference/readings.h"
#include "tests/support/painted_stack.h"

namespace qel::test {
namespace {

constexpr unsigned kSeed = 17;

template <typename T, size_t kCount>
T OneOf(Rng& rng, const T (&values)[kCount]) {
  return values[rng.Int(0, static_cast<int>(kCount) - 1)];
}

int AnyDepth(Rng& rng) { return kAllDepths[static_cast<size_t>(rng.Int(0, 7))]; }
/// Mostly one of those that have quick ways.
int UsualDepth(Rng& rng) {
  return rng.OneIn(3) ? AnyDepth(rng) : kCommonDepths[static_cast<size_t>(rng.Int(0, 2))];
}
uint8_t AnyByte(Rng& rng) { return static_cast<uint8_t>(rng.Next()); }

/// The methods of an operation that has several.
std::span<const MethodText> MethodsOf(std::string_view operation) {
  if (operation == "Filter") return kConvolutionMethods;
  if (operation == "Erode" || operation == "Dilate" || operation == "Edge") return kExtremaMethods;
  if (operation == "Median") return kMedianMethods;
  if (operation == "Resample") return kResampleMethods;
  if (operation == "Rotate") return kRotateMethods;
  if (operation == "CircleTransform") return kCircleMethods;
  return {};
}

/// A draw that is usually ordinary and sometimes extreme.
int AnyAmount(Rng& rng) {
  constexpr int kExtremes[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX - 100, 0, -1, -100, 0x112233};
  return rng.OneIn(8)    ? OneOf(rng, kExtremes)
         : rng.OneIn(12) ? INT32_MAX - rng.Int(0, 300)
                         : rng.Int(-300, 300);
}

float AnyFloat(Rng& rng) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kSpecial[] = {0.0f,   -0.0f,  1.0f,    -1.0f,     0.5f,      2.0f,   3.0f,
                                255.0f, 0.999f, 0.9991f, 1e-40f,    1e30f,     -1e30f, NAN,
                                1e-30f, 2.2f,   2e7f,    kInfinity, -kInfinity};
  if (rng.OneIn(3)) return OneOf(rng, kSpecial);
  return rng.OneIn(2) ? rng.Float(-2, 3) : rng.OneIn(2) ? rng.Float(0, 1.2f) : rng.Float(-300, 300);
}

/// Sizes round the vector lengths, and any others; some rows are thousands of pixels wide.
Shape AnySize(Rng& rng, bool may_be_wide = false) {
  if (rng.OneIn(2)) return OneOf(rng, kSizes);
  if (may_be_wide && rng.OneIn(25)) return {rng.Int(1000, 12000), rng.Int(1, 3), 0};
  return {rng.Int(1, rng.OneIn(9) ? 300 : 90), rng.Int(1, 16), 0};
}

/// Has sources and results begin or end where memory does, of calls that stay within their rows.
void MayFence(Rng& rng, PairedCase& drawn) {
  const int depth = drawn.inputs[0].bit_count;
  if (rng.OneIn(2) || (depth != 8 && depth != 24 && depth != 32)) return;
  const auto fence = rng.OneIn(2) ? Layout::Fence::kBefore : Layout::Fence::kAfter;
  const auto layout = [&]() -> Layout { return {.bottom_up = rng.OneIn(2), .fence = fence}; };
  Raster::NewImageLayout() = layout();
  for (Raster& i : drawn.inputs) {
    i = Raster(rng, i.width, i.height, i.bit_count, i.model, layout(), i.planes);
  }
}

/// A draw from `low` to `high`.
auto Between(int low, int high) {
  return [=](Rng& rng) { return rng.Int(low, high); };
}
auto Once(int in) {
  return [=](Rng& rng) { return rng.OneIn(in); };
}

/// The table: a row for each operation.
class Table {
 public:
  std::vector<PairedOperation> rows;
  std::string component;
  bool may_be_wide = false;    ///< for operations that work on wide images in tiles of columns
  bool may_be_fenced = false;  ///< for operations that stay within their rows

  /// An operation on one image, to whose case `draw` adds the call.
  template <typename Draw>
  void AddCase(const std::string& name, Draw draw) {
    rows.push_back({component, name, [=, wide = may_be_wide, fenced = may_be_fenced](Rng& rng) {
                      const Shape size = AnySize(rng, wide);
                      PairedCase drawn;
                      drawn.inputs = {RandomRaster(rng, size.width, size.height, UsualDepth(rng))};
                      Raster::NewImageLayout() = RandomLayout(rng);
                      if (fenced) MayFence(rng, drawn);
                      drawn.call = draw(rng, drawn);
                      return drawn;
                    }});
  }

  /// A call of the method `name` with numbers by `draws`, some of which look at the image.
  template <typename... Draws>
  void Add(const char* name, Draws... draws) {
    AddCase(name, [=]([[maybe_unused]] Rng& rng, [[maybe_unused]] PairedCase& drawn) {
      [[maybe_unused]] const auto draw = [&](auto one) {
        if constexpr (std::is_invocable_v<decltype(one), Rng&>) return one(rng);
        if constexpr (!std::is_invocable_v<decltype(one), Rng&>) return one(rng, drawn.inputs[0]);
      };
      return std::apply([&](auto... numbers) { return Call(name, numbers...); },
                        std::tuple{draw(draws)...});
    });
  }
};

/// The colour of the first pixel, so that keys are found. The top byte stays random.
uint32_t AnyKey(Rng& rng, const Raster& image) {
  const uint32_t drawn = rng.Next();
  if (image.Bits() == nullptr || image.bit_count < 24) return drawn;
  const uint8_t* const pixel = image.Row(0);
  return (drawn & 0xFF000000u) | uint32_t{pixel[0]} << 16 | uint32_t{pixel[1]} << 8 | pixel[2];
}

void AddColor(Table& table) {
  table.component = "color";
  table.may_be_fenced = false;
  table.Add("GrayScale");
  table.Add("Threshold", AnyAmount);
  table.may_be_fenced = true;
  table.Add("Lut", [](Rng& rng) {
    std::vector<uint8_t> values(256);
    for (uint8_t& value : values) value = AnyByte(rng);
    return values;
  });
  table.Add("Light", AnyAmount, AnyAmount);
  table.Add("Gamma", AnyFloat);
  table.Add("Negative");
  table.Add("ShiftRGB", AnyAmount, AnyAmount, AnyAmount);
  table.Add("SetImageAlpha", AnyAmount, AnyAmount);
  table.Add("SetImageTransparentPixel", AnyKey);
  table.Add("SetImageAlphaTransparency", AnyAmount, AnyKey);
  const auto saturation = [](Rng& rng) { return rng.OneIn(4) ? uint8_t{0} : AnyByte(rng); };
  table.Add("Colorize", AnyByte, saturation, AnyFloat);
}

/// Shears and turns; some points may have no number.
SmartPtr<ITransform> AnyMap(Rng& rng) {
  const auto factor = [&](float low) { return static_cast<double>(rng.Float(low, 1.3f)); };
  const double a = factor(-1), b = factor(-0.3f) - 0.2, c = factor(-0.3f) - 0.2, d = factor(-1);
  const double dx = rng.Int(-3, 30), dy = rng.Int(-3, 10);
  const int odd = rng.OneIn(4) ? rng.Int(3, 9) : INT32_MAX;
  return SmartPtr<ITransform>::Adopt(new PointMap([=](double& x, double& y) {
    const double old_x = x;
    const bool is_odd = static_cast<int>(x + y) % odd == odd - 1;
    x = is_odd ? std::nan("") : a * x + b * y + dx;
    y = c * old_x + d * y + dy;
  }));
}

int AnyAngle(Rng& rng) {
  constexpr int kAngles[] = {0, 90, 180, 270, -90, -180, -270, 360, 450, 1, -1, 45, INT32_MIN};
  return rng.OneIn(2) ? OneOf(rng, kAngles) : rng.Int(-400, 400);
}

PairedCall AnyQuad(Rng& rng, PairedCase& drawn) {
  const double w = drawn.inputs[0].width, h = drawn.inputs[0].height;
  double p[] = {0, 0, w, 0, 0, h, w, h};
  const float reach = rng.OneIn(3) ? 0.0f : rng.OneIn(2) ? 3.0f : 40.0f;
  const bool far = rng.OneIn(8);
  for (double& value : p) {
    value += static_cast<double>(rng.Float(-reach, reach));
    if (far && rng.OneIn(3)) value = rng.OneIn(5) ? 1e12 : rng.OneIn(2) ? 32767.9 : -32768;
  }
  if (rng.OneIn(6)) p[4] = p[0], p[5] = p[1];
  const auto size = [&](int derived) { return rng.OneIn(3) && !far ? derived : rng.Int(1, 150); };
  return Call("Quad", p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7],
              size(rng.OneIn(2) ? 0 : 65536), size(0), rng.Int(-1, 1));
}

PairedCall AnyRotatePaste(Rng& rng, PairedCase& drawn) {
  constexpr double kAngles[] = {0.0, M_PI / 2, M_PI, 1e-9, 0.5, -2.0, 100.0};
  const Shape size = AnySize(rng);
  drawn.inputs.push_back(RandomRaster(rng, size.width, size.height, rng.OneIn(2) ? 24 : 32));
  MayFence(rng, drawn);
  const Raster& source = drawn.inputs[0];
  // The colour of some pixel, so that the key is found.
  const int key = source.Bits() != nullptr && source.bit_count == 24
                      ? source.Row(0)[0] | source.Row(0)[1] << 8 | source.Row(0)[2] << 16
                      : 0;
  const double angle = rng.OneIn(2) ? OneOf(rng, kAngles) : rng.Float(-4, 4);
  return Call("RotatePaste", angle, rng.Int(-1, 16), rng.OneIn(4) ? -1 : key);
}

void AddTransform(Table& table) {
  table.component = "transform";
  table.may_be_fenced = false;
  table.Add("Flip");
  table.AddCase("RotatePaste", AnyRotatePaste);
  table.AddCase("Rotate", [](Rng& rng, PairedCase& drawn) {
    const int angle = AnyAngle(rng);
    // Half turns read beyond the row.
    if (angle % 180 != 0 || angle % 360 == 0) MayFence(rng, drawn);
    return Call("Rotate", angle, rng.Int(-1, 16), rng.OneIn(3), rng.OneIn(2));
  });
  table.AddCase("TransformPaste", [](Rng& rng, PairedCase& drawn) {
    drawn.inputs.push_back(
        RandomRaster(rng, rng.Int(0, 60), rng.Int(0, 20), drawn.inputs[0].bit_count));
    return Call("TransformPaste", AnyMap(rng), rng.Int(-20, 20), rng.Int(-9, 9), rng.Int(0, 1), 7);
  });
  table.may_be_fenced = true;
  table.Add("Mirror");
  table.Add("FlipBits");
  table.Add("FlipImageAndBits");
  table.AddCase("IncreaseBpp", [](Rng& rng, PairedCase& drawn) {
    constexpr int kBits[] = {8, 16, 24, 24, 32, 32, 40, -1, INT32_MIN};
    std::vector<RGBQUAD> palette(rng.OneIn(2) ? 256 : 0);
    for (RGBQUAD& entry : palette) entry = {AnyByte(rng), AnyByte(rng), AnyByte(rng), AnyByte(rng)};
    drawn.inputs[0].palette = palette;
    return Call("IncreaseBpp", OneOf(rng, kBits), rng.Next());
  });
  table.AddCase("Resample", [](Rng& rng, PairedCase& drawn) {
    const Raster& source = drawn.inputs[0];
    if (rng.OneIn(8)) return Call("Resample", source.width / 2, source.height / 2, 0, false);
    if (rng.OneIn(8)) {
      return Call("Resample", 2 * source.width, 2 * source.height, rng.Int(1, 15), false);
    }
    const int width = rng.OneIn(3)   ? source.width * rng.Int(0, 6) / 2
                      : rng.OneIn(2) ? rng.Int(-1, 150)
                                     : rng.Int(1, source.width + 1);
    const int height = rng.OneIn(3)   ? source.height
                       : rng.OneIn(4) ? source.height / 2
                                      : rng.Int(-1, 30);
    return Call("Resample", width, height, rng.Int(-1, 16), rng.OneIn(4));
  });
  const auto gain = [](Rng& rng) {
    constexpr float kGains[] = {0, 0, 0.5f, -0.5f, 1, 3e9f, NAN, -INFINITY};
    return rng.OneIn(2) ? OneOf(rng, kGains) : rng.Float(-2, 2);
  };
  const auto pivot = [](Rng& rng) {
    return rng.OneIn(3) ? 0 : rng.OneIn(8) ? INT32_MIN + rng.Int(0, 1) : rng.Int(-20, 120);
  };
  table.Add("Skew", gain, gain, pivot, pivot, Between(77, 77), Once(2));
  table.AddCase("Quad", AnyQuad);
  table.AddCase("Transform", [](Rng& rng, PairedCase& drawn) {
    Raster& source = drawn.inputs[0];
    if (rng.OneIn(2)) source.model = rng.OneIn(2) ? kModelAbgr : kModelMono;
    const int width = rng.OneIn(2) ? 65536 * rng.Int(0, 1) : 40;
    return Call("Transform", AnyMap(rng), rng.Int(-20, 20), rng.Int(-9, 9), width,
                rng.OneIn(2) ? 0 : 30, 5, 6);
  });
  table.AddCase("CircleTransform", [](Rng& rng, PairedCase&) {
    constexpr float kFactors[] = {1, 0.3f, 5, -1, 0.01f, 0, INFINITY, 1e-9f};
    const float factor = rng.OneIn(2) ? OneOf(rng, kFactors) : rng.Float(0.2f, 4);
    return Call("CircleTransform", rng.OneIn(8) ? INT32_MAX : rng.Int(-1, 5), rng.OneIn(2), factor);
  });
}

/// Products of a column and a row but for the middle, up to where sums leave 16 bits.
PairedCall AnySmallSquare(Rng& rng, PairedCase& drawn) {
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
  Raster& image = drawn.inputs[0];
  const bool glaring = rng.OneIn(2);
  for (int y = 0; glaring && y < image.height; ++y) {
    for (int i = 0; i < image.RowBytes(); ++i) image.Row(y)[i] = rng.OneIn(3) ? 0 : 255;
  }
  const int divisor = AnyDivisor(rng, kernel);
  return Call("Filter", kernel, size, divisor, rng.OneIn(2) ? 0 : rng.Int(-300, 300));
}

void AddFilters(Table& table) {
  table.component = "filter";
  table.may_be_wide = true;
  table.may_be_fenced = true;
  table.AddCase("Filter", [](Rng& rng, PairedCase&) {
    const int size = rng.OneIn(4) ? rng.Int(-1, 18) : rng.Int(1, 7);
    // Without taps the kernel does not matter, not even a null one.
    const std::vector<int> kernel = size > 0 ? AnyKernel(rng, size) : std::vector<int>();
    const int divisor = AnyDivisor(rng, kernel);
    return Call("Filter", kernel, size, divisor, rng.OneIn(2) ? 0 : AnyAmount(rng));
  });
  table.AddCase("Filter, small squares", AnySmallSquare);
  table.Add("Emboss");
  table.Add("Blur");
  table.Add("Soften");
  table.Add("Sharpen");
  table.Add("Contour");
  table.Add("GaussianBlur", Between(-1, 4));
  for (const char* const name : {"Erode", "Dilate", "Edge"}) {
    table.Add(name, [](Rng& rng) { return rng.OneIn(4) ? rng.Int(-1, 40) : rng.Int(1, 9); });
  }
  table.AddCase("Median", [](Rng& rng, PairedCase& drawn) {
    const Raster& source = drawn.inputs[0];
    if (!rng.OneIn(4)) return Call("Median", rng.Int(0, 9));
    return Call("Median", rng.Int(-1, source.width * source.height < 800 ? 30
                                      : source.width < 400               ? 15
                                                                         : 9));
  });
  table.Add("Noise", AnyAmount);
  table.Add("Jitter", AnyAmount);
}

uint32_t AnyModel(Rng& rng, int bit_count) {
  constexpr uint32_t kModels[] = {kModelMono, kModelBgr, kModelAbgr, 0};
  return rng.OneIn(2) ? UsualModel(bit_count) : OneOf(rng, kModels);
}
/// A size near another one: smaller, equal or larger.
int Near(Rng& rng, int size) { return std::max(0, size + (rng.OneIn(2) ? 0 : rng.Int(-3, 70))); }

/// Images of one call of the mathematics: their parts may share an image.
class Parts {
 public:
  explicit Parts(Rng& rng, PairedCase& drawn) : rng_(rng), drawn_(drawn), size(AnySize(rng)) {
    drawn.inputs.clear();
  }

 private:
  Rng& rng_;
  PairedCase& drawn_;

 public:
  const Shape size;
  std::string images;  ///< as in `MethodCall`

  /// Adds an image as the next one of the call.
  void Add(int width, int height, int bit_count, uint32_t model, int planes = 1) {
    Share(static_cast<int>(drawn_.inputs.size()));
    drawn_.inputs.emplace_back(rng_, width, height, bit_count, model, RandomLayout(rng_), planes);
  }
  void AddLike(int bit_count, int planes = 1) {
    Add(size.width, size.height, bit_count, AnyModel(rng_, bit_count), planes);
  }
  void AddNear(int bit_count, uint32_t model, int planes = 1) {
    Add(Near(rng_, size.width), Near(rng_, size.height), bit_count, model, planes);
  }
  /// The next image is one that there is already, or none.
  void Share(int place) { images += place < 0 ? '-' : static_cast<char>('0' + place); }
  /// None, the first image, or one of its own; operations that trust the mask's size read its
  /// bytes.
  void AddMask(int width, int height) {
    const int kind = rng_.Int(0, 3);
    if (kind < 2) return Share(kind == 0 ? -1 : 0);
    Add(std::max(width, 1), std::max(height, 1), rng_.OneIn(4) ? 24 : 8, kModelMono);
  }
  /// A destination and two sources of one format; the destination may be one of the sources.
  void AddTwoSources(bool dest_exists) {
    const int bits = UsualDepth(rng_);
    const int planes = rng_.OneIn(3) ? rng_.Int(0, 3) : 1;
    const uint32_t model = AnyModel(rng_, bits);
    Add(size.width, size.height, bits, model, planes);
    const bool onto_source = rng_.OneIn(4);
    const bool onto_first = dest_exists || rng_.OneIn(2);
    // What the operations trust: the second source and the destination are large enough.
    const auto add_second = [&] {
      Add(size.width + (rng_.OneIn(2) ? 0 : rng_.Int(1, 9)), size.height + rng_.Int(0, 1),
          rng_.OneIn(9) ? 24 : bits, rng_.OneIn(9) ? AnyModel(rng_, bits) : model, planes);
    };
    if (onto_source && onto_first) {
      Share(0);
      add_second();
    } else {
      Add(size.width, size.height, bits, model, planes);
      if (onto_source) std::swap(images[0], images[1]);
      onto_source ? Share(1) : add_second();
    }
  }
};

void AddMaths(Table& table) {
  table.component = "maths";
  table.may_be_wide = false;
  table.may_be_fenced = false;
  table.AddCase("Equal", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    parts.AddLike(UsualDepth(rng), rng.OneIn(3) ? rng.Int(0, 3) : 1);
    parts.AddMask(parts.size.width, parts.size.height);
    return CallOn(parts.images, "Equal", AnyAmount(rng));
  });
  table.AddCase("Copy", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    const int from = UsualDepth(rng);
    parts.AddLike(rng.OneIn(3) ? from : UsualDepth(rng));
    rng.OneIn(8) ? parts.Share(0) : parts.AddNear(from, AnyModel(rng, from));
    parts.AddMask(1, 1);
    const int x = rng.OneIn(2) ? 0 : rng.Int(-1, parts.size.width);
    const int y = rng.OneIn(2) ? 0 : rng.Int(-1, parts.size.height);
    return CallOn(parts.images, "Copy", x, y);
  });
  table.AddCase("AddScale", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    const int depth = UsualDepth(rng);
    const bool mixed = rng.OneIn(2);
    for (int part = 0; part < 3; ++part) {
      const int bits = mixed ? rng.OneIn(9) ? AnyDepth(rng) : rng.OneIn(2) ? 24 : 32 : depth;
      part > 0 && rng.OneIn(4) ? parts.Share(0) : parts.AddNear(bits, 0);
    }
    parts.AddMask(parts.size.width + 70, parts.size.height + 70);
    return CallOn(parts.images, "AddScale", AnyFloat(rng), AnyFloat(rng), AnyFloat(rng));
  });
  table.AddCase("Scale", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    const int from = UsualDepth(rng);
    const int planes = rng.OneIn(3) ? rng.Int(0, 3) : 1;
    parts.AddLike(UsualDepth(rng), planes);
    rng.OneIn(5) ? parts.Share(0) : parts.AddNear(from, AnyModel(rng, from), planes);
    parts.AddMask(parts.size.width, parts.size.height);
    return CallOn(parts.images, "Scale", AnyFloat(rng), AnyFloat(rng));
  });
  table.AddCase("Subtract", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    parts.AddTwoSources(true);
    return CallOn(parts.images, "Subtract", rng.Int(0, 5));
  });
  table.AddCase("Add", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    parts.AddTwoSources(false);
    return CallOn(parts.images, "Add", AnyFloat(rng));
  });
  const auto bits = [](Rng& rng) { return rng.OneIn(2) ? 0 : AnyDepth(rng); };
  const auto model = [](Rng& rng) { return rng.OneIn(2) ? 0u : kModelMono; };
  table.Add("CreateDestImage", bits, model);
  table.AddCase("Scale8", [](Rng& rng, PairedCase& drawn) {
    Parts parts(rng, drawn);
    parts.Add(3, 3, 24, 0);
    const int depth = rng.OneIn(2) ? 32 : AnyDepth(rng);
    Layout layout = RandomLayout(rng);
    // A negative stride survives the unsigned division only where the divisor is a power of two.
    if (depth == 24 || depth == 25 || depth == 40) {
      layout.bottom_up = Raster::NewImageLayout().bottom_up = false;
    }
    drawn.inputs.emplace_back(rng, parts.size.width, parts.size.height, depth,
                              rng.OneIn(9) ? kModelAbgr : kModelMono, layout, rng.Int(0, 2));
    const double factor =
        rng.OneIn(2) ? static_cast<double>(AnyFloat(rng)) : rng.Float(-1, 1) * 1e-7;
    return CallOn(rng.OneIn(8) ? "11" : "01", "Scale8", AnyAmount(rng), factor);
  });
}

}  // namespace

std::vector<int> AnyKernel(Rng& rng, int size) {
  constexpr int kReach[] = {1, 20, 127, 128, 3000, 32767, 70000, INT32_MAX};
  const int reach = OneOf(rng, kReach);
  const bool positive = rng.OneIn(2);
  const auto draw = [&](int most) {
    const int lowest = most == INT32_MAX ? INT32_MIN : -most;
    return rng.Int(positive ? 0 : lowest, most);
  };
  const auto side = static_cast<size_t>(size);
  std::vector<int> kernel(side * side), down(side), across(side);
  const int kind = rng.Int(0, 3);
  const int equal = draw(std::min(reach, 200));
  const bool even_down = rng.OneIn(4), even_across = rng.OneIn(4);
  for (int& weight : down) weight = even_down ? 2 : draw(std::min(reach, 300) / size + 1);
  for (int& weight : across) weight = even_across ? 1 : draw(size < 8 ? 40 : 3);
  for (size_t i = 0; i < kernel.size(); ++i) {
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
  return rng.OneIn(3) ? OneOf(rng, kSpecial) : rng.Int(-300, 300);
}

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

PairedCall Paired(operations::MethodCall call) {
  std::string words(call.method->name);
  for (const double number : call.arguments.numbers) words += ' ' + std::to_string(number);
  for (const int weight : call.arguments.weights) words += ' ' + std::to_string(weight);
  return {[=](const ComponentSet& components, auto given, IQEL** result) {
            const std::vector<IQELImage*> images(given.begin(), given.end());
            return call.Run(components, images, result);
          },
          [=](std::span<Raster> given, Raster& result) { return Read(call, given, result); }, words,
          call};
}

PlainOutcome::PlainOutcome(const PairedCase& paired) : paired_(paired), images_(paired.inputs) {
  std::srand(kSeed);
  code_ = paired.call.plain(images_, result_);
  next_random_ = std::rand();
}

std::string PlainOutcome::Difference(const ComponentSet& components) const {
  const std::string compared = Compared(components);
  if (compared.empty()) return {};
  return compared + " (" + paired_.inputs[0].Describe() + ": " + paired_.call.arguments + ")";
}

std::string PlainOutcome::DifferenceByMethods(const ForcedPlans& plans,
                                              std::set<const MethodText*>& run) const {
  const auto view_of = [](const Raster& raster) {
    ImageView view;
    static_cast<ImageShape&>(view) = {raster.width, raster.height, raster.planes, raster.bit_count,
                                      raster.model};
    view.bits = const_cast<uint8_t*>(raster.Bits());
    view.stride = raster.stride;
    return view;
  };
  const Raster& expected = result_.bit_count != 0 ? result_ : images_[0];
  const int bits = expected.bit_count;
  const bool stores = bits >= 24 || bits == 8 || bits == 4 || bits == 1;
  const auto& call = paired_.call.call;
  if (!call || code_ != kOk || !stores || !view_of(expected).HasPixels()) return {};
  const auto methods = MethodsOf(call->method->name);
  for (size_t method = 0; method < methods.size(); ++method) {
    const MethodText& text = methods[method];
    Raster result;
    result.Create(expected.width, expected.height, expected.planes, bits, expected.model);
    if (!plans.run(call->method->name, method, call->arguments, view_of(paired_.inputs[0]),
                   view_of(result))) {
      continue;
    }
    run.insert(&text);
    const std::string difference = result.Difference(expected);
    if (!difference.empty()) {
      return std::string("by ") + text.name + ": " + difference + ", " + paired_.call.arguments;
    }
  }
  return {};
}

std::string PlainOutcome::Compared(const ComponentSet& components) const {
  const TestImages<TestImage> given(paired_.inputs);
  const auto& images = given.images;
  SmartPtr<IQEL> result;
  std::srand(kSeed);
  PaintedStack::Mark();
  const result_t code = paired_.call.module(components, given.pointers, result.Put());
  if (std::rand() != next_random_) return "random numbers drawn";
  if (code != code_) {
    return "result code " + std::to_string(code) + ", not " + std::to_string(code_);
  }
  for (size_t i = 0; i < images.size(); ++i) {
    const std::string difference = images[i]->raster.Difference(images_[i]);
    if (!difference.empty()) return "image " + std::to_string(i) + ": " + difference;
    const bool handed_back = static_cast<IQEL*>(images[i].Get()) == result.Get();
    if (images[i]->references() != (handed_back ? 2u : 1u)) {
      return "references of image " + std::to_string(i);
    }
  }
  if (static_cast<bool>(result) != (result_.bit_count != 0)) {
    return result ? "a result that should not be" : "no result";
  }
  if (!result) return {};
  const std::string difference = static_cast<TestImage*>(result.Get())->raster.Difference(result_);
  return difference.empty() ? "" : "result: " + difference;
}

}  // namespace qel::test
