#ifndef QEL_MATHS_ROW_WALK_H_
#define QEL_MATHS_ROW_WALK_H_

#include <cstdint>
#include <initializer_list>

#include "image/write_rows.h"

namespace qel {

/// The smaller of two sizes, compared as unsigned numbers: a negative one is larger than any other.
inline int SmallerUnsigned(int a, int b) {
  return static_cast<unsigned>(a) < static_cast<unsigned>(b) ? a : b;
}

/// Rows of one plane as an operation walks them, which need not be the image's own stride apart.
struct RowWalk {
  uint8_t* bits = nullptr;
  int64_t step = 0;         ///< bytes from row to row, may be negative
  int64_t pixel_bytes = 1;  ///< bytes from pixel to pixel

  uint8_t* Row(int64_t y) const { return bits + y * step; }
  uint8_t* At(int64_t x, int64_t y) const { return Row(y) + x * pixel_bytes; }
};

/// False when memory that is written holds pixels still to be read at another place of the walk:
/// then one pixel goes after the other. Null sources are left out.
bool MayGoByVectors(const RowWalk& dest, std::initializer_list<RowWalk> sources, int64_t columns,
                    int64_t rows);

/// The row functions that walk from `sources` to `dest`: those of the active level, or else those
/// that go one pixel after the other.
template <typename Kernels>
const Kernels& KernelsFor(const Kernels& active, const Kernels& one_by_one, const RowWalk& dest,
                          std::initializer_list<RowWalk> sources, int64_t columns, int64_t rows) {
  return MayGoByVectors(dest, sources, columns, rows) ? active : one_by_one;
}

/// True when memory that is written holds nothing that is read.
bool IsApart(const RowWalk& dest, std::initializer_list<RowWalk> sources, int64_t columns,
             int64_t rows);

/// Has make(to, y, first, count) write all pixels of `dest` from those of `read`, which name it too
/// if some of its bytes stay as they are.
template <typename Make>
void WriteRows(const RowWalk& dest, std::initializer_list<RowWalk> read, int64_t columns,
               int64_t rows, const Make& make) {
  WriteRows(dest.bits, dest.step, dest.pixel_bytes, columns, rows,
            IsApart(dest, read, columns, rows), make);
}

}  // namespace qel

#endif  // QEL_MATHS_ROW_WALK_H_
