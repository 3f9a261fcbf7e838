#include "check/operation_calls.h"

namespace qel::cli {
namespace {

/// Stretches and shears: some points fall outside, some pixels are hit twice.
class Shear final : public ITransform {
 public:
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return 1; }
  uint32_t Release() override { return 1; }
  result_t TransformPoint(double* x, double* y, double* /*z*/) override {
    const double old_x = *x;
    *x = 1.3 * old_x + 0.2 * *y - 1;
    *y = 0.9 * *y - 0.1 * old_x;
    return kOk;
  }
};

ITransform* SharedShear() {
  static Shear shear;
  return &shear;
}

using Images = std::span<IQELImage* const>;

using FilterCall = std::function<result_t(IQELFilterTransform&, IQEL*, IQEL**)>;

/// A filter twice: with a result of its own, and assigned to the source.
void AddFilter(std::vector<OperationCall>& calls, const std::string& name, FilterCall call) {
  calls.push_back({name, 1, 0, true, [call](const Components& c, Images i, IQEL** result) {
                     return call(*c.filter, i[0], result);
                   }});
  calls.push_back({name + "Assigned", 1, 1, true, [call](const Components& c, Images i, IQEL**) {
                     return call(*c.filter, i[0], nullptr);
                   }});
}

void AddColorCalls(std::vector<OperationCall>& calls) {
  using Change = std::function<result_t(IQELColorTransform&, IQEL*)>;
  const auto add = [&](const std::string& name, bool makes_image, Change change) {
    calls.push_back({name, 1, 1, makes_image, [change](const Components& c, Images i, IQEL**) {
                       return change(*c.color, i[0]);
                     }});
  };
  add("Colorize", false, [](auto& c, IQEL* i) { return c.Colorize(i, 40, 200, 0.7f); });
  add("Lut", false, [](auto& c, IQEL* i) {
    uint8_t table[256];
    for (int v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(v * 7 + 3);
    return c.Lut(i, table);
  });
  add("Negative", false, [](auto& c, IQEL* i) { return c.Negative(i); });
  add("GrayScale", true, [](auto& c, IQEL* i) { return c.GrayScale(i); });
  add("ShiftRGB", false, [](auto& c, IQEL* i) { return c.ShiftRGB(i, 20, -30, 40); });
  add("Gamma", false, [](auto& c, IQEL* i) { return c.Gamma(i, 1.7f); });
  add("Light", false, [](auto& c, IQEL* i) { return c.Light(i, 30, 20); });
  add("SetImageAlpha", false, [](auto& c, IQEL* i) { return c.SetImageAlpha(i, 77, 0); });
  add("SetImageAlphaTransparency", false,
      [](auto& c, IQEL* i) { return c.SetImageAlphaTransparency(i, 128, 0xFFFFFF); });
  add("SetImageTransparentPixel", false,
      [](auto& c, IQEL* i) { return c.SetImageTransparentPixel(i, 0x0000FF); });
  // Needs an image on the way, but goes on without one.
  add("Threshold", false, [](auto& c, IQEL* i) { return c.Threshold(i, 100); });
}

void AddTransformCalls(std::vector<OperationCall>& calls) {
  using Make = std::function<result_t(IQELTransform&, IQEL*, IQEL**)>;
  const auto add = [&](const std::string& name, Make make) {
    calls.push_back({name, 1, 0, true, [make](const Components& c, Images i, IQEL** result) {
                       return make(*c.transform, i[0], result);
                     }});
  };
  add("Flip", [](auto& c, IQEL* i, IQEL** r) { return c.Flip(i, r); });
  add("Mirror", [](auto& c, IQEL* i, IQEL** r) { return c.Mirror(i, r); });
  for (const int angle : {90, 180, 270, 33}) {
    add("Rotate" + std::to_string(angle),
        [angle](auto& c, IQEL* i, IQEL** r) { return c.Rotate(i, r, angle, 4, 0, 0); });
  }
  add("Skew", [](auto& c, IQEL* i, IQEL** r) { return c.Skew(i, r, 0.4f, -0.3f, 0, 0, 0, 1); });
  add("ResampleLarger", [](auto& c, IQEL* i, IQEL** r) { return c.Resample(i, r, 60, 50, 3, 0); });
  add("ResampleSmaller", [](auto& c, IQEL* i, IQEL** r) { return c.Resample(i, r, 9, 7, 3, 0); });
  add("ResampleNearest", [](auto& c, IQEL* i, IQEL** r) { return c.Resample(i, r, 55, 13, 0, 1); });
  add("IncreaseBpp",
      [](auto& c, IQEL* i, IQEL** r) { return c.IncreaseBpp(i, r, 64, kModelArgb); });
  add("Quad",
      [](auto& c, IQEL* i, IQEL** r) { return c.Quad(i, r, 3, 2, 25, 4, 1, 18, 28, 15, 0, 0, 1); });
  add("Transform", [](auto& c, IQEL* i, IQEL** r) {
    return c.Transform(SharedShear(), i, r, 2, -1, 0, 0, 0, 0);
  });
  using Change = std::function<result_t(IQELTransform&, IQEL*)>;
  const auto change = [&](const std::string& name, Change call) {
    calls.push_back({name, 1, 1, false, [call](const Components& c, Images i, IQEL**) {
                       return call(*c.transform, i[0]);
                     }});
  };
  change("FlipBits", [](auto& c, IQEL* i) { return c.FlipBits(i); });
  change("FlipImageAndBits", [](auto& c, IQEL* i) { return c.FlipImageAndBits(i); });
  calls.push_back({"RotatePaste", 2, 1, false, [](const Components& c, Images i, IQEL**) {
                     return c.transform->RotatePaste(i[1], i[0], 0.4, 3, 0);
                   }});
  calls.push_back({"TransformPaste", 2, 1, false, [](const Components& c, Images i, IQEL**) {
                     return c.transform->TransformPaste(SharedShear(), i[1], i[0], 1, 2, 0, 0);
                   }});
  calls.push_back({"TransformPasteFilled", 2, 1, false, [](const Components& c, Images i, IQEL**) {
                     return c.transform->TransformPaste(SharedShear(), i[1], i[0], 1, 2, 1, 0);
                   }});
  for (int mode = 0; mode <= 4; ++mode) {
    calls.push_back({"Circle" + std::to_string(mode), 1, 1, true,
                     [mode](const Components& c, Images i, IQEL**) {
                       return c.deform->CircleTransform(i[0], mode, mode % 2, 1.5f);
                     }});
  }
}

void AddFilterCalls(std::vector<OperationCall>& calls) {
  AddFilter(calls, "Erode", [](auto& c, IQEL* i, IQEL** r) { return c.Erode(i, 4, r); });
  AddFilter(calls, "Edge", [](auto& c, IQEL* i, IQEL** r) { return c.Edge(i, 3, r); });
  AddFilter(calls, "Dilate", [](auto& c, IQEL* i, IQEL** r) { return c.Dilate(i, 5, r); });
  AddFilter(calls, "Filter", [](auto& c, IQEL* i, IQEL** r) {
    int kernel[] = {3, -1, 2, 0, 5, -4, 1, 1, -2};
    return c.Filter(i, kernel, 3, 3, 9, r);
  });
  AddFilter(calls, "Contour", [](auto& c, IQEL* i, IQEL** r) { return c.Contour(i, r); });
  AddFilter(calls, "Jitter", [](auto& c, IQEL* i, IQEL** r) { return c.Jitter(i, 3, r); });
  AddFilter(calls, "Noise", [](auto& c, IQEL* i, IQEL** r) { return c.Noise(i, 60, r); });
  AddFilter(calls, "Median3", [](auto& c, IQEL* i, IQEL** r) { return c.Median(i, 3, r); });
  AddFilter(calls, "Median8", [](auto& c, IQEL* i, IQEL** r) { return c.Median(i, 8, r); });
  AddFilter(calls, "Emboss", [](auto& c, IQEL* i, IQEL** r) { return c.Emboss(i, r); });
  AddFilter(calls, "Blur", [](auto& c, IQEL* i, IQEL** r) { return c.Blur(i, r); });
  AddFilter(calls, "Soften", [](auto& c, IQEL* i, IQEL** r) { return c.Soften(i, r); });
  AddFilter(calls, "Sharpen", [](auto& c, IQEL* i, IQEL** r) { return c.Sharpen(i, r); });
  for (int level = 0; level < 4; ++level) {
    AddFilter(calls, "GaussianBlur" + std::to_string(level),
              [level](auto& c, IQEL* i, IQEL** r) { return c.GaussianBlur(i, level, r); });
  }
}

void AddMathsCalls(std::vector<OperationCall>& calls) {
  using Change = std::function<result_t(IQELMaths&, Images)>;
  const auto add = [&](const std::string& name, int images, Change change) {
    calls.push_back({name, images, 1, false, [change](const Components& c, Images i, IQEL**) {
                       return change(*c.maths, i);
                     }});
  };
  add("Equal", 1, [](auto& c, Images i) { return c.Equal(i[0], nullptr, 0x11223344); });
  add("EqualMasked", 2, [](auto& c, Images i) { return c.Equal(i[0], i[1], 0x11223344); });
  add("Copy", 2, [](auto& c, Images i) { return c.Copy(i[0], i[1], nullptr, 3, 2); });
  add("CopyIntoZeros", 2, [](auto& c, Images i) { return c.Copy(i[0], i[1], i[0], 3, 2); });
  add("AddScale", 3,
      [](auto& c, Images i) { return c.AddScale(i[0], i[1], i[2], nullptr, 0.6f, 0.7f, -9); });
  add("AddScaleMasked", 4,
      [](auto& c, Images i) { return c.AddScale(i[0], i[1], i[2], i[3], 0.6f, 0.7f, -9); });
  add("Scale", 2, [](auto& c, Images i) { return c.Scale(i[0], i[1], nullptr, 1.4f, -20); });
  add("ScaleMasked", 3, [](auto& c, Images i) { return c.Scale(i[0], i[1], i[2], 1.4f, -20); });
  add("Subtract", 3, [](auto& c, Images i) { return c.Subtract(i[0], i[1], i[2], 0); });
  add("SubtractAbsolute", 3, [](auto& c, Images i) { return c.Subtract(i[0], i[1], i[2], 3); });
  add("Add", 3, [](auto& c, Images i) { return c.Add(i[0], i[1], i[2], 3.0f); });
  add("Scale8", 2, [](auto& c, Images i) { return c.Scale8(i[0], i[1], 5, 0.5); });
  calls.push_back({"CreateDestImage", 1, 0, true, [](const Components& c, Images i, IQEL** r) {
                     return c.maths->CreateDestImage(r, i[0], 0, 0);
                   }});
}

}  // namespace

const std::vector<OperationCall>& AllOperationCalls() {
  static const std::vector<OperationCall> all = [] {
    std::vector<OperationCall> calls;
    AddColorCalls(calls);
    AddTransformCalls(calls);
    AddFilterCalls(calls);
    AddMathsCalls(calls);
    return calls;
  }();
  return all;
}

}  // namespace qel::cli
