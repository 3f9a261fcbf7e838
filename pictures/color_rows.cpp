#include "pictures/color_rows.h"

#include <algorithm>

#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {

ColorRows::ColorRows(const PictureView& shape, Alpha alpha, Gray gray)
    : width_(shape.width), stored_bit_count_(shape.bit_count) {
  if (shape.bit_count > 8) {
    bit_count_ = shape.bit_count == 32 && alpha == Alpha::kKeep ? 32 : 24;
  } else {
    const std::vector<PaletteEntry> palette = PaletteOf(shape);
    std::copy_n(palette.begin(), std::min(palette.size(), colors_.size()), colors_.begin());
    bit_count_ = gray == Gray::kKeep && IsGray(palette) ? 8 : 24;
  }
  row_.resize(RowBytes(shape.width, bit_count_));
}

const uint8_t* ColorRows::Convert(const uint8_t* row) {
  const int bits = stored_bit_count_;
  if (bits >= 24 && bits == bit_count_) return row;
  uint8_t* out = row_.data();
  for (int x = 0; x < width_; ++x) {
    if (bits == 32) {
      out = std::copy_n(row + ptrdiff_t{x} * 4, 3, out);
      continue;
    }
    const PaletteEntry& color = colors_[LoadIndex(row, bits, x)];
    *out++ = color.blue;
    if (bit_count_ == 8) continue;
    *out++ = color.green;
    *out++ = color.red;
  }
  return row_.data();
}

}  // namespace qel::pictures
