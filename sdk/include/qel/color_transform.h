#ifndef QEL_COLOR_TRANSFORM_H_
#define QEL_COLOR_TRANSFORM_H_

#include "qel/image.h"

namespace qel {

/// Per-pixel tone, colour and alpha operations. All change `image` in place, at 1, 4, 8, 24 and 32
/// bits unless said otherwise; alpha stays as it is except where an operation is about alpha.
/// Indices of 1, 4 and 8 bits stand for the grey of the same value. Images of no width or height
/// are left as they are. Result: kOk, also at depths whose pixels an operation does not change;
/// kFail for a null image. Ownership: no reference is kept. Threads: any, on images that no other
/// thread is using.
class IQELColorTransform : public IUnknown {
 public:
  // The order of these functions is the binary interface.

  /// Gives every pixel `hue` (0 to 255 for 0 to 360 degrees) and `saturation` (0 to 255), keeps its
  /// lightness, and mixes the new colour with the old one by `blend` (0 and less keeps, 1 and more
  /// replaces).
  virtual result_t Colorize(IQEL* image, uint8_t hue, uint8_t saturation, float blend) = 0;

  /// Replaces every colour byte v by `table[v]` at 8, 24 and 32 bits. `table` has 256 entries and
  /// is read during the call only. Result: kFail also for a null table, whatever the image.
  virtual result_t Lut(IQEL* image, uint8_t* table) = 0;

  /// Replaces every colour byte v by 255 - v at 8, 24 and 32 bits.
  virtual result_t Negative(IQEL* image) = 0;

  /// Replaces colours by the mean of their channels at 24 and 32 bits, and mixes neighbouring bytes
  /// at 8 bits. The result is made in a new image and handed over through `IQELImage::Assign`; at
  /// other depths the pixels become what the host's `Create` left.
  /// Result: kFail also when the host makes no image.
  virtual result_t GrayScale(IQEL* image) = 0;

  /// Adds an offset, of any sign and size, to each channel, clamped to 0 to 255.
  virtual result_t ShiftRGB(IQEL* image, int red, int green, int blue) = 0;

  /// Applies 255 * (v / 255) ^ (1 / gamma) to every colour byte, as a table through `Lut`.
  virtual result_t Gamma(IQEL* image, float gamma) = 0;

  /// Replaces every colour byte v by (v - 128) * (100 + contrast) / 100 + 128 + brightness,
  /// truncated and clamped to 0 to 255, as a table through `Lut`.
  virtual result_t Light(IQEL* image, int brightness, int contrast) = 0;

  /// Writes `alpha` (its low byte; 0 is stored as 1) to every pixel of an image above 24 bits.
  /// `reserved` is ignored. Result: kFail also at 24 bits and less.
  virtual result_t SetImageAlpha(IQEL* image, int alpha, int reserved) = 0;

  /// Writes alpha 0 to the pixels whose colour is `key` (red in the low byte, then green, blue) and
  /// `alpha` (0 stored as 1) to all others. Result: kFail also at 24 bits and less.
  virtual result_t SetImageAlphaTransparency(IQEL* image, int alpha, uint32_t key) = 0;

  /// Writes alpha 0 to the pixels whose colour is `key` (red in the low byte, then green, blue).
  /// Result: kFail also at 24 bits and less.
  virtual result_t SetImageTransparentPixel(IQEL* image, uint32_t key) = 0;

  /// Turns the image grey by `GrayScale`, then every pixel above `level` white and the rest black.
  /// Result: kOk also when the host makes no image: pixels whose mean is above `level` become
  /// white.
  virtual result_t Threshold(IQEL* image, int level) = 0;

 protected:
  ~IQELColorTransform() = default;
};
inline constexpr IID IID_IQELColorTransform = __IIDOfc("IQELColorTransform");
template <>
inline constexpr const IID* kIidOf<IQELColorTransform> = &IID_IQELColorTransform;

}  // namespace qel

#endif  // QEL_COLOR_TRANSFORM_H_
