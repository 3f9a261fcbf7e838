#ifndef QEL_IMAGE_INTERPOLATED_SAMPLING_H_
#define QEL_IMAGE_INTERPOLATED_SAMPLING_H_

#include "image/image_view.h"
#include "image/kernel_functions.h"
#include "image/numeric.h"

namespace qel {

/// The packed color at the real-valued position (x, y) of a raw pixel buffer, by interpolation
/// `method` 0 to 15. Pixel (i, j) sits at the whole-numbered position (i, j). Far outside it is the
/// outside color, and so are the taps that fall outside near the border.
/// An empty geometry gives 0, a null buffer black with the outside marker. Threads: any.
uint32_t GetPixelColorInterpolated(const uint8_t* bits, float x, float y, int width, int height,
                                   int stride, int method, int bpp);

// What callers that sample whole rows need to know about one axis.

/// The whole-numbered position that the taps of `position` are counted from.
// Deliberate: negative positions lose one after truncation, also whole-numbered ones.
inline int TapOrigin(float position) {
  return position < 0.0f ? WrapSubtract(TruncateToInt(position), 1) : TruncateToInt(position);
}

/// The nearest pixel of `position`.
inline int NearestTap(float position) { return TruncateToInt(position + 0.5f); }

/// Where the taps of one axis lie and which positions have any.
struct TapWindow {
  int count;      ///< taps along one axis
  int first;      ///< the first tap is at the origin plus this
  int far_below;  ///< origins below this are outside
  int far_above;  ///< and so are origins above the size plus this

  bool Misses(int origin, int size) const {
    return origin < far_below || int64_t{origin} > int64_t{size} + far_above;
  }
  /// True when every tap lies within 0 to `size` - 1.
  bool Inside(int origin, int size) const {
    return int64_t{origin} + first >= 0 && int64_t{origin} + first + count <= size;
  }
};
inline constexpr int kMaxTaps = 12;

/// Taps of 4 by 4 kernels.
inline constexpr TapWindow kTaps4 = {4, -1, -2, 0};
/// Taps of the 12 by 12 kernel.
// Deliberate: positions up to four past the end are still sampled; below 0 it is six.
inline constexpr TapWindow kTaps12 = {12, -5, -6, 4};

/// The weights of the taps of `position`, whose origin is `origin`.
inline void TapWeights(const TapWindow& taps, KernelFunction kernel, float position, int origin,
                       float* weights) {
  for (int i = 0; i < taps.count; ++i) {
    weights[i] = kernel(static_cast<float>(WrapAdd(origin, taps.first + i)) - position);
  }
}

/// A sum of weighted channels as a byte: clamped, then truncated.
inline uint8_t ByteOfSum(float sum) {
  return sum > 255.0f ? uint8_t{255}
         : sum > 0.0f ? static_cast<uint8_t>(TruncateToInt(sum))
                      : uint8_t{0};
}

}  // namespace qel

#endif  // QEL_IMAGE_INTERPOLATED_SAMPLING_H_
