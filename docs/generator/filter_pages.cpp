#include "docs/generator/page.h"
#include "filter/convolution/convolution_plan.h"
#include "filter/convolution/fixed_kernels.h"
#include "filter/median/median_plan.h"
#include "filter/morphology/extrema_plan.h"

namespace qel::docs {
namespace {

constexpr int kSharper[] = {0, -1, 0, -1, 5, -1, 0, -1, 0};

std::string ConvolutionBy(const int* kernel, int size, int divisor, int offset) {
  return TextOf(kConvolutionMethods, PlanConvolution(kernel, size, divisor, offset, 24).method)
      .name;
}

/// The formula of a filter that brings its own kernel, and what it costs.
std::string Kernel(const FixedKernel& kernel) {
  std::string text = "`";
  const int count = kernel.size * kernel.size;
  for (int i = 0; i < count; ++i) {
    text += std::to_string(kernel.weights[i]) + (i + 1 == count               ? "`"
                                                 : (i + 1) % kernel.size == 0 ? "; "
                                                                              : " ");
  }
  if (kernel.divisor != 0) text += ", divisor " + std::to_string(kernel.divisor);
  if (kernel.offset != 0) text += ", offset " + std::to_string(kernel.offset);
  return text;
}
std::string CostOfKernel(const FixedKernel& kernel) {
  return "That of [filter](filter.md) by `" +
         ConvolutionBy(kernel.weights, kernel.size, kernel.divisor, kernel.offset) +
         "`; linear in the pixels.";
}
Page PageOf(std::string_view name, const FixedKernel& kernel) {
  return {name, "Kernel " + Kernel(kernel) + ". See [filter](filter.md).", CostOfKernel(kernel)};
}

const MethodText& ExtremaBy(Extrema extrema, int size) {
  return TextOf(kExtremaMethods, PlanExtrema(extrema, size, ImageView()).method);
}

}  // namespace

std::vector<Page> FilterPages() {
  return {
      {"erode",
       "`v' = min` of the channel over `size` x `size` pixels; even sizes reach one further up and "
       "left. Alpha is that of the last pixel of the square.",
       CostOf(kExtremaMethods, ExtremaBy(Extrema::kMinimum, 5))},
      {"dilate",
       "`v' = max` of the channel over `size` x `size` pixels, else as [erode](erode.md).",
       std::string("That of [erode](erode.md); the example takes `") +
           ExtremaBy(Extrema::kMaximum, 5).name + "`."},
      {"edge",
       "`v' = max - min` of the channel over `size` x `size` pixels, else as [erode](erode.md).",
       std::string(
           "Twice that of [erode](erode.md), but the picture is read once; the example takes "
           "`") +
           ExtremaBy(Extrema::kRange, 3).name + "`."},
      {"filter",
       "`v' = clamp(sum(weight * v) / divisor + offset)`; the division truncates and is left out "
       "for a divisor of 0. Kernels are not mirrored. Sums wrap at 32 bits.",
       CostOf(kConvolutionMethods,
              TextOf(kConvolutionMethods, PlanConvolution(kSharper, 3, 1, 0, 24).method)),
       QEL_EXAMPLE(int kernel[] = {0, -1, 0, -1, 5, -1, 0, -1, 0};
                   return filter->Filter(image, kernel, 3, 1, 0, result);)},
      {"contour",
       "Over the eight neighbours, column by column: `kept` starts at 0; where `neighbour - centre "
       "> kept`, `kept = neighbour`. `v' = 255 - kept`. Alpha is the centre's.",
       "Eight comparisons a byte; linear in the pixels."},
      {"jitter",
       "Each pixel becomes that at `(x + dx, y + dy)`, `dx` and `dy` drawn by `rand` from "
       "`-amount` to `amount`.",
       "Two calls of `rand` a pixel, which is nearly all."},
      {"noise",
       "`v' = clamp(v + d)`, `d` drawn by `rand` for each channel from `-amount / 2` to `amount / "
       "2`, red first.",
       "Three calls of `rand` a pixel, which is nearly all."},
      {"median",
       "The pixels of the square in the order of their brightness `(117 b + 601 g + 306 r) >> 10`, "
       "equal ones column by column: the one in the middle, alpha included. No colours are mixed.",
       CostOf(kMedianMethods, TextOf(kMedianMethods, PlanMedian(5, 24).method))},
      PageOf("emboss", kEmboss),
      PageOf("blur", kBlur),
      PageOf("soften", kSoften),
      PageOf("sharpen", kSharpen),
      {"gaussian-blur",
       "Kernels of four levels: " + Kernel(kGaussianBlur[0]) + "; " + Kernel(kGaussianBlur[1]) +
           "; " + Kernel(kGaussianBlur[2]) + "; " + Kernel(kGaussianBlur[3]) +
           ". See [filter](filter.md).",
       CostOfKernel(kGaussianBlur[3])},
  };
}

}  // namespace qel::docs
