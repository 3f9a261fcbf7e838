#ifndef QEL_FILTER_MEDIAN_MEDIAN_H_
#define QEL_FILTER_MEDIAN_MEDIAN_H_

#include <cstdint>

#include "filter/median/median_plan.h"
#include "image/brightness.h"

namespace qel {

/// Orders two records of four bytes blue, green, red, alpha: the brightness of `a` minus that of
/// `b`. Alpha does not count. Suits `qsort`.
inline int32_t CompareColors(const void* a, const void* b) {
  const auto* const left = static_cast<const uint8_t*>(a);
  const auto* const right = static_cast<const uint8_t*>(b);
  return Brightness(left[0], left[1], left[2]) - Brightness(right[0], right[1], right[2]);
}

/// Writes the keys of `count` pixels of 1, 3 or 4 bytes: their brightness. Levels are their keys.
void WriteKeys(uint8_t* keys, const uint8_t* pixels, int pixel_bytes, int64_t count);

// The methods; each does what `RunMedian` does.

/// `kNetwork` and `kBitSelection`.
bool SelectMedian(const MedianPlan& plan, const ImageView& source, const ImageView& dest);
bool MedianByTiles(const ImageView& source, const ImageView& dest, int size);
/// `kColumnHistograms` and `kWideColumnHistograms`.
bool MedianByColumnHistograms(const MedianPlan& plan, const ImageView& source,
                              const ImageView& dest);
bool MedianBySlidingHistogram(const ImageView& source, const ImageView& dest, int size);

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_MEDIAN_H_
