#ifndef QEL_FILTER_MEDIAN_H_
#define QEL_FILTER_MEDIAN_H_

#include <cstdint>

namespace qel {

/// The brightness, 0 to 255, by which the median orders colours. A grey has its own level.
constexpr int32_t Brightness(int32_t blue, int32_t green, int32_t red) {
  return (117 * blue + 601 * green + 306 * red) >> 10;
}

/// Orders two records of four bytes blue, green, red, alpha: the brightness of `a` minus that of
/// `b`. Alpha does not count. Suits `qsort`.
int32_t CompareColors(const void* a, const void* b);

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_H_
