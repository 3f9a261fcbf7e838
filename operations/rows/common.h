#ifndef QEL_OPERATIONS_ROWS_COMMON_H_
#define QEL_OPERATIONS_ROWS_COMMON_H_

#include "operations/arguments.h"

namespace qel::operations {

// What the rows of several components say in the same way: depths, and the neighbours they look at.

inline constexpr std::string_view kAllDepths = "1, 4, 8, 24, 32";
inline constexpr std::string_view kByteDepths = "8, 24, 32";

/// Each pixel by itself.
inline Border NoNeighbours(const Given&, const Shape&) { return {}; }

/// Each row by itself.
inline Border WholeRow(const Given&, const Shape&) { return {.rows = 0, .columns = Border::kAll}; }

/// A square of `size` x `size` pixels: even sizes reach one further up and left.
inline Border SquareOf(int size) { return {.rows = size / 2, .columns = size / 2}; }

/// Whatever the picture.
inline bool Always(const Given&, const Shape&) { return true; }

/// Pixels of less than a byte are taken for bytes.
inline Reach BeyondBelowEightBits(const Given&, const Shape& shape) {
  return shape.bits < 8 ? Reach::kBeyond : Reach::kRows;
}

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_ROWS_COMMON_H_
