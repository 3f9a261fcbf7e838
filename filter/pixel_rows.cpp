#include "filter/pixel_rows.h"

#include <cstring>

#include "filter/filter_kernels.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"

namespace qel {

void RepeatPixel(uint8_t* pixels, int64_t count, const uint8_t* pixel, int pixel_bytes) {
  if (count <= 0) return;
  const int64_t bytes = count * pixel_bytes;
  if (pixel_bytes == 1) {
    std::memset(pixels, *pixel, static_cast<size_t>(bytes));
    return;
  }
  // Twelve bytes are whole pixels of three and of four.
  const uint32_t color = pixel[0] | uint32_t{pixel[1]} << 8 | uint32_t{pixel[2]} << 16;
  uint32_t few[] = {color | color << 24, color >> 8 | color << 16, color >> 16 | color << 8};
  if (pixel_bytes == 4) few[0] = few[1] = few[2] = color | uint32_t{pixel[3]} << 24;
  constexpr int64_t kFewBytes = sizeof(few);
  constexpr int64_t kMostSingly = 16 * kFewBytes;
  int64_t filled = 0;
  for (; filled + kFewBytes <= std::min(bytes, kMostSingly); filled += kFewBytes) {
    std::memcpy(pixels + filled, few, kFewBytes);
  }
  if (filled == 0) {
    std::memcpy(pixels, few, static_cast<size_t>(bytes));
    return;
  }
  // The filled part doubles until it covers the whole.
  for (; filled < bytes; filled *= 2) {
    std::memcpy(pixels + filled, pixels, static_cast<size_t>(std::min(filled, bytes - filled)));
  }
}

SourceRows::SourceRows(const ImageView& source)
    : source_(source), pixel_bytes_(PixelBytes(source.bit_count)) {
  // The first byte is blue, which is also the level of palette depths.
  const uint32_t color = OutsideColor(source);
  std::memcpy(outside_, &color, sizeof(color));
  RepeatPixel(outside_, kOutsidePixels, outside_, pixel_bytes_);
}

void SourceRows::CopyOutside(int64_t count, uint8_t* pixels) const {
  if (count <= 0) return;
  if (count > kOutsidePixels) return RepeatPixel(pixels, count, outside_, pixel_bytes_);
  std::memcpy(pixels, outside_, static_cast<size_t>(count * pixel_bytes_));
}

void SourceRows::CopyPixels(int64_t y, int64_t x, int64_t count, uint8_t* pixels) const {
  const int64_t end = x + count;
  const bool row_inside = source_.HasPixels() && y >= 0 && y < source_.Rows();
  const int64_t first = row_inside ? std::clamp<int64_t>(x, 0, source_.Columns()) : x;
  const int64_t last = row_inside ? std::clamp<int64_t>(end, first, source_.Columns()) : x;
  if (first >= last) return CopyOutside(count, pixels);
  CopyOutside(first - x, pixels);
  pixels += (first - x) * pixel_bytes_;
  const uint8_t* const row = source_.Row(y);
  if (source_.bit_count >= 8) {
    std::memcpy(pixels, row + first * pixel_bytes_,
                static_cast<size_t>((last - first) * pixel_bytes_));
  } else {
    VisitAccessLayout(source_.bit_count, [&](auto codec) {
      if constexpr (!codec.kDirect) {
        for (int64_t i = first; i < last; ++i) {
          pixels[i - first] = static_cast<uint8_t>(codec.LoadIndex(row, i));
        }
      }
    });
  }
  CopyOutside(end - last, pixels + (last - first) * pixel_bytes_);
}

void DestRows::Close(int64_t y, int64_t x, int64_t count) {
  if (TakesAlpha()) StoreWithAlpha(y, x, count);
  if (dest_.bit_count >= 8) return;
  VisitAccessLayout(dest_.bit_count, [&](auto codec) {
    if constexpr (!codec.kDirect) {
      uint8_t* const row = dest_.Row(y);
      for (int64_t i = 0; i < count; ++i) codec.StoreIndex(row, x + i, row_[i]);
    }
  });
}

void DestRows::StoreWithAlpha(int64_t y, int64_t x, int64_t count) {
  const int64_t sx = x + alpha_shift_;
  const int64_t sy = y + alpha_shift_;
  const bool row_inside = source_.HasPixels() && sy < source_.Rows();
  const int64_t inside = row_inside ? std::clamp<int64_t>(source_.Columns() - sx, 0, count) : 0;
  uint8_t* const to = dest_.Row(y) + 4 * x;
  if (inside > 0) {
    const uint8_t* const alpha = source_.Row(sy) + 4 * sx;
    ActiveFilterKernels().with_alpha(to, row_, alpha, static_cast<size_t>(inside));
  }
  for (int64_t i = inside; i < count; ++i) {
    std::memcpy(to + 4 * i, row_ + 4 * i, 3);
    to[4 * i + 3] = kOutsideMarker;
  }
}

void FillPixels(const ImageView& dest, uint32_t color) {
  if (!dest.HasPixels()) return;
  VisitAccessLayout(dest.bit_count, [&](auto codec) {
    for (int64_t y = 0; y < dest.Rows(); ++y) {
      uint8_t* const row = dest.Row(y);
      for (int64_t x = 0; x < dest.Columns(); ++x) codec.Store(row, x, color);
    }
  });
}

}  // namespace qel
