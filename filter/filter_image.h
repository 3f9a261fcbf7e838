#ifndef QEL_FILTER_FILTER_IMAGE_H_
#define QEL_FILTER_FILTER_IMAGE_H_

#include "component/result_image.h"
#include "filter/pixel_rows.h"

namespace qel {

/// The course that filters have in common: has work(source, dest) write the pixels of a new image
/// of the shape of `image`, which then goes to `*result`, or back into `image` when that is null.
/// Result: kOk; kFail for a null image, when the host makes none, and when `work` returns false.
template <typename Work>
result_t FilterImage(IQEL* image, IQEL** result, const Work& work) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadSizeBitsAndFormat(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output || !work(source, output.View())) return kFail;
  return output.HandOver(image, result);
}

/// The same for windows of `size` x `size` pixels. All pixels become `empty` where that is 0 or
/// less; `work` gets images that store pixels.
template <typename Work>
result_t FilterWindows(IQEL* image, int size, uint32_t empty, IQEL** result, const Work& work) {
  return FilterImage(image, result, [&](const ImageView& source, const ImageView& dest) {
    if (size > 0) return !StoresPixels(dest) || work(source, dest);
    FillPixels(dest, empty);
    return true;
  });
}

}  // namespace qel

#endif  // QEL_FILTER_FILTER_IMAGE_H_
