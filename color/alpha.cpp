#include "color/color_rows.h"
#include "color/color_transform.h"
#include "color/pixel_kernels.h"

namespace qel {
namespace {

/// Reads the image that an operation is to give alpha. False when it has none to be given: a null
/// image, or one of 24 bits or less.
[[nodiscard]] bool ReadAlphaView(IQEL* image, ImageView& view) {
  if (image == nullptr) return false;
  view = ReadView(*image);
  // Bit counts compare as unsigned.
  return static_cast<uint32_t>(view.bit_count) > 24;
}

/// The alpha byte to store.
// Deliberate: 0 becomes 1, so that alpha 0 marks the pixels of the key color and no others. Only
// the whole number 0 does: 256 stores 0.
uint8_t AlphaToStore(int alpha) { return static_cast<uint8_t>(alpha == 0 ? 1 : alpha); }

/// The color of a pixel from a key, which has red in its low byte and an ignored top byte.
uint32_t ColorOfKey(uint32_t key) {
  return (key & 0xFF) << 16 | (key & 0xFF00) | (key >> 16 & 0xFF);
}

/// Of every image that has alpha, whatever its bit count.
constexpr int64_t kPixelBytes = 4;

// Deliberate: at bit counts from 25 to 31 and above 32, constant alpha is written to every fourth
// byte of 4 * width bytes from the start of each row, past its end at 25 to 31 bits, whereas the
// operations with a key take such pixels as three bytes without alpha and change nothing.
bool HasKeyedAlpha(const ImageView& view) { return view.bit_count == 32; }

}  // namespace

result_t CQELColorTransform::SetImageAlpha(IQEL* image, int alpha, int /*reserved*/) {
  ImageView view;
  if (!ReadAlphaView(image, view)) return kFail;
  ForEachRow(view, kPixelBytes, [&](uint8_t* row, size_t pixels) {
    ActivePixelKernels().set_alpha(row, pixels, AlphaToStore(alpha));
  });
  return kOk;
}

result_t CQELColorTransform::SetImageAlphaTransparency(IQEL* image, int alpha, uint32_t key) {
  ImageView view;
  if (!ReadAlphaView(image, view)) return kFail;
  if (!HasKeyedAlpha(view)) return kOk;
  ForEachRow(view, kPixelBytes, [&](uint8_t* row, size_t pixels) {
    ActivePixelKernels().set_alpha_but_key(row, pixels, AlphaToStore(alpha), ColorOfKey(key));
  });
  return kOk;
}

result_t CQELColorTransform::SetImageTransparentPixel(IQEL* image, uint32_t key) {
  ImageView view;
  if (!ReadAlphaView(image, view)) return kFail;
  if (!HasKeyedAlpha(view)) return kOk;
  ForEachRow(view, kPixelBytes, [&](uint8_t* row, size_t pixels) {
    ActivePixelKernels().clear_key(row, pixels, ColorOfKey(key));
  });
  return kOk;
}

}  // namespace qel
