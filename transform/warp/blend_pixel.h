#ifndef QEL_TRANSFORM_WARP_BLEND_PIXEL_H_
#define QEL_TRANSFORM_WARP_BLEND_PIXEL_H_

#include <cstddef>
#include <cstdint>

namespace qel {

// Deliberate: the weights are sums of the distances along both axes instead of their products, so a
// pixel is the mean of four blends along one axis each. Internal linkage: kernel sources use it.
/// Blends the pixel at `top` with its neighbours to the right and below, at the fractions `fx` and
/// `fy` in 65536ths.
static inline void BlendPixel(uint8_t* dest, const uint8_t* top, int64_t stride, size_t pixel_bytes,
                              uint32_t fx, uint32_t fy) {
  constexpr uint32_t kOne = 65536;
  const uint8_t* const below = top + stride;
  for (size_t c = 0; c < pixel_bytes; ++c) {
    const size_t right = c + pixel_bytes;
    const uint32_t sum = top[c] * (kOne - fx + kOne - fy) + top[right] * (fx + kOne - fy) +
                         below[c] * (kOne - fx + fy) + below[right] * (fx + fy);
    dest[c] = static_cast<uint8_t>(((sum >> 2) + kOne / 2) >> 16);
  }
}

}  // namespace qel

#endif  // QEL_TRANSFORM_WARP_BLEND_PIXEL_H_
