#ifndef QEL_IMAGE_MEMORY_REACH_H_
#define QEL_IMAGE_MEMORY_REACH_H_

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace qel {

/// The addresses from the first byte of some rows to the one after their last.
struct MemoryReach {
  /// `rows` rows of `row_bytes` bytes, from `bits` on and `step` bytes apart.
  MemoryReach(const uint8_t* bits, int64_t step, int64_t row_bytes, int64_t rows) {
    const auto first = reinterpret_cast<intptr_t>(bits);
    const int64_t to_last_row = step * (rows - 1);
    begin = first + std::min<int64_t>(to_last_row, 0);
    end = first + std::max<int64_t>(to_last_row, 0) + row_bytes;
  }

  bool Meets(const MemoryReach& other) const { return begin < other.end && other.begin < end; }

  intptr_t begin, end;
};

/// True when rows of `row_bytes` bytes run over the next ones: operations that take pixels for
/// larger ones than an image has write such rows, which then must be complete one after the other.
inline bool RowsOverlap(int64_t row_bytes, int stride) {
  return row_bytes > std::abs(int64_t{stride});
}

}  // namespace qel

#endif  // QEL_IMAGE_MEMORY_REACH_H_
