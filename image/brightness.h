#ifndef QEL_IMAGE_BRIGHTNESS_H_
#define QEL_IMAGE_BRIGHTNESS_H_

#include <cstdint>

namespace qel {

// brightness = (117 blue + 601 green + 306 red) >> 10, 0 to 255: the luma of ITU-R BT.601 with
// weights of 10 bits. Internal linkage: kernel sources use it.
constexpr int32_t kBlueWeight = 117, kGreenWeight = 601, kRedWeight = 306;
constexpr int kBrightnessBits = 10;

static inline constexpr int32_t Brightness(int32_t blue, int32_t green, int32_t red) {
  return (kBlueWeight * blue + kGreenWeight * green + kRedWeight * red) >> kBrightnessBits;
}

}  // namespace qel

#endif  // QEL_IMAGE_BRIGHTNESS_H_
