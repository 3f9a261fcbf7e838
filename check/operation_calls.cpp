#include "check/operation_calls.h"

#include "operations/method.h"
#include "operations/point_maps.h"

namespace qel::check {
namespace {

using operations::MethodArguments;
using operations::MethodCall;

std::vector<uint8_t> Table() {
  std::vector<uint8_t> table;
  for (int v = 0; v < 256; ++v) table.push_back(static_cast<uint8_t>(v * 7 + 3));
  return table;
}

/// An ordinary call of a method, under its name and what tells it from others of the same.
struct Ordinary {
  std::string_view method;
  MethodArguments arguments = {};
  std::string_view suffix = {};
  std::string images = {};
};

/// Of methods without a result: makes an image and assigns it to the one it was given.
bool NeedsImage(std::string_view method) {
  return method == "GrayScale" || method == "CircleTransform";
}

std::vector<Ordinary> OrdinaryCalls() {
  constexpr double kArgb = kModelArgb;
  // Some points fall outside, some pixels are hit twice.
  const auto shear =
      SmartPtr<ITransform>::Adopt(new operations::AffineMap({1.3, 0.2, -1, -0.1, 0.9, 0}));
  return {
      {"Colorize", {{40, 200, 0.7}}},
      {"Lut", {.table = Table()}},
      {"Negative"},
      {"GrayScale"},
      {"ShiftRGB", {{20, -30, 40}}},
      {"Gamma", {{1.7}}},
      {"Light", {{30, 20}}},
      {"SetImageAlpha", {{77}}},
      {"SetImageAlphaTransparency", {{128, 0xFFFFFF}}},
      {"SetImageTransparentPixel", {{0x0000FF}}},
      {"Threshold", {{100}}},
      {"Flip"},
      {"Mirror"},
      {"Rotate", {{90, 4}}, "90"},
      {"Rotate", {{180, 4}}, "180"},
      {"Rotate", {{270, 4}}, "270"},
      {"Rotate", {{33, 4}}, "33"},
      {"Skew", {{0.4, -0.3, 0, 0, 0, 1}}},
      {"Resample", {{60, 50, 3}}, "Larger"},
      {"Resample", {{9, 7, 3}}, "Smaller"},
      {"Resample", {{55, 13, 0, 1}}, "Nearest"},
      {"IncreaseBpp", {{64, kArgb}}},
      {"Quad", {{3, 2, 25, 4, 1, 18, 28, 15, 0, 0, 1}}},
      {"Transform", {.numbers = {2, -1}, .map = shear}},
      {"FlipBits"},
      {"FlipImageAndBits"},
      {"RotatePaste", {{0.4, 3}}},
      {"TransformPaste", {.numbers = {1, 2}, .map = shear}},
      {"TransformPaste", {.numbers = {1, 2, 1}, .map = shear}, "Filled"},
      {"CircleTransform", {{0, 0, 1.5}}, "0"},
      {"CircleTransform", {{1, 1, 1.5}}, "1"},
      {"CircleTransform", {{2, 0, 1.5}}, "2"},
      {"CircleTransform", {{3, 1, 1.5}}, "3"},
      {"CircleTransform", {{4, 0, 1.5}}, "4"},
      {"Erode", {{4}}},
      {"Edge", {{3}}},
      {"Dilate", {{5}}},
      {"Filter", {.numbers = {3, 3, 9}, .weights = {3, -1, 2, 0, 5, -4, 1, 1, -2}}},
      {"Contour"},
      {"Jitter", {{3}}},
      {"Noise", {{60}}},
      {"Median", {{3}}, "3"},
      {"Median", {{8}}, "8"},
      {"Emboss"},
      {"Blur"},
      {"Soften"},
      {"Sharpen"},
      {"GaussianBlur", {{0}}, "0"},
      {"GaussianBlur", {{1}}, "1"},
      {"GaussianBlur", {{2}}, "2"},
      {"GaussianBlur", {{3}}, "3"},
      {"Equal", {{0x11223344}}, "", "0-"},
      {"Equal", {{0x11223344}}, "Masked"},
      {"Copy", {{3, 2}}, "", "01-"},
      {"Copy", {{3, 2}}, "IntoZeros", "010"},
      {"AddScale", {{0.6, 0.7, -9}}, "", "012-"},
      {"AddScale", {{0.6, 0.7, -9}}, "Masked"},
      {"Scale", {{1.4, -20}}, "", "01-"},
      {"Scale", {{1.4, -20}}, "Masked"},
      {"Subtract", {{0}}},
      {"Subtract", {{3}}, "Absolute"},
      {"Add", {{3}}},
      {"Scale8", {{5, 0.5}}},
      {"CreateDestImage"},
  };
}

}  // namespace

const std::vector<OperationCall>& AllOperationCalls() {
  static const std::vector<OperationCall> all = [] {
    std::vector<OperationCall> calls;
    for (Ordinary& ordinary : OrdinaryCalls()) {
      const std::string name = std::string(ordinary.method) + std::string(ordinary.suffix);
      const MethodCall call(ordinary.method, std::move(ordinary.arguments),
                            std::move(ordinary.images));
      const bool gives_result = call.method->gives_result();
      calls.push_back({name, call.ImageCount(), gives_result ? 0 : 1,
                       gives_result || NeedsImage(ordinary.method),
                       [call](const Components& components, std::span<IQELImage* const> images,
                              IQEL** result) { return call.Run(components, images, result); }});
      if (call.method->component != "filter") continue;
      calls.push_back({name + "Assigned", 1, 1, true,
                       [call](const Components& components, std::span<IQELImage* const> images,
                              IQEL**) { return call.Run(components, images, nullptr); }});
    }
    return calls;
  }();
  return all;
}

}  // namespace qel::check
