#ifndef QEL_IMAGE_WRITE_ROWS_H_
#define QEL_IMAGE_WRITE_ROWS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "simd/stream.h"

namespace qel {

/// Has make(to, y, first, count) write `count` pixels of every row y of a result, from `first` on.
/// Large results are made a part at a time in the nearest cache and stored past the others, if they
/// lie `apart` from what they are made of and nothing of them is read.
template <typename Make>
void WriteRows(uint8_t* bits, int64_t step, int64_t pixel_bytes, int64_t columns, int64_t rows,
               bool apart, const Make& make) {
  if (!apart || columns * rows * pixel_bytes < LeastStreamedBytes()) {
    for (int64_t y = 0; y < rows; ++y) make(bits + y * step, y, 0, static_cast<size_t>(columns));
    return;
  }
  constexpr int64_t kPart = 3072;  // whole lines of the cache, and whole pixels
  alignas(64) uint8_t part[kPart];
  const int64_t most = kPart / pixel_bytes;
  for (int64_t y = 0; y < rows; ++y) {
    for (int64_t x = 0; x < columns; x += most) {
      const auto count = static_cast<size_t>(std::min(most, columns - x));
      make(static_cast<uint8_t*>(part), y, x, count);
      StreamBytes(bits + y * step + x * pixel_bytes, part,
                  count * static_cast<size_t>(pixel_bytes));
    }
  }
  FinishStream();
}

}  // namespace qel

#endif  // QEL_IMAGE_WRITE_ROWS_H_
