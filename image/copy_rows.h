#ifndef QEL_IMAGE_COPY_ROWS_H_
#define QEL_IMAGE_COPY_ROWS_H_

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace qel {

/// Copies `rows` rows of `bytes` bytes, from the first one to the last; `step` is the way from row
/// to row. Rows may overlap.
inline void CopyRows(uint8_t* dest, int64_t dest_step, const uint8_t* source, int64_t source_step,
                     int64_t bytes, int64_t rows) {
  const auto gap = reinterpret_cast<intptr_t>(dest) - reinterpret_cast<intptr_t>(source);
  const bool apart = gap == 0 || gap >= bytes * rows || -gap >= bytes * rows;
  // Short rows one by one are slow, and so is the way of the library for whole images.
  constexpr int64_t kPiece = 32768;
  if (dest_step == bytes && source_step == bytes && apart) {
    const int64_t all = bytes * rows;
    for (int64_t i = 0; i < all; i += kPiece) {
      std::memmove(dest + i, source + i, static_cast<size_t>(std::min(kPiece, all - i)));
    }
    return;
  }
  for (int64_t y = 0; y < rows; ++y) {
    std::memmove(dest + y * dest_step, source + y * source_step, static_cast<size_t>(bytes));
  }
}

}  // namespace qel

#endif  // QEL_IMAGE_COPY_ROWS_H_
