#ifndef QEL_OPERATIONS_BANDS_IMAGE_ROWS_H_
#define QEL_OPERATIONS_BANDS_IMAGE_ROWS_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "qel/image.h"

namespace qel::operations {

/// The rows of an image in memory, which stays the image's.
struct ImageRows {
  uint8_t* bits = nullptr;
  int stride = 0;
  size_t row_bytes = 0;  ///< without padding

  uint8_t* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
};

/// The rows of plane 0.
ImageRows RowsOf(IQEL& image);

/// Copies `count` rows between images of the same width and depth.
void CopyRows(IQEL& from, int from_row, IQEL& to, int to_row, int count);

/// The top-left pixel of a picture: what stands outside it. Below 8 bits with its neighbours, which
/// lie in rows that nobody looks at.
class Corner {
 public:
  /// The first pixel of row `row` of `image`.
  explicit Corner(IQEL& image, int row = 0);
  /// Makes it the top-left pixel of an image of the same depth.
  void PutInto(IQEL& image) const;

 private:
  std::array<uint8_t, 4> bytes_{};
  size_t count_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_BANDS_IMAGE_ROWS_H_
