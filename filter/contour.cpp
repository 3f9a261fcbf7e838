#include "filter/filter_image.h"
#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "filter/neighbourhood.h"

namespace qel {
namespace {

void Trace(const ImageView& source, const ImageView& dest) {
  const SourceRows rows(source);
  DestRows out(dest);
  ScratchBlock<44 * 1024> scratch;
  const auto step = static_cast<size_t>(rows.pixel_bytes());
  ForEachRowOfWindows<3>(rows, out, Window::Square(3), 0, scratch,
                         [&](uint8_t* to, const uint8_t* const* about, size_t bytes) {
                           ActiveFilterKernels().contour(to, about, bytes, step);
                         });
}

}  // namespace

result_t CQELFilterTransform::Contour(IQEL* image, IQEL** result) {
  return FilterImage(image, result, [](const ImageView& source, const ImageView& dest) {
    if (StoresPixels(dest)) Trace(source, dest);
    return true;
  });
}

}  // namespace qel
