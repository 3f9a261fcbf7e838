#ifndef QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_
#define QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_

#include <cstdint>
#include <optional>

#include "filter/median/tile_kernels.h"
#include "image/image_view.h"
#include "image/plan.h"

namespace qel {

/// How the pixel of middle brightness is found in each window, in the order of preference.
enum class MedianMethod {
  kTiles,
  kNetwork,
  kBitSelection,
  kColumnHistograms,
  kWideColumnHistograms,
  kSlidingHistogram
};

inline constexpr MethodText kMedianMethods[] = {
    {"tiles",
     "odd sizes from 5 to 15, windows of tiles that are halved until they are one, sorted keys "
     "that all windows of a part share being merged by networks (Adams 2021): 30 comparators a "
     "pixel at size 5, 100 at size 9, 260 at size 15"},
    {"network",
     "size 3, by a merge-exchange network (Batcher 1968) without what the middle does not depend "
     "on, over columns that are sorted once for all their windows"},
    {"bit-selection",
     "other sizes up to 15 at 24 and 32 bits and up to 8 below, the middle brightness bit by bit: "
     "the high bits from counts of columns, for each of the others one comparison a pixel of the "
     "window"},
    {"column-histograms",
     "up to 255, histograms of columns on two levels that slide down, and their sum that slides "
     "along (Perreault and Hebert 2007): 32 counts a pixel, whatever the size"},
    {"wide-column-histograms", "up to 4095, the same with counts of twice the bits"},
    {"sliding-histogram",
     "beyond, one histogram that slides along (Huang 1979): two columns a pixel, so linear in the "
     "size"},
};

/// What a median takes, made from its size and the image's depth.
struct MedianPlan {
  MedianMethod method;
  int size;  ///< pixels of a window's side, at least 1
  /// For `kBitSelection`: so many high bits are found by counting columns rather than pixels.
  unsigned counted_bits;
};

/// The plan with `method` for windows of `size`, at least 1; nothing when that cannot find their
/// middle.
constexpr std::optional<MedianPlan> PlanMedianBy(MedianMethod method, int size) {
  bool can = false;
  switch (method) {
    case MedianMethod::kTiles:
      can = IsTiled(static_cast<size_t>(size));
      break;
    case MedianMethod::kNetwork:
      can = size == 3;
      break;
    case MedianMethod::kBitSelection:
      can = size <= 15;  // counts of a window fit a byte
      break;
    case MedianMethod::kColumnHistograms:
      can = size <= 255;  // counts of a window fit 16 bits
      break;
    case MedianMethod::kWideColumnHistograms:
      can = size <= 4095;  // beyond, counts of columns take more memory than most pictures
      break;
    case MedianMethod::kSlidingHistogram:
      can = true;
      break;
  }
  if (!can) return std::nullopt;
  return MedianPlan{method, size, size < 5 ? 0u : size < 9 ? 3u : 4u};
}

/// The plan with the first method that can and pays, for an image of `bit_count` bits.
constexpr MedianPlan PlanMedian(int size, int bit_count) {
  // Below 24 bits pixels are their own brightness: there is none to find again, and counting pays
  // earlier.
  const int most_selected = bit_count >= 24 ? 15 : 8;
  for (size_t i = 0; i < std::size(kMedianMethods); ++i) {
    const auto method = static_cast<MedianMethod>(i);
    const bool pays = method != MedianMethod::kBitSelection || size <= most_selected;
    const auto plan = PlanMedianBy(method, size);
    if (pays && plan) return *plan;
  }
  return {MedianMethod::kSlidingHistogram, size, 0};
}

/// Writes the medians of `source` to `dest`, which has its shape and pixels to store. False when
/// there is no memory for tiles or histograms; the other methods take none beside the stack.
bool RunMedian(const MedianPlan& plan, const ImageView& source, const ImageView& dest);

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_MEDIAN_PLAN_H_
