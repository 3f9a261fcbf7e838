#ifndef QEL_MATHS_TRUNCATION_H_
#define QEL_MATHS_TRUNCATION_H_

#include <cstdint>

#include "image/numeric.h"

namespace qel {

// Channel values computed in single precision, as they are stored. Internal linkage: kernel sources
// use them.

/// Truncates toward zero within 0 to 255; NaN gives 0.
static inline constexpr uint8_t TruncateToByte(float value) {
  return static_cast<uint8_t>(value > 0.0f ? value < 255.0f ? TruncateToInt(value) : 255 : 0);
}
/// Truncates toward zero; below 0 gives 0. NaN and what does not fit give the lowest integer.
static inline constexpr int32_t TruncateFromZero(float value) {
  return value < 0.0f ? 0 : TruncateToInt(value);
}

static inline constexpr double Magnitude(float value) {
  return value < 0.0f ? -static_cast<double>(value) : static_cast<double>(value);
}
/// The largest sum for which kernels leave clamping to the packing of integers.
inline constexpr double kLargestSum = 1 << 30;

}  // namespace qel

#endif  // QEL_MATHS_TRUNCATION_H_
