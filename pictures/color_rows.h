#ifndef QEL_PICTURES_COLOR_ROWS_H_
#define QEL_PICTURES_COLOR_ROWS_H_

#include <array>
#include <vector>

#include "pictures/codec.h"

namespace qel::pictures {

/// The rows of any picture without its palette, for formats that have none: grey, or blue, green,
/// red (, alpha).
class ColorRows {
 public:
  enum class Alpha { kDrop, kKeep };
  enum class Gray { kKeep, kSpread };  ///< grey stays one byte, or becomes three

  /// Of `shape` size, depth and palette count.
  ColorRows(const PictureView& shape, Alpha alpha, Gray gray = Gray::kKeep);

  int bit_count() const { return bit_count_; }  ///< 8, 24 or 32
  /// A row of the picture in these colours, valid until the next call.
  const uint8_t* Convert(const uint8_t* row);

 private:
  int width_;
  int stored_bit_count_;
  int bit_count_;
  std::array<PaletteEntry, 256> colors_{};
  std::vector<uint8_t> row_;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_COLOR_ROWS_H_
