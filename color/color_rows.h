#ifndef QEL_COLOR_COLOR_ROWS_H_
#define QEL_COLOR_COLOR_ROWS_H_

#include <algorithm>

#include "color/tone_kernels.h"
#include "image/image_view.h"
#include "image/pixel_layout.h"

namespace qel {

/// Calls `change(row, pixels)` for all rows, once for all of them where nothing lies between.
template <typename Change>
void ForEachRow(const ImageView& view, int64_t pixel_bytes, const Change& change) {
  if (!view.HasPixels()) return;
  const bool joined = view.stride == view.Columns() * pixel_bytes;
  const int64_t rows = joined ? 1 : view.Rows();
  const auto pixels = static_cast<size_t>(joined ? view.Columns() * view.Rows() : view.Columns());
  for (int64_t y = 0; y < rows; ++y) change(view.Row(y), pixels);
}

/// What is quickest for a table of 256 bytes, which must outlive it, on a picture of this size.
inline ByteMap MapFor(const ImageView& view, const uint8_t* table) {
  const ToneKernels& kernels = ActiveToneKernels();
  ByteMap map = {table};
  if (!kernels.prefers_lines || view.Columns() * view.Rows() < kBytesForLine) return map;
  int32_t values[256];
  std::copy_n(table, 256, values);
  map.line = FindByteLine(values, false);
  if (kernels.prefers_curves && !map.line) map.curve = FindByteCurve(table);
  return map;
}

/// Replaces every palette index i of an image below 24 bits by `table[i]` (its low bits at 4 and 1
/// bits). Depths without indices are left alone.
inline void RemapIndices(const ImageView& view, const uint8_t (&table)[256]) {
  if (!view.HasPixels()) return;
  VisitAccessLayout(view.bit_count, [&](auto codec) {
    using Codec = decltype(codec);
    if constexpr (requires { Codec::kPerByte; }) {
      // Whole bytes have 256 values at every depth; the pixels of a last, partial byte go singly.
      uint8_t byte_table[256];
      for (size_t i = 0; i < 256; ++i) {
        byte_table[i] = static_cast<uint8_t>(i);
        for (int x = 0; x < Codec::kPerByte; ++x) {
          Codec::StoreIndex(&byte_table[i], x, table[Codec::LoadIndex(&byte_table[i], x)]);
        }
      }
      const ByteMap map = MapFor(view, byte_table);
      if constexpr (Codec::kPerByte == 1) {
        return ForEachRow(view, 1, [&](uint8_t* row, size_t bytes) {
          ActiveToneKernels().lut_bytes(row, bytes, map);
        });
      }
      const int64_t whole_bytes = view.Columns() / Codec::kPerByte;
      for (int64_t y = 0; y < view.Rows(); ++y) {
        uint8_t* const row = view.Row(y);
        ActiveToneKernels().lut_bytes(row, static_cast<size_t>(whole_bytes), map);
        for (int64_t x = whole_bytes * Codec::kPerByte; x < view.Columns(); ++x) {
          Codec::StoreIndex(row, x, table[Codec::LoadIndex(row, x)]);
        }
      }
    }
  });
}

}  // namespace qel

#endif  // QEL_COLOR_COLOR_ROWS_H_
