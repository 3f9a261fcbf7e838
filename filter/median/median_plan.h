#ifndef QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_
#define QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_

#include <cstdint>

#include "image/image_view.h"
#include "image/plan.h"

namespace qel {

/// How the pixel of middle brightness is found in each window, in the order of preference.
enum class MedianMethod { kNetwork, kBitSelection, kColumnHistograms, kSlidingHistogram };

inline constexpr MethodText kMedianMethods[] = {
    {"network",
     "sizes 3 and 5, and 7 below 24 bits, by a merge-exchange network (Batcher 1968) without what "
     "the middle does not depend on, over columns that are sorted once for all their windows"},
    {"bit-selection",
     "up to 15 at 24 and 32 bits and up to 13 below, the middle brightness bit by bit: the high "
     "bits from counts of columns, for each of the others one comparison a pixel of the window"},
    {"column-histograms",
     "up to 255, histograms of columns on two levels that slide down, and their sum that slides "
     "along (Perreault and Hebert 2007): 32 counts a pixel, whatever the size"},
    {"sliding-histogram",
     "beyond, one histogram that slides along (Huang 1979): two columns a pixel, so linear in the "
     "size"},
};

struct MedianPlan {
  MedianMethod method;
  int size;  ///< pixels of a window's side, at least 1
  /// For `kBitSelection`: so many high bits are found by counting columns rather than pixels.
  unsigned counted_bits;
};

/// True when `method` finds the middle of windows of `size` in images of `bit_count` bits.
constexpr bool CanFindMedian(MedianMethod method, int size, int bit_count) {
  switch (method) {
    case MedianMethod::kNetwork:
      return size == 3 || size == 5 || (size == 7 && bit_count < 24);
    case MedianMethod::kBitSelection:
      return size <= 15;  // counts of a window fit a byte
    case MedianMethod::kColumnHistograms:
      return size <= 255;  // counts of a window fit 16 bits
    case MedianMethod::kSlidingHistogram:
      return true;
  }
  return false;
}

/// The plan that takes `method`, which must be able to.
constexpr MedianPlan PlanMedian(MedianMethod method, int size) {
  return {method, size, size < 5 ? 0u : size < 9 ? 3u : 4u};
}

/// The plan for windows of `size`, at least 1, of an image of `bit_count` bits.
constexpr MedianPlan PlanMedian(int size, int bit_count) {
  // Below 24 bits pixels are their own brightness: there is none to find again, and counting pays
  // earlier.
  const int most_selected = bit_count >= 24 ? 15 : 13;
  const MedianMethod method = CanFindMedian(MedianMethod::kNetwork, size, bit_count)
                                  ? MedianMethod::kNetwork
                              : size <= most_selected ? MedianMethod::kBitSelection
                              : CanFindMedian(MedianMethod::kColumnHistograms, size, bit_count)
                                  ? MedianMethod::kColumnHistograms
                                  : MedianMethod::kSlidingHistogram;
  return PlanMedian(method, size);
}

/// Writes the medians of `source` to `dest`, which has its shape and pixels to store. False when
/// there is no memory for histograms, which alone take any beside the stack.
bool RunMedian(const MedianPlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_
