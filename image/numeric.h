#ifndef QEL_IMAGE_NUMERIC_H_
#define QEL_IMAGE_NUMERIC_H_

#include <cstdint>

// Small arithmetic shared by operations and kernels. Everything here has internal linkage: kernel
// sources are compiled once per processor level, and a shared inline function could be taken from
// the wrong one.

namespace qel {

/// Truncates toward zero. NaN and values outside the 32-bit range give the lowest integer, as the
/// processor's own conversion does.
static inline constexpr int32_t TruncateToInt(float value) {
  return value >= -2147483648.0f && value < 2147483648.0f ? static_cast<int32_t>(value) : INT32_MIN;
}
static inline constexpr int32_t TruncateToInt(double value) {
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : INT32_MIN;
}

/// Above 255 becomes 255, below 0 becomes 0.
static inline constexpr uint8_t ClampToByte(int32_t value) {
  return static_cast<uint8_t>(value > 255 ? 255 : value < 0 ? 0 : value);
}

/// Sum, difference and product modulo 2^32, for amounts that nothing bounds.
static inline constexpr int32_t WrapAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
static inline constexpr int32_t WrapSubtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
static inline constexpr int32_t WrapMultiply(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
/// Truncating quotient; the lowest integer divided by -1 wraps. `divisor` is not 0.
static inline constexpr int32_t WrapDivide(int32_t value, int32_t divisor) {
  return divisor == -1 ? WrapSubtract(0, value) : value / divisor;
}

}  // namespace qel

#endif  // QEL_IMAGE_NUMERIC_H_
