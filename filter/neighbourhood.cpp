#include "filter/neighbourhood.h"

#include <algorithm>
#include <cstring>

namespace qel {

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

}  // namespace qel
