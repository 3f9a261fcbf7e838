#include "color/color_transform.h"
#include "color/index_remap.h"
#include "color/pixel_kernels.h"
#include "image/numeric.h"

namespace qel {
namespace {

/// A colour of given hue and saturation at any lightness, in single precision.
class TintedLightness {
 public:
  TintedLightness(uint8_t hue, uint8_t saturation)
      : hue_degrees_(static_cast<float>(hue) * 360.0f / 255.0f),
        saturation_(static_cast<float>(saturation) / 255.0f) {}

  /// Writes the colour of `lightness` (0 to 255) as blue, green, red. Only low bytes are kept.
  void Write(int lightness, uint8_t (&color)[3]) const {
    const float l = static_cast<float>(lightness) / 255.0f;
    if (saturation_ == 0.0f) {
      color[0] = color[1] = color[2] = ToByte(l * 255.0f);
      return;
    }
    const float upper = l <= 0.5f ? (saturation_ + 1.0f) * l : (saturation_ + l) - saturation_ * l;
    const float lower = (l + l) - upper;
    color[0] = Channel(lower, upper, IntoCircle(hue_degrees_ - 120.0f));
    color[1] = Channel(lower, upper, hue_degrees_ > 360.0f ? hue_degrees_ - 360.0f : hue_degrees_);
    color[2] = Channel(lower, upper, IntoCircle(hue_degrees_ + 120.0f));
  }

 private:
  static uint8_t ToByte(float value) { return static_cast<uint8_t>(TruncateToInt(value)); }

  // Deliberate: exactly 360 degrees (red at hue 170) is left alone, and so gives the lower end
  // instead of the value at 0 degrees.
  static float IntoCircle(float degrees) {
    return degrees > 360.0f ? degrees - 360.0f : degrees < 0.0f ? degrees + 360.0f : degrees;
  }

  /// A ramp up to 60 degrees, the upper end up to 180, a ramp down to 240, then the lower end.
  static uint8_t Channel(float lower, float upper, float degrees) {
    float value = lower;
    if (degrees < 60.0f) {
      value = lower + (upper - lower) * degrees / 60.0f;
    } else if (degrees < 180.0f) {
      value = upper;
    } else if (degrees < 240.0f) {
      value = lower + (upper - lower) * (240.0f - degrees) / 60.0f;
    }
    return ToByte(255.0f * value);
  }

  float hue_degrees_;
  float saturation_;
};

/// Share of the new colour in 256ths.
// Deliberate: only above 0.999 does the new colour replace the old one; 0.999 itself still mixes,
// with 255 parts of 256.
int BlendWeight(float blend) {
  if (blend > 0.999f) return 256;
  return blend > 0.0f ? TruncateToInt(blend * 256.0f) : 0;
}

/// The new colour depends on a pixel through its lightness only, of which there are 256.
Tint MakeTint(uint8_t hue, uint8_t saturation, int weight) {
  Tint tint;
  tint.weight = weight;
  const TintedLightness tinted(hue, saturation);
  for (int lightness = 0; lightness < 256; ++lightness) {
    uint8_t color[3];
    tinted.Write(lightness, color);
    for (int c = 0; c < 3; ++c) tint.color[c][lightness] = color[c];
  }
  return tint;
}

void TintDirect(const ImageView& view, const Tint& tint) {
  const PixelKernels& kernels = ActivePixelKernels();
  const auto row_function = DirectPixelBytes(view.bit_count) == 4 ? kernels.tint4 : kernels.tint3;
  for (int64_t y = 0; y < view.Rows(); ++y) {
    row_function(view.Row(y), static_cast<size_t>(view.Columns()), tint);
  }
}

/// Each index becomes the grey nearest to its tinted colour.
void TintIndices(const ImageView& view, const Tint& tint) {
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) {
    const auto grey = static_cast<uint8_t>(i);
    table[i] = NearestGrey(TintedChannel(tint, 0, grey, grey), TintedChannel(tint, 1, grey, grey),
                           TintedChannel(tint, 2, grey, grey));
  }
  RemapIndices(view, table);
}

}  // namespace

result_t CQELColorTransform::Colorize(IQEL* image, uint8_t hue, uint8_t saturation, float blend) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadSizeBitsAndFormat(*image);
  const int weight = BlendWeight(blend);
  if (!view.HasPixels() || weight == 0) return kOk;
  const Tint tint = MakeTint(hue, saturation, weight);
  if (view.bit_count >= 24) {
    TintDirect(view, tint);
  } else {
    TintIndices(view, tint);
  }
  return kOk;
}

}  // namespace qel
