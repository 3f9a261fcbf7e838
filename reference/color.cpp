#include <algorithm>
#include <cmath>

#include "reference/operations.h"
#include "reference/pixels.h"

namespace qel::reference {
namespace {

/// Replaces every pixel by `change` of its colour.
template <typename Change>
void ChangePixels(Raster& image, Change change) {
  if (image.Bits() == nullptr) return;
  ForEachPixel(image, [&](int x, int y) { SetPixelOf(image, x, y, change(PixelOf(image, x, y))); });
}

/// Whether the alpha operations accept the image.
bool HasRoomForAlpha(const Raster& image) { return static_cast<uint32_t>(image.bit_count) > 24; }

bool IsKey(uint32_t color, uint32_t key) {
  return Channel(color, 2) == Channel(key, 0) && Channel(color, 1) == Channel(key, 1) &&
         Channel(color, 0) == Channel(key, 2);
}

int StoredAlpha(int alpha) { return (alpha == 0 ? 1 : alpha) & 255; }

uint32_t WithAlpha(uint32_t color, int alpha) {
  return Pack(Channel(color, 0), Channel(color, 1), Channel(color, 2), alpha);
}

int HueChannel(float m1, float m2, float angle) {
  float value = m1;
  if (angle < 60.0f) {
    value = m1 + (m2 - m1) * angle / 60.0f;
  } else if (angle < 180.0f) {
    value = m2;
  } else if (angle < 240.0f) {
    value = m1 + (m2 - m1) * (240.0f - angle) / 60.0f;
  }
  return TruncateToInt(255.0f * value) & 255;
}

/// The colour of the given hue and saturation that is as light as `color`.
uint32_t Tinted(uint32_t color, uint8_t hue, uint8_t saturation) {
  const int b = Channel(color, 0);
  const int g = Channel(color, 1);
  const int r = Channel(color, 2);
  const float l = static_cast<float>((std::max({b, g, r}) + std::min({b, g, r}) + 1) >> 1) / 255.0f;
  const float s = static_cast<float>(saturation) / 255.0f;
  if (s == 0.0f) {
    const int gray = TruncateToInt(l * 255.0f);
    return Pack(gray, gray, gray, 0);
  }
  const float m2 = l <= 0.5f ? (s + 1.0f) * l : (s + l) - s * l;
  const float m1 = (l + l) - m2;
  const float h = static_cast<float>(hue) * 360.0f / 255.0f;
  const auto corrected = [](float angle) {
    if (angle > 360.0f) return angle - 360.0f;
    if (angle < 0.0f) return angle + 360.0f;
    return angle;
  };
  return Pack(HueChannel(m1, m2, corrected(h - 120.0f)),
              HueChannel(m1, m2, h > 360.0f ? h - 360.0f : h),
              HueChannel(m1, m2, corrected(h + 120.0f)), 0);
}

}  // namespace

result_t Lut(Raster& image, const uint8_t* table) {
  if (image.Bits() == nullptr) return kOk;
  if (image.bit_count != 8 && image.bit_count != 24 && image.bit_count != 32) return kOk;
  const int bytes = image.bit_count / 8;
  ForEachPixel(image, [&](int x, int y) {
    uint8_t* pixel = image.Row(y) + x * bytes;
    for (int i = 0; i < bytes && i < 3; ++i) pixel[i] = table[pixel[i]];
  });
  return kOk;
}

/// `Lut` with what `map` makes of each byte, cut off to bytes.
template <typename Map>
result_t MapBytes(Raster& image, Map map) {
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(ClampToByte(map(i)));
  return Lut(image, table);
}

result_t Light(Raster& image, int brightness, int contrast) {
  const float k = static_cast<float>(WrappedSum(contrast, 100)) / 100.0f;
  const float o = static_cast<float>(WrappedSum(brightness, 128));
  return MapBytes(image, [&](int i) { return TruncateToInt(static_cast<float>(i - 128) * k + o); });
}

result_t Gamma(Raster& image, float gamma) {
  const float exponent = 1.0f / gamma;
  const double e = exponent;
  const double s = std::pow(255.0, e) / 255.0;
  return MapBytes(image,
                  [&](int i) { return TruncateToInt(std::pow(static_cast<double>(i), e) / s); });
}

result_t Negative(Raster& image) {
  return MapBytes(image, [](int i) { return 255 - i; });
}

result_t ShiftRGB(Raster& image, int red, int green, int blue) {
  ChangePixels(image, [&](uint32_t color) {
    return Pack(ClampToByte(WrappedSum(Channel(color, 0), blue)),
                ClampToByte(WrappedSum(Channel(color, 1), green)),
                ClampToByte(WrappedSum(Channel(color, 2), red)), Channel(color, 3));
  });
  return kOk;
}

result_t GrayScale(Raster& image) {
  Raster gray;
  CreateLike(image, gray);
  const auto mix = [&](int x, int y) {
    const int bytes = image.bit_count / 8;
    const uint8_t* s = image.Row(y) + x * bytes;
    uint8_t* d = gray.Row(y) + x * bytes;
    if (image.bit_count == 8) {
      d[0] = static_cast<uint8_t>((117 * s[0] + 601 * s[1] + 306 * s[2]) >> 10);
    } else if (image.bit_count == 24 || image.bit_count == 32) {
      for (int i = 0; i < 3; ++i) d[i] = static_cast<uint8_t>((s[0] + s[1] + s[2]) / 3);
      if (image.bit_count == 32) d[3] = s[3];
    }
  };
  if (image.Bits() != nullptr && gray.Bits() != nullptr) ForEachPixel(image, mix);
  image.Assign(gray);
  return kOk;
}

result_t Threshold(Raster& image, int level) {
  const int t = WrappedProduct(level, 3);
  GrayScale(image);
  ChangePixels(image, [&](uint32_t color) {
    const int sum = Channel(color, 0) + Channel(color, 1) + Channel(color, 2);
    const int v = sum > t ? 255 : 0;
    return Pack(v, v, v, Channel(color, 3));
  });
  return kOk;
}

result_t SetImageAlpha(Raster& image, int alpha, int /*unused*/) {
  if (!HasRoomForAlpha(image)) return kFail;
  if (image.Bits() == nullptr) return kOk;
  ForEachPixel(image, [&](int x, int y) {
    image.Row(y)[4 * x + 3] = static_cast<uint8_t>(StoredAlpha(alpha));
  });
  return kOk;
}

result_t SetImageTransparentPixel(Raster& image, uint32_t key) {
  if (!HasRoomForAlpha(image)) return kFail;
  ChangePixels(image,
               [&](uint32_t color) { return IsKey(color, key) ? WithAlpha(color, 0) : color; });
  return kOk;
}

result_t SetImageAlphaTransparency(Raster& image, int alpha, uint32_t key) {
  if (!HasRoomForAlpha(image)) return kFail;
  ChangePixels(image, [&](uint32_t color) {
    return WithAlpha(color, IsKey(color, key) ? 0 : StoredAlpha(alpha));
  });
  return kOk;
}

result_t Colorize(Raster& image, uint8_t hue, uint8_t saturation, float blend) {
  if (blend < 0.0f) {
    blend = 0.0f;
  } else if (blend > 1.0f) {
    blend = 1.0f;
  }
  const int w = TruncateToInt(blend * 256.0f);
  const int v = WrappedSum(256, WrappedProduct(w, -1));
  ChangePixels(image, [&](uint32_t color) {
    const uint32_t tinted = Tinted(color, hue, saturation);
    if (blend > 0.999f) return WithAlpha(tinted, Channel(color, 3));
    int mixed[3];
    for (int i = 0; i < 3; ++i) {
      mixed[i] =
          WrappedSum(WrappedProduct(Channel(tinted, i), w), WrappedProduct(Channel(color, i), v)) >>
          8;
    }
    return Pack(mixed[0], mixed[1], mixed[2], Channel(color, 3));
  });
  return kOk;
}

}  // namespace qel::reference
