#ifndef QEL_MATHS_H_
#define QEL_MATHS_H_

#include "qel/image.h"

namespace qel {

/// Pixel arithmetic between images. Sources are read; destinations are written in place unless an
/// operation says that it creates them anew. A mask is read as one byte per pixel from plane 0;
/// non-zero selects the pixel. Areas are the common top-left part of the images unless said
/// otherwise. Destinations, and masks, whose size is never asked for, are trusted to be large
/// enough. Common areas of no width or height leave everything as it is. Result: kFail for a null
/// image, except where an operation says otherwise. Ownership: no reference is kept. Threads: any,
/// on images that no other thread is writing.
class IQELMaths : public IUnknown {
 public:
  // The order of these functions is the binary interface.

  /// Fills the pixels that `mask` (may be null) selects with `value`: its low byte at 8 bits; its
  /// low three bytes, highest first, at 24 bits (mask ignored); the whole word at 32 bits, and at
  /// every depth above 8 bits of "MONO" images. Result: kOk, also for a null image.
  virtual result_t Equal(IQEL* image, IQEL* mask, int value) = 0;

  /// Pastes `source` into `dest` with its top-left pixel at (x, y), converting between 8, 24 and 32
  /// bits. With `mask` equal to `dest` and equal depths only zero bytes are replaced; any other
  /// mask is not looked at. Result: kOk; kFail for an offset outside `dest` (negative ones always
  /// are), for other depths, and for 16-bit sources even where they were converted. A copied height
  /// of 0 gives kOk at any depth.
  virtual result_t Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) = 0;

  /// dest = a * factor_a + b * factor_b + offset for each colour byte, in single precision, clamped
  /// to 0 to 255 and truncated. `mask` may be null.
  /// Result: kOk; kFail for mixed depths of which one is below 24 bits, and for mixed depths with
  /// a mask even though the pixels were written.
  virtual result_t AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factor_a,
                            float factor_b, float offset) = 0;

  /// dest = source * factor + offset, converting between depths; `mask` may be null and counts
  /// between 8-bit images only. Result: kOk; kFail for depths that have no conversion.
  virtual result_t Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor, float offset) = 0;

  /// dest = a - b, clamped at 0, or the absolute difference when `flags` asks for it (bit 0; at 8
  /// and 24 bits any bit). At 32 bits alpha becomes 255, or 0 with bit 1.
  /// Result: the number of channel values that differ by 2 or more at 24 and 32 bits, 0 at 8 bits;
  /// kFail for unequal formats; kInvalidArgument for a null image.
  virtual result_t Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) = 0;

  /// Makes an image of the shape of `model`; `bit_count` and `color_model` replace the model's
  /// when they are not 0. Pixels are as the host's `Create` leaves them.
  /// Result: kOk with one reference in `*dest`, also when `Create` fails and the image is empty;
  /// kInvalidArgument for a null model, `*dest` untouched; kNullOutput for a null `dest`; kFail
  /// when the host makes no image, `*dest` then null.
  virtual result_t CreateDestImage(IQEL** dest, IQEL* model, int bit_count, int color_model) = 0;

  /// Creates `dest` in the format of `a` and writes (a + b) / divisor, clamped; 0 means no
  /// division, 2 multiplies by four. `b` is trusted to be as large as `a`. Other depths than 8, 24
  /// and 32 bits are created and not written. Result: kOk; kFail for unequal formats, `dest`
  /// untouched.
  virtual result_t Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) = 0;

  /// Creates `dest` as 8-bit "MONO" from the 32-bit integers of `source`: trunc(v * factor) +
  /// offset, clamped. A source of 8 bits gives an image as the host's `Create` leaves it.
  /// Result: kOk; kNotMono for a source of another colour model, kInvalidArgument for one below 8
  /// bits, `dest` untouched in both.
  virtual result_t Scale8(IQELImage* dest, IQEL* source, int offset, double factor) = 0;

 protected:
  ~IQELMaths() = default;
};
inline constexpr IID IID_IQELMaths = __IIDOfc("IQELMaths");
template <>
inline constexpr const IID* kIidOf<IQELMaths> = &IID_IQELMaths;

}  // namespace qel

#endif  // QEL_MATHS_H_
