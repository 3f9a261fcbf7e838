#ifndef QEL_IMAGE_PACKED_PIXELS_H_
#define QEL_IMAGE_PACKED_PIXELS_H_

#include <cstdint>

namespace qel {

// Pixels of three bytes in words. Internal linkage: kernel sources use them.

/// Stores the lower three bytes of four words, in two steps: words stored over each other by a byte
/// took a tenth longer.
static inline void StoreFourOf3(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint8_t* to) {
  constexpr uint32_t kColor = 0x00FFFFFFu;
  const uint64_t first = (a & kColor) | uint64_t{b & kColor} << 24 | uint64_t{c} << 48;
  const uint32_t last = (c >> 16 & 0xFF) | d << 8;
  __builtin_memcpy(to, &first, sizeof(first));
  __builtin_memcpy(to + sizeof(first), &last, sizeof(last));
}

}  // namespace qel

#endif  // QEL_IMAGE_PACKED_PIXELS_H_
