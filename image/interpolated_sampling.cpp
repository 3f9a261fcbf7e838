#include "image/interpolated_sampling.h"

#include "image/pixel_access.h"
#include "image/pixel_layout.h"

namespace qel {
namespace {

/// The four channels of a sum of weighted pixels, each in the order in which pixels are added.
struct WeightedSum {
  float blue = 0.0f;
  float green = 0.0f;
  float red = 0.0f;
  float alpha = 0.0f;

  void Add(float weight, uint32_t color) {
    blue += weight * static_cast<float>(BlueOf(color));
    green += weight * static_cast<float>(GreenOf(color));
    red += weight * static_cast<float>(RedOf(color));
    alpha += weight * static_cast<float>(AlphaOf(color));
  }
  uint32_t Color() const {
    return PackColor(ByteOfSum(blue), ByteOfSum(green), ByteOfSum(red), ByteOfSum(alpha));
  }
};

/// One sample: where its taps are and what they weigh.
struct Taps {
  const TapWindow& window;
  int x;  ///< column and row of the first tap
  int y;
  float wx[kMaxTaps];
  float wy[kMaxTaps];
};

/// The taps read straight from the buffer; all of them are inside.
template <typename Codec>
WeightedSum SumInside(const ImageView& source, const Taps& taps, Codec codec) {
  WeightedSum sum;
  for (int j = 0; j < taps.window.count; ++j) {
    const uint8_t* const row = source.Row(int64_t{taps.y} + j);
    for (int i = 0; i < taps.window.count; ++i) {
      sum.Add(taps.wx[i] * taps.wy[j], codec.Load(row, int64_t{taps.x} + i));
    }
  }
  return sum;
}

/// The taps as pixel access reads them, of any depth, also outside.
WeightedSum SumAnywhere(const ImageView& source, const Taps& taps) {
  return VisitAccessLayout(source.bit_count, [&](auto codec) {
    const uint32_t outside = OutsideColor(source);
    WeightedSum sum;
    for (int j = 0; j < taps.window.count; ++j) {
      const int y = WrapAdd(taps.y, j);
      const bool has_row = y >= 0 && y < source.height;
      const uint8_t* const row = has_row ? source.Row(y) : source.bits;
      for (int i = 0; i < taps.window.count; ++i) {
        const int x = WrapAdd(taps.x, i);
        const bool inside = has_row && x >= 0 && x < source.width;
        sum.Add(taps.wx[i] * taps.wy[j], inside ? codec.Load(row, x) : outside);
      }
    }
    return sum;
  });
}

uint32_t SampleKernel(const ImageView& source, float x, float y, const TapWindow& window,
                      KernelFunction kernel) {
  const int origin_x = TapOrigin(x);
  const int origin_y = TapOrigin(y);
  if (window.Misses(origin_x, source.width) || window.Misses(origin_y, source.height)) {
    return OutsideColor(source);
  }
  Taps taps{window, WrapAdd(origin_x, window.first), WrapAdd(origin_y, window.first), {}, {}};
  TapWeights(window, kernel, x, origin_x, taps.wx);
  TapWeights(window, kernel, y, origin_y, taps.wy);
  if (source.bit_count >= 24 && window.Inside(origin_x, source.width) &&
      window.Inside(origin_y, source.height)) {
    const WeightedSum sum =
        source.bit_count == 32 ? SumInside(source, taps, Bgra{}) : SumInside(source, taps, Bgr{});
    return sum.Color();
  }
  WeightedSum sum = SumAnywhere(source, taps);
  // Deliberate: near the border and on palette images, 4 by 4 samples have alpha 0, also where all
  // taps carry one; 12 by 12 samples sum it everywhere.
  if (window.count == kTaps4.count) sum.alpha = 0.0f;
  return sum.Color();
}

}  // namespace

uint32_t GetPixelColorInterpolated(const uint8_t* bits, float x, float y, int width, int height,
                                   int stride, int method, int bpp) {
  ImageView source;
  source.width = width;
  source.height = height;
  source.bit_count = bpp;
  source.bits = const_cast<uint8_t*>(bits);
  source.stride = stride;
  if (!source.HasPixels()) return OutsideColor(source);
  const InterpolationMethod& how = MethodOf(method);
  switch (how.sampling) {
    case Sampling::kNearest:
      return GetPixelColor(bits, NearestTap(x), NearestTap(y), width, height, stride, bpp);
    case Sampling::kBilinear:
      // Deliberate: no fractions reach the blend, so this is the pixel at the truncated position.
      return GetBilinearColor(bits, TruncateToInt(x), TruncateToInt(y), width, height, stride, bpp);
    case Sampling::kKernel4:
      return SampleKernel(source, x, y, kTaps4, how.kernel);
    case Sampling::kKernel12:
      break;
  }
  return SampleKernel(source, x, y, kTaps12, how.kernel);
}

}  // namespace qel
