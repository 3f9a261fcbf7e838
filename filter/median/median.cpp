#include "filter/median/median.h"

#include <cstring>

#include "filter/filter_image.h"
#include "filter/filter_transform.h"
#include "filter/median/median_kernels.h"
#include "filter/neighbourhood.h"

namespace qel {

// The sort by brightness keeps the order of visiting among equals. What it brings to the middle is
// found without sorting. Levels are their own keys; for colors the pixel itself must be found,
// since colors of equal brightness differ.

void WriteKeys(uint8_t* keys, const uint8_t* pixels, int pixel_bytes, int64_t count) {
  const MedianKernels& kernels = ActiveMedianKernels();
  const auto bytes = static_cast<size_t>(count);
  if (pixel_bytes == 4) {
    kernels.keys4(keys, pixels, bytes);
  } else if (pixel_bytes == 3) {
    kernels.keys3(keys, pixels, bytes);
  } else {
    std::memcpy(keys, pixels, bytes);
  }
}

bool RunMedian(const MedianPlan& plan, const ImageView& source, const ImageView& dest) {
  switch (plan.method) {
    case MedianMethod::kTiles:
      return MedianByTiles(source, dest, plan.size);
    case MedianMethod::kNetwork:
    case MedianMethod::kBitSelection:
      return SelectMedian(plan, source, dest);
    case MedianMethod::kColumnHistograms:
    case MedianMethod::kWideColumnHistograms:
      return MedianByColumnHistograms(plan, source, dest);
    case MedianMethod::kSlidingHistogram:
      return MedianBySlidingHistogram(source, dest, plan.size);
  }
  return false;
}

result_t CQELFilterTransform::Median(IQEL* image, int size, IQEL** result) {
  return FilterWindows(image, size, PackColor(0, 0, 0, 0), result,
                       [=](const ImageView& source, const ImageView& dest) {
                         return RunMedian(PlanMedian(size, source.bit_count), source, dest);
                       });
}

}  // namespace qel
