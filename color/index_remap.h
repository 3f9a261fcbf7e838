#ifndef QEL_COLOR_INDEX_REMAP_H_
#define QEL_COLOR_INDEX_REMAP_H_

#include "color/tone_kernels.h"
#include "image/image_view.h"
#include "image/pixel_layout.h"

namespace qel {

/// Replaces every palette index i of an image below 24 bits by `table[i]` (its low bits at 4 and 1
/// bits). Depths without indices are left alone.
inline void RemapIndices(const ImageView& view, const uint8_t (&table)[256]) {
  if (!view.HasPixels()) return;
  for (int64_t y = 0; y < view.Rows(); ++y) {
    uint8_t* const row = view.Row(y);
    if (view.bit_count == 8) {
      ActiveToneKernels().lut_bytes(row, static_cast<size_t>(view.Columns()), table);
      continue;
    }
    VisitAccessLayout(view.bit_count, [&](auto codec) {
      if constexpr (!decltype(codec)::kDirect) {
        for (int64_t x = 0; x < view.Columns(); ++x) {
          codec.StoreIndex(row, x, table[codec.LoadIndex(row, x)]);
        }
      }
    });
  }
}

}  // namespace qel

#endif  // QEL_COLOR_INDEX_REMAP_H_
