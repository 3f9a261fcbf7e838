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

void Strip::PrefetchPart(int64_t y, int64_t after, int64_t rows_ahead, int64_t x,
                         int64_t count) const {
  const int64_t first = std::max<int64_t>(x + window_.first, 0);
  const int64_t end = std::min(x + count + window_.first + window_.count - 1, source_.Columns());
  if (!source_.InPlace() || count == 0 || first >= end) return;
  y += rows_ahead;
  if (const uint8_t* const row = source_.At(y + after, first)) {
    PrefetchRun(row, (end - first) * source_.pixel_bytes());
  }
  if (y < Rows()) PrefetchRun<1>(out_.At(y, x), count * source_.pixel_bytes());
}

const uint8_t* InnerStrip::Read(int64_t y, uint8_t*) const {
  const uint8_t* const row = source_.At(y, x_ + window_.first);
  return row == nullptr ? outside_ : row;
}

void InnerStrip::Prefetch(int64_t y, int64_t after) const {
  constexpr size_t kPage = 4096;
  constexpr int64_t kRowsAhead = 3;
  // Long rows are followed well without help.
  if (Count() + 2 * kFewestInPlace > out_.Columns() && OutBytes() >= kPage) return;
  PrefetchPart(y, after, kRowsAhead, x_, Count());
}

const uint8_t* AssembledStrip::Read(int64_t y, uint8_t* scratch) const {
  uint8_t* to = scratch;
  for (const Piece& piece : pieces_) {
    const int64_t count = Covered(piece, window_);
    source_.CopyPixels(y, piece.x + window_.first, count, to);
    to += static_cast<size_t>(count) * Step();
  }
  return scratch;
}

void AssembledStrip::Prefetch(int64_t y, int64_t after) const {
  // Rows of few bytes pass quickly.
  constexpr int64_t kRowsAhead = 16;
  for (const Piece& piece : pieces_) PrefetchPart(y, after, kRowsAhead, piece.x, piece.count);
}

uint8_t* AssembledStrip::Open(int64_t y, int64_t first) {
  return IsJoined() ? joined_ : out_.Open(y, pieces_[0].x + first);
}

void AssembledStrip::Close(int64_t y, int64_t first, int64_t count) {
  if (!IsJoined()) return out_.Close(y, pieces_[0].x + first, count);
  const uint8_t* from = joined_;
  for (const Piece& piece : pieces_) {
    std::memcpy(out_.Open(y, piece.x), from, static_cast<size_t>(piece.count) * Step());
    out_.Close(y, piece.x, piece.count);
    from += static_cast<size_t>(Covered(piece, window_)) * Step();
  }
}

RowEnds::RowEnds(const SourceRows& source, DestRows& out, const Window& window, const Piece& left,
                 const Piece& right, size_t slack, std::span<uint8_t> scratch)
    : source_(source), out_(out), window_(window), pieces_{left, right} {
  if (scratch.empty() || out.Columns() == 0) return;
  const auto step = static_cast<int64_t>(Step());
  int64_t pixels = 0;
  for (size_t i = 0; i < 2; ++i) {
    const Piece& piece = pieces_[i];
    second_ = pitch_;
    const int64_t covered = piece.count == 0 ? 0 : piece.count + window.columns.count - 1;
    const int64_t x = piece.x + window.columns.first;
    const int64_t first = std::clamp<int64_t>(x, 0, source.Columns());
    const int64_t end = std::clamp<int64_t>(x + covered, first, source.Columns());
    inside_[i] = {first, static_cast<size_t>((pixels + first - x) * step),
                  static_cast<size_t>((end - first) * step)};
    pixels += covered;
    pitch_ = static_cast<size_t>(pixels * step);
  }
  // Beside the slack, a whole vector is read from the last pixels on, and the neighbours of these.
  const size_t more = static_cast<size_t>(window.rows.count - 1) * pitch_ + slack + 2 * kRowSlack;
  if (more > scratch.size()) return;
  const auto rows = static_cast<int64_t>((scratch.size() - more) / (2 * pitch_));
  // Windows of more rows than that would read most rows several times.
  if (rows < window.rows.count) return;
  rows_at_once_ = std::min(rows, kMostAtOnce);
  results_ = scratch.data();
  pixels_ = results_ + static_cast<size_t>(rows_at_once_) * pitch_;
  // What lies outside stays so, whichever row comes there.
  const int64_t read = pixels * (rows_at_once_ + window.rows.count - 1);
  RepeatPixel(pixels_, read, source.outside(), source.pixel_bytes());
}

namespace {

/// memcpy, but for few bytes, for which the call would take longer.
void CopyFew(uint8_t* to, const uint8_t* from, size_t bytes) {
  const auto copy_ends = [=]<typename Word>(Word) {
    Word first, last;
    std::memcpy(&first, from, sizeof(Word));
    std::memcpy(&last, from + bytes - sizeof(Word), sizeof(Word));
    std::memcpy(to, &first, sizeof(Word));
    std::memcpy(to + bytes - sizeof(Word), &last, sizeof(Word));
  };
  if (bytes > 16) {
    std::memcpy(to, from, bytes);
  } else if (bytes >= 8) {
    copy_ends(uint64_t());
  } else if (bytes >= 4) {
    copy_ends(uint32_t());
  } else {
    for (size_t i = 0; i < bytes; ++i) to[i] = from[i];
  }
}

}  // namespace

void RowEnds::Read(int64_t y, int64_t count) {
  const int64_t first = y + window_.rows.first;
  const int64_t end = first + count + window_.rows.count - 1;
  uint8_t* to = pixels_;
  for (int64_t row = first; row < end; ++row, to += pitch_) {
    const uint8_t* const from = source_.At(row, 0);
    if (from == nullptr) {
      RepeatPixel(to, static_cast<int64_t>(pitch_ / Step()), source_.outside(),
                  source_.pixel_bytes());
      continue;
    }
    for (const Inside& inside : inside_) {
      CopyFew(to + inside.offset, from + static_cast<size_t>(inside.x) * Step(), inside.bytes);
    }
  }
}

void RowEnds::Store(int64_t y, int64_t count) {
  const uint8_t* from = results_;
  for (int64_t row = y; row < y + count; ++row, from += pitch_) {
    for (size_t i = 0; i < 2; ++i) {
      const Piece& piece = pieces_[i];
      if (piece.count == 0) continue;
      CopyFew(out_.Open(row, piece.x), from + (i == 0 ? 0 : second_),
              static_cast<size_t>(piece.count) * Step());
      out_.Close(row, piece.x, piece.count);
    }
  }
}

Strips::Strips(const SourceRows& source, DestRows& out, const Interval& window,
               const StripWidths& most, size_t slack, std::span<uint8_t> scratch)
    : source_(source),
      out_(out),
      window_(window),
      inner_{0, out.Columns()},
      tiles_(0, out.Columns(), std::min(most.assembled, kTileColumns)) {
  const int64_t step = source.pixel_bytes();
  // The columns whose windows, and what is read past them, lie inside.
  const int64_t past = window.first + window.count - 1;
  const int64_t spare = (static_cast<int64_t>(slack) + step - 1) / step;
  const int64_t begin = std::max<int64_t>(-window.first, 0);
  const int64_t end = out.Columns() - std::max<int64_t>(past + spare, 0);
  const int64_t joined = begin + out.Columns() - end + window.count - 1;
  const bool ends_fit = joined <= most.assembled &&
                        joined * step <= static_cast<int64_t>(AssembledStrip::kMostJoined);
  if (!source.InPlace() || source.Columns() != out.Columns() || end - begin < kFewestInPlace ||
      most.in_place < 2 * kFewestInPlace || !ends_fit) {
    return;
  }
  inner_ = {begin, end - begin};
  tiles_ = Tiles(begin, end, most.in_place);
  const int64_t widest = std::min(end - begin, most.in_place) + window.count - 1;
  outside_ = scratch.data() + scratch.size() - ScratchPitch(static_cast<size_t>(widest * step));
  RepeatPixel(outside_, widest + static_cast<int64_t>(slack) / step, source.outside(),
              source.pixel_bytes());
}

Strip& Strips::operator[](int64_t i) {
  if (i == tiles_.count()) {
    const AssembledStrip::Piece left = LeftEnd(), right = RightEnd();
    return left.count == 0 ? assembled_strip_.emplace(source_, out_, window_, right)
                           : assembled_strip_.emplace(source_, out_, window_, left, right);
  }
  const int64_t x = tiles_[i], count = tiles_[i + 1] - tiles_[i];
  if (outside_ == nullptr) {
    return assembled_strip_.emplace(source_, out_, window_, AssembledStrip::Piece{x, count});
  }
  return inner_strip_.emplace(source_, out_, window_, x, count, outside_);
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
