#include <cstdlib>

#include "filter/filter_image.h"
#include "filter/filter_transform.h"
#include "image/numeric.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"

namespace qel {
namespace {

/// Draws whole numbers between about -span / 2 and span / 2.
class RandomOffset {
 public:
  explicit RandomOffset(int span) : span_(span) {}

  /// Takes one result of `rand`. The order of roundings is part of the result.
  int Draw() const {
    const float share = static_cast<float>(std::rand()) * 0x1p-31f;
    return TruncateToInt((static_cast<double>(share) - 0.5) * span_);
  }

 private:
  double span_;
};

/// Calls visit(codec, x, y) for every pixel in row-major order. Depths that store nothing and
/// images without memory are walked as well: draws do not depend on them.
template <typename Visitor>
void VisitPixels(const ImageView& view, Visitor&& visit) {
  VisitAccessLayout(view.bit_count, [&](auto codec) {
    for (int y = 0; y < view.height; ++y) {
      for (int x = 0; x < view.width; ++x) visit(codec, x, y);
    }
  });
}

/// The color at (x, y), which is inside; black with the outside marker without source pixels.
template <typename Codec>
uint32_t ColorAt(Codec codec, const ImageView& source, int64_t x, int64_t y) {
  return source.bits == nullptr ? PackColor(0, 0, 0, kOutsideMarker) : codec.Load(source.Row(y), x);
}

void AddNoise(const ImageView& source, const ImageView& dest, int amount) {
  const RandomOffset offset(amount);
  VisitPixels(source, [&](auto codec, int x, int y) {
    const uint32_t color = ColorAt(codec, source, x, y);
    const uint32_t red = ClampToByte(RedOf(color) + offset.Draw());
    const uint32_t green = ClampToByte(GreenOf(color) + offset.Draw());
    const uint32_t blue = ClampToByte(BlueOf(color) + offset.Draw());
    if (dest.bits == nullptr) return;
    codec.Store(dest.Row(y), x, PackColor(blue, green, red, AlphaOf(color)));
  });
}

void Displace(const ImageView& source, const ImageView& dest, int amount) {
  // Deliberate: pixels move by up to `amount`, twice as far as `Noise` shifts channels.
  const RandomOffset offset(WrapMultiply(2, amount));
  VisitPixels(source, [&](auto codec, int x, int y) {
    int64_t sx = int64_t{x} + offset.Draw();
    int64_t sy = int64_t{y} + offset.Draw();
    if (sx < 0 || sx >= source.width || sy < 0 || sy >= source.height) {
      sx = x;
      sy = y;
    }
    if (dest.bits == nullptr) return;
    codec.Store(dest.Row(y), x, ColorAt(codec, source, sx, sy));
  });
}

}  // namespace

result_t CQELFilterTransform::Noise(IQEL* image, int amount, IQEL** result) {
  return FilterImage(image, result, [=](const ImageView& source, const ImageView& dest) {
    AddNoise(source, dest, amount);
    return true;
  });
}

result_t CQELFilterTransform::Jitter(IQEL* image, int amount, IQEL** result) {
  return FilterImage(image, result, [=](const ImageView& source, const ImageView& dest) {
    Displace(source, dest, amount);
    return true;
  });
}

}  // namespace qel
