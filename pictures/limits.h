#ifndef QEL_PICTURES_LIMITS_H_
#define QEL_PICTURES_LIMITS_H_

#include <algorithm>
#include <cstdint>

namespace qel::pictures {

/// What one picture may take: the same when it is read, when something is made of it, and when it
/// is written. Both limits are checked from sizes alone, before anything is allocated or worked on.
struct Limits {
  int64_t max_pixels = int64_t{1} << 28;
  /// Bytes that are in use at a time: the file, its decoded pixels, and copies made on the way.
  int64_t max_memory = int64_t{1} << 32;

  /// Whether a picture of this size is within `max_pixels`. Sides are below 2^31.
  bool AllowSize(int64_t width, int64_t height) const {
    return width <= INT32_MAX && height <= INT32_MAX && width * height <= max_pixels;
  }
  bool AllowMemory(uint64_t bytes) const {
    return bytes <= static_cast<uint64_t>(std::max<int64_t>(max_memory, 0));
  }
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_LIMITS_H_
