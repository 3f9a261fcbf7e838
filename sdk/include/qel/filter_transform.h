#ifndef QEL_FILTER_TRANSFORM_H_
#define QEL_FILTER_TRANSFORM_H_

#include "qel/image.h"

namespace qel {

/// Neighbourhood filters. Each computes a new image of the source's size and format.
///
/// A neighbourhood of `size` covers the columns x - size / 2 to x - size / 2 + size - 1 and the
/// rows likewise. The top-left pixel, with alpha 1, stands in for everything outside the image.
/// Unless said otherwise the alpha written is that of the bottom-right neighbour. A `size` of 0 or
/// less has no neighbours: each operation says what colour it writes then, with alpha 0. `size` may
/// exceed the image. Images of no width or height give one without pixels.
///
/// Ownership: with a non-null `result`, `*result` holds one reference to the new image for the
/// caller and `image` is not changed; with a null `result` the new content is assigned to `image`.
/// Result: kOk, also when an image to be assigned to does not answer `IQELImage` and keeps its
/// content; kFail for a null image, and without a new image or memory, which only `Median` from
/// size 5 may need. After a failure `*result` is untouched. Threads: any, on images that no other
/// thread is writing; `Jitter` and `Noise` share `rand` of the process.
class IQELFilterTransform : public IUnknown {
 public:
  // The order of these functions is the binary interface.

  /// Minimum of each channel; white for a `size` of 0 or less.
  virtual result_t Erode(IQEL* image, int size, IQEL** result) = 0;

  /// Maximum minus minimum of each channel; white for a `size` of 0 or less.
  virtual result_t Edge(IQEL* image, int size, IQEL** result) = 0;

  /// Maximum of each channel; black for a `size` of 0 or less.
  virtual result_t Dilate(IQEL* image, int size, IQEL** result) = 0;

  /// Weighted sum of each channel: sum / divisor (truncated; 0 means no division) + offset, clamped
  /// to 0 to 255. `kernel` has size * size weights, row by row, and is read during the call only.
  /// Sums are 32-bit integers and wrap. For a `size` of 0 or less every sum is 0, so that `offset`
  /// remains. Result: kFail also for a null kernel with a positive `size`; with none, the kernel
  /// may be null.
  virtual result_t Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                          IQEL** result) = 0;

  /// Inverted 3 x 3 contour: 255 minus the last neighbour that exceeds the centre by more than the
  /// neighbour kept before. Alpha is the centre's.
  virtual result_t Contour(IQEL* image, IQEL** result) = 0;

  /// Replaces each pixel by one at most `amount` columns and rows away, drawn with `rand` (two
  /// numbers a pixel). 0 copies; a negative amount mirrors the offsets.
  virtual result_t Jitter(IQEL* image, int amount, IQEL** result) = 0;

  /// Adds to each channel an offset of at most half of `amount` either way, drawn with `rand`
  /// (three numbers a pixel, red first). 0 copies; a negative amount mirrors the offsets.
  virtual result_t Noise(IQEL* image, int amount, IQEL** result) = 0;

  /// The neighbour (alpha included) whose brightness is the middle one; no colours are mixed. Black
  /// for a `size` of 0 or less. Result: kFail also when there is no memory, which sizes from 5 on
  /// may need.
  virtual result_t Median(IQEL* image, int size, IQEL** result) = 0;

  /// Relief from the bottom-left: `Filter` with the kernel 0 0 -1; 0 0 0; 1 0 0 and offset 127.
  virtual result_t Emboss(IQEL* image, IQEL** result) = 0;

  /// Mean over 3 x 3: `Filter` with weights of 1, divisor 9.
  virtual result_t Blur(IQEL* image, IQEL** result) = 0;

  /// `Filter` with weights of 1 and 8 in the centre of 3 x 3, divisor 16.
  virtual result_t Soften(IQEL* image, IQEL** result) = 0;

  /// `Filter` with weights of -1 and 15 in the centre of 3 x 3, divisor 7.
  virtual result_t Sharpen(IQEL* image, IQEL** result) = 0;

  /// Gaussian blur by `Filter`: level 0 with 1 2 1; 2 4 2; 1 2 1 and divisor 16, levels 1 to 3 with
  /// 5 x 5 weights and divisors 52, 273 and 159. Result: kFail also for other levels.
  virtual result_t GaussianBlur(IQEL* image, int level, IQEL** result) = 0;

 protected:
  ~IQELFilterTransform() = default;
};
inline constexpr IID IID_IQELFilterTransform = __IIDOfc("IQELFilterTransform");
template <>
inline constexpr const IID* kIidOf<IQELFilterTransform> = &IID_IQELFilterTransform;

}  // namespace qel

#endif  // QEL_FILTER_TRANSFORM_H_
