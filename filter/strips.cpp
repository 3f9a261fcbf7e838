#include "filter/strips.h"

#include <algorithm>
#include <cstring>

#include "simd/prefetch.h"

namespace qel {

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

}  // namespace qel
