#include <iterator>
#include <numeric>

#include "color/color_rows.h"
#include "color/color_transform.h"
#include "color/pixel_kernels.h"
#include "image/numeric.h"

namespace qel {
namespace {

// Deliberate: exactly 360 degrees (red at hue 170) is left alone, and so gives the lower end
// instead of the value at 0 degrees.
float IntoCircle(float degrees) {
  return degrees > 360.0f ? degrees - 360.0f : degrees < 0.0f ? degrees + 360.0f : degrees;
}

/// Colors of one saturation (0 to 1) at every lightness, in single precision. Only low bytes are
/// kept. Loops over lightness have no branches, so that the compiler makes vectors of them.
class TintedLightness {
 public:
  explicit TintedLightness(float saturation) {
    for (size_t i = 0; i < 256; ++i) {
      const float l = static_cast<float>(static_cast<int>(i)) / 255.0f;
      const float upper_if_dark = (saturation + 1.0f) * l;
      const float upper_if_light = (saturation + l) - saturation * l;
      upper_[i] = l <= 0.5f ? upper_if_dark : upper_if_light;
      lower_[i] = (l + l) - upper_[i];
    }
  }

  /// One channel: a ramp up to 60 degrees, the upper end up to 180, a ramp down to 240, then the
  /// lower end.
  void Write(float degrees, uint8_t (&channel)[256]) const {
    const float ramp = degrees < 60.0f ? degrees : 240.0f - degrees;
    const bool is_ramp = degrees < 60.0f || (degrees >= 180.0f && degrees < 240.0f);
    const float* const end = degrees < 180.0f ? upper_ : lower_;
    for (size_t i = 0; i < 256; ++i) {
      const float value = is_ramp ? lower_[i] + (upper_[i] - lower_[i]) * ramp / 60.0f : end[i];
      channel[i] = static_cast<uint8_t>(static_cast<int32_t>(255.0f * value));
    }
  }

 private:
  float lower_[256], upper_[256];
};

/// Share of the new color in 256ths.
// Deliberate: only above 0.999 does the new color replace the old one; 0.999 itself still mixes,
// with 255 parts of 256.
int BlendWeight(float blend) {
  if (blend > 0.999f) return 256;
  return blend > 0.0f ? TruncateToInt(blend * 256.0f) : 0;
}

/// The new color depends on a pixel through its lightness only, of which there are 256.
Tint MakeTint(uint8_t hue, uint8_t saturation, int weight) {
  Tint tint;
  tint.weight = weight;
  if (saturation == 0) {
    for (auto& channel : tint.color) std::iota(std::begin(channel), std::end(channel), uint8_t{0});
    return tint;
  }
  const float degrees = static_cast<float>(hue) * 360.0f / 255.0f;
  const TintedLightness tinted(static_cast<float>(saturation) / 255.0f);
  tinted.Write(IntoCircle(degrees - 120.0f), tint.color[0]);
  tinted.Write(degrees > 360.0f ? degrees - 360.0f : degrees, tint.color[1]);
  tinted.Write(IntoCircle(degrees + 120.0f), tint.color[2]);
  return tint;
}

/// Finds the curves of large pictures' tints.
void FindCurves(const ImageView& view, const PixelKernels& kernels, Tint& tint) {
  if (!kernels.prefers_curves || view.Columns() * view.Rows() < kBytesForLine) return;
  for (size_t c = 0; c < 3; ++c) {
    const auto curve = FindByteCurve(tint.color[c]);
    if (!curve || curve->has_start) return;
    tint.curve[c] = *curve;
  }
  tint.has_curves = true;
}

void TintDirect(const ImageView& view, Tint& tint) {
  const PixelKernels& kernels = ActivePixelKernels();
  FindCurves(view, kernels, tint);
  const int pixel_bytes = DirectPixelBytes(view.bit_count);
  ForEachRow(view, pixel_bytes, [&](uint8_t* row, size_t pixels) {
    (pixel_bytes == 4 ? kernels.tint4 : kernels.tint3)(row, pixels, tint);
  });
}

/// Each index becomes the gray nearest to its tinted color.
void TintIndices(const ImageView& view, const Tint& tint) {
  // As `TintedChannel` and `NearestGray`, in 16 bits, of which the compiler makes vectors.
  const auto weight = static_cast<uint16_t>(tint.weight);
  const auto rest = static_cast<uint16_t>(256 - tint.weight);
  uint8_t table[256];
  for (size_t i = 0; i < 256; ++i) {
    const auto old = static_cast<uint16_t>(static_cast<uint16_t>(i) * rest);
    const auto tinted = [&](size_t c) {
      return static_cast<uint16_t>(static_cast<uint16_t>(tint.color[c][i] * weight + old) >> 8);
    };
    const auto sum = static_cast<uint16_t>(tinted(0) + tinted(1) + tinted(2) + 1);
    table[i] = static_cast<uint8_t>(uint32_t{sum} * 21846 >> 16);  // a third
  }
  RemapIndices(view, table);
}

}  // namespace

result_t CQELColorTransform::Colorize(IQEL* image, uint8_t hue, uint8_t saturation, float blend) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadSizeBitsAndFormat(*image);
  const int weight = BlendWeight(blend);
  if (!view.HasPixels() || weight == 0) return kOk;
  Tint tint = MakeTint(hue, saturation, weight);
  if (view.bit_count >= 24) {
    TintDirect(view, tint);
  } else {
    TintIndices(view, tint);
  }
  return kOk;
}

}  // namespace qel
