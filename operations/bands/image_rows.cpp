#include "operations/bands/image_rows.h"

#include <algorithm>
#include <cstring>

#include "operations/shape.h"

namespace qel::operations {

ImageRows RowsOf(IQEL& image) {
  ImageRows rows;
  int unread = 0;
  image.GetBits(0, &unread, &rows.bits, &rows.stride);
  const Shape shape = ShapeOf(image);
  rows.row_bytes = (static_cast<size_t>(shape.width) * static_cast<size_t>(shape.bits) + 7) / 8;
  return rows;
}

void CopyRows(IQEL& from, int from_row, IQEL& to, int to_row, int count) {
  const ImageRows source = RowsOf(from), dest = RowsOf(to);
  for (int y = 0; y < count; ++y) {
    std::memcpy(dest.Row(to_row + y), source.Row(from_row + y), dest.row_bytes);
  }
}

Corner::Corner(IQEL& image, int row)
    : count_(static_cast<size_t>(std::max(ShapeOf(image).bits / 8, 1))) {
  std::memcpy(bytes_.data(), RowsOf(image).Row(row), count_);
}

void Corner::PutInto(IQEL& image) const {
  std::memcpy(RowsOf(image).Row(0), bytes_.data(), count_);
}

}  // namespace qel::operations
