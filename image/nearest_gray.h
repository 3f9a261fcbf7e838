#ifndef QEL_IMAGE_NEAREST_GRAY_H_
#define QEL_IMAGE_NEAREST_GRAY_H_

#include <cstdint>

namespace qel {

/// Index of the entry of the gray ramp with the smallest squared distance to a color; of two
/// equally near ones the lower. The distance is least at the mean of the channels, and the mean of
/// three integers is never half-way between two, so rounding the mean finds the entry.
constexpr uint8_t NearestGray(uint32_t blue, uint32_t green, uint32_t red) {
  return static_cast<uint8_t>((blue + green + red + 1) / 3);
}

}  // namespace qel

#endif  // QEL_IMAGE_NEAREST_GRAY_H_
