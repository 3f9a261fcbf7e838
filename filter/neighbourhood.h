#ifndef QEL_FILTER_NEIGHBOURHOOD_H_
#define QEL_FILTER_NEIGHBOURHOOD_H_

#include "filter/strips.h"

namespace qel {

// The one walk through neighbourhoods: strips side by side, and the ends of rows.

/// The windows at both ends of rows, those of many rows at a time: the pixels under them lie row
/// after row in one piece of scratch memory, so that one call of a row function takes them all.
/// Windows that begin in the last pixels of an end are computed as well, and not stored.
class RowEnds {
 public:
  using Piece = AssembledStrip::Piece;

  /// Bytes that `scratch` should have.
  static constexpr size_t kScratchBytes = 8 * 1024;

  /// Row functions may read `slack` bytes past the pixels.
  RowEnds(const SourceRows& source, DestRows& out, const Window& window, const Piece& left,
          const Piece& right, size_t slack, std::span<uint8_t> scratch);

  /// Rows of the output at a time; 0 where the scratch memory does not take enough of them.
  int64_t RowsAtOnce() const { return rows_at_once_; }
  /// Writes the ends of rows `y` to `y + count - 1`, at most `RowsAtOnce` of them.
  template <size_t kMostRows, typename RowFunction>
  void Write(int64_t y, int64_t count, RowFunction&& row_function) {
    Read(y, count);
    const uint8_t* rows[kMostRows];
    for (size_t j = 0; j < static_cast<size_t>(window_.rows.count); ++j) {
      rows[j] = pixels_ + j * pitch_;
    }
    const auto bytes = static_cast<size_t>(count) * pitch_;
    row_function(results_, rows, bytes - static_cast<size_t>(window_.columns.count - 1) * Step());
    Store(y, count);
  }
  /// For a walk that has just come to the end of row `y`: writes what has gathered where that is
  /// enough, or all.
  template <size_t kMostRows, typename RowFunction>
  void WriteAfter(int64_t y, RowFunction&& row_function) {
    if (rows_at_once_ == 0 || (y + 1 < next_ + rows_at_once_ && y + 1 < out_.Rows())) return;
    Write<kMostRows>(next_, y + 1 - next_, row_function);
    next_ = y + 1;
  }

 private:
  static constexpr int64_t kMostAtOnce = 32;

  /// Pixels of a row that lie inside, and where they stand among those under the windows.
  struct Inside {
    int64_t x;
    size_t offset;
    size_t bytes;
  };

  size_t Step() const { return static_cast<size_t>(source_.pixel_bytes()); }
  void Read(int64_t y, int64_t count);
  void Store(int64_t y, int64_t count);

  const SourceRows& source_;
  DestRows& out_;
  const Window window_;
  const Piece pieces_[2];
  Inside inside_[2];
  size_t pitch_ = 0;
  size_t second_ = 0;  ///< where the right end begins in a row
  int64_t rows_at_once_ = 0;
  int64_t next_ = 0;  ///< the first row whose ends are not written
  uint8_t* pixels_ = nullptr;
  uint8_t* results_ = nullptr;
};

/// Calls row_function(dest, rows, bytes) for every output row, or parts of it; `rows` are the rows
/// of its windows, at most `kMostRows`, from the first window on. It may read `slack` bytes past
/// their pixels, and what `ForEachStrip` allows. Every row of the source is read once.
template <size_t kMostRows, typename RowFunction>
void ForEachRowOfWindows(const SourceRows& source, DestRows& out, const Window& window,
                         size_t slack, std::span<uint8_t> scratch, RowFunction&& row_function) {
  const auto count = static_cast<size_t>(window.rows.count);
  const int64_t assembled =
      ScratchRowBytes(scratch.size(), window.rows.count) / source.pixel_bytes() -
      (window.columns.count - 1);
  // In place, a scratch row is as long as the strip: long rows pass by quicker than parts of them.
  constexpr size_t kEndsBytes = RowEnds::kScratchBytes;
  const int64_t in_place =
      (ScratchRowBytes(scratch.size() - kEndsBytes, 1) - static_cast<int64_t>(slack)) /
          source.pixel_bytes() -
      window.columns.count;
  Strips strips(source, out, window.columns, {assembled, in_place}, slack, scratch);
  // Strips in place leave the begin of the scratch memory to the ends of the rows. Short rows as a
  // whole are taken like ends.
  const bool has_ends = strips.HasEnds();
  RowEnds ends(source, out, window, has_ends ? strips.LeftEnd() : RowEnds::Piece{0, out.Columns()},
               has_ends ? strips.RightEnd() : RowEnds::Piece{}, slack,
               scratch.first(has_ends || (source.InPlace() && !strips.InPlace()) ? kEndsBytes : 0));
  const int64_t at_once = ends.RowsAtOnce();
  if (!strips.InPlace() && at_once != 0) {
    for (int64_t y = 0; y < out.Rows(); y += at_once) {
      ends.Write<kMostRows>(y, std::min(at_once, out.Rows() - y), row_function);
    }
    return;
  }
  const int64_t strip_count = strips.count() - (at_once != 0 ? 1 : 0);
  for (int64_t i = 0; i < strip_count; ++i) {
    Strip& strip = strips[i];
    const size_t pitch = ScratchPitch(strip.InBytes());
    // Each row that is read has its slot, which it leaves to one that comes later.
    size_t slot = 0;
    const auto read = [&](int64_t y) {
      const uint8_t* const row = strip.Read(y, scratch.data() + slot * pitch);
      slot = slot + 1 == count ? 0 : slot + 1;
      return row;
    };
    const int64_t last = window.rows.first + window.rows.count - 1;
    const uint8_t* rows[kMostRows];
    for (int64_t j = 1; j < window.rows.count; ++j) rows[j] = read(window.rows.first + j - 1);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      // Row functions ask for what comes a page further on; where rows are taken in parts, the next
      // ones lie elsewhere.
      if (strip_count > 1) strip.Prefetch(y, last);
      std::copy(rows + 1, rows + count, rows);
      rows[count - 1] = read(y + last);
      strip.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
        const uint8_t* here[kMostRows];
        for (size_t j = 0; j < count; ++j) here[j] = rows[j] + first;
        row_function(dest, here, bytes);
      });
      // The ends of rows that are still in the nearest caches.
      if (i + 1 == strip_count) ends.WriteAfter<kMostRows>(y, row_function);
    }
  }
}

}  // namespace qel

#endif  // QEL_FILTER_NEIGHBOURHOOD_H_
