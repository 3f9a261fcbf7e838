#include "filter/neighbourhood.h"

#include <cstring>

#include "filter/filter_kernels.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"

namespace qel {

void RepeatPixel(uint8_t* pixels, int64_t count, const uint8_t* pixel, int pixel_bytes) {
  if (count <= 0) return;
  const int64_t bytes = count * pixel_bytes;
  std::memmove(pixels, pixel, static_cast<size_t>(pixel_bytes));
  // The filled part doubles until it covers the whole.
  for (int64_t filled = pixel_bytes; filled < bytes; filled *= 2) {
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

void SourceRows::FetchOutside(int64_t count, uint8_t* pixels) const {
  if (count <= 0) return;
  if (count > kOutsidePixels) return RepeatPixel(pixels, count, outside_, pixel_bytes_);
  std::memcpy(pixels, outside_, static_cast<size_t>(count * pixel_bytes_));
}

void SourceRows::Fetch(int64_t y, int64_t x, int64_t count, uint8_t* pixels) const {
  const int64_t end = x + count;
  const bool row_inside = source_.HasPixels() && y >= 0 && y < source_.Rows();
  const int64_t first = row_inside ? std::clamp<int64_t>(x, 0, source_.Columns()) : x;
  const int64_t last = row_inside ? std::clamp<int64_t>(end, first, source_.Columns()) : x;
  if (first >= last) return FetchOutside(count, pixels);
  FetchOutside(first - x, pixels);
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
  FetchOutside(end - last, pixels + (last - first) * pixel_bytes_);
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

const uint8_t* Strip::Read(int64_t y, uint8_t* slot) const {
  if (outside_ != nullptr) {
    const uint8_t* const row = source_.At(y, pieces_[0].x + window_.first);
    return row == nullptr ? outside_ : row;
  }
  uint8_t* to = slot;
  for (const Piece& piece : pieces_) {
    if (piece.count == 0) break;
    const int64_t count = piece.count + window_.count - 1;
    source_.Fetch(y, piece.x + window_.first, count, to);
    to += static_cast<size_t>(count) * Step();
  }
  return slot;
}

void Strip::Prefetch(int64_t y, int64_t after) {
  // Long rows are followed well without help.
  constexpr size_t kPage = 4096;
  const bool whole_rows = pieces_[0].count + 2 * kFewestInPlace > out_.Columns();
  if (!source_.InPlace() || (whole_rows && OutBytes() >= kPage)) return;
  // Rows of few bytes pass quickly.
  const int64_t rows_ahead = InPlace() ? 3 : 16;
  y += rows_ahead;
  for (const Piece& piece : pieces_) {
    const int64_t first = std::max<int64_t>(piece.x + window_.first, 0);
    const int64_t end =
        std::min(piece.x + piece.count + window_.first + window_.count - 1, source_.Columns());
    if (piece.count == 0 || first >= end) continue;
    if (const uint8_t* const row = source_.At(y + after, first)) {
      PrefetchRun(row, (end - first) * source_.pixel_bytes());
    }
    if (y < Rows()) {
      PrefetchRun<1>(out_.At(y, piece.x), piece.count * source_.pixel_bytes());
    }
  }
}

void Strip::Close(int64_t y) {
  if (pieces_[1].count == 0) {
    out_.Close(y, pieces_[0].x, pieces_[0].count);
    return;
  }
  const uint8_t* from = joined_;
  for (const Piece& piece : pieces_) {
    std::memcpy(out_.Open(y, piece.x), from, static_cast<size_t>(piece.count) * Step());
    out_.Close(y, piece.x, piece.count);
    from += static_cast<size_t>(piece.count + window_.count - 1) * Step();
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
