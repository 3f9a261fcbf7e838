#ifndef QEL_PICTURES_SAMPLE_MATH_H_
#define QEL_PICTURES_SAMPLE_MATH_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace qel::pictures {

/// `value` of 0 to `largest` as 0 to 255, rounded.
inline uint8_t ScaleToByte(uint32_t value, uint32_t largest) {
  return static_cast<uint8_t>((uint64_t{value} * 255 + largest / 2) / largest);
}

/// The same for 16 bits, without the division.
inline uint8_t ReduceToByte(unsigned value) {
  return static_cast<uint8_t>((value * 255u + 32895u) >> 16);
}

/// A colour that was multiplied by its alpha, as straight colour.
inline uint8_t DivideByAlpha(unsigned value, unsigned alpha) {
  if (alpha == 0) return 0;
  return static_cast<uint8_t>(std::min(255u, (value * 255 + alpha / 2) / alpha));
}

/// Cyan, magenta, yellow and black ink as blue, green and red light.
inline void InkToLight(const uint8_t* inks, uint8_t* pixel) {
  const unsigned paper = 255u - inks[3];
  for (ptrdiff_t c = 0; c < 3; ++c) {
    pixel[2 - c] = static_cast<uint8_t>(((255u - inks[c]) * paper + 127) / 255);
  }
}

}  // namespace qel::pictures

#endif  // QEL_PICTURES_SAMPLE_MATH_H_
