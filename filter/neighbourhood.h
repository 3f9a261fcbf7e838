#ifndef QEL_FILTER_NEIGHBOURHOOD_H_
#define QEL_FILTER_NEIGHBOURHOOD_H_

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>

#include "image/image_view.h"

namespace qel {

// The one walk through neighbourhoods. The columns of an image are taken in strips. Where the
// windows of a strip stay inside the image, its rows are read in place. At the ends of rows, and at
// depths below 8 bits, they are copied into scratch rows that reach beyond the image, with the
// outside color in place. So no pixel is a border pixel any more and neighbour (i, j) of every
// pixel lies at a fixed distance. Rows hold 4 bytes a pixel at 32 bits, 3 at 24, and one level a
// pixel at palette depths, whose channels are equal.

/// Bytes of a pixel in rows: 4, 3 or 1; 0 for depths that store nothing.
constexpr int PixelBytes(int bit_count) {
  return bit_count == 32                                      ? 4
         : bit_count >= 24                                    ? 3
         : bit_count == 8 || bit_count == 4 || bit_count == 1 ? 1
                                                              : 0;
}

/// How far the neighbourhood of a positive size reaches from its pixel, in both directions.
/// Deliberate: even sizes reach one further up and left than down and right.
struct Reach {
  explicit constexpr Reach(int size) : before(size / 2), after(int64_t{size} - 1 - size / 2) {}
  int64_t before;
  int64_t after;
};

/// Scratch rows of an operation: one block on the stack, whatever the image and size. Threads of
/// hosts may be small: an operation stays within 64 KiB, its row functions included, which take up
/// to 18 KiB where they sort many taps.
template <size_t kBytes>
struct ScratchBlock {
  operator std::span<uint8_t>() { return bytes; }
  alignas(64) uint8_t bytes[kBytes];
};
/// Most columns that are assembled, or written, at a time.
inline constexpr int64_t kTileColumns = 4096;
/// Readable bytes after the pixels of a scratch row, for vectors that start inside it.
inline constexpr size_t kRowSlack = 128;
/// Rows are read in place where windows begin at no fewer pixels than this.
inline constexpr int64_t kFewestInPlace = 64;

/// Bytes from scratch row to scratch row: room for `bytes` and the slack, in whole cache lines, and
/// an odd number of these so that rows do not meet in the same sets of the cache.
constexpr size_t ScratchPitch(size_t bytes) { return ((bytes + kRowSlack + 63) / 64 | 1) * 64; }
/// Most bytes of pixels in each of `rows` scratch rows that share `bytes`; may be negative.
constexpr int64_t ScratchRowBytes(size_t bytes, int64_t rows) {
  const int64_t lines = (static_cast<int64_t>(bytes) / rows / 64 - 1) | 1;
  return lines * 64 - int64_t{kRowSlack};
}

/// The columns from `first` up to `end`, divided evenly into tiles of at most `most` columns.
class Tiles {
 public:
  Tiles(int64_t first, int64_t end, int64_t most) : first_(first), columns_(end - first) {
    most = std::max<int64_t>(most, 1);
    // Rows mostly are one tile, and divisions take as long as short rows.
    count_ = columns_ <= most ? std::min<int64_t>(columns_, 1) : (columns_ + most - 1) / most;
  }
  int64_t count() const { return count_; }
  /// Where tile `i` begins; that of number `count` is the end.
  int64_t operator[](int64_t i) const {
    return first_ + (count_ == 1 ? columns_ * i : columns_ * i / count_);
  }

 private:
  int64_t first_;
  int64_t columns_;
  int64_t count_;
};

/// Calls visit(x, count) for each of these tiles.
template <typename Visitor>
void ForEachTile(int64_t first, int64_t end, int64_t most, Visitor&& visit) {
  const Tiles tiles(first, end, most);
  for (int64_t i = 0; i < tiles.count(); ++i) visit(tiles[i], tiles[i + 1] - tiles[i]);
}

/// Reads scratch rows of an image, anywhere in and around it.
class SourceRows {
 public:
  explicit SourceRows(const ImageView& source);

  int pixel_bytes() const { return pixel_bytes_; }
  /// The pixel that stands in for everything outside.
  const uint8_t* outside() const { return outside_; }
  /// True when rows of the image are as scratch rows would be.
  bool InPlace() const { return source_.HasPixels() && source_.bit_count >= 8; }
  /// Where pixel (x, y) lies in the image, which is `InPlace`; null for rows outside of it.
  const uint8_t* At(int64_t y, int64_t x) const {
    return y >= 0 && y < source_.Rows() ? source_.Row(y) + x * pixel_bytes_ : nullptr;
  }
  int64_t Columns() const { return source_.Columns(); }
  /// Writes pixels (x, y) to (x + count - 1, y), in and around the image, to `pixels`.
  void CopyPixels(int64_t y, int64_t x, int64_t count, uint8_t* pixels) const;

 private:
  void CopyOutside(int64_t count, uint8_t* pixels) const;

  static constexpr int64_t kOutsidePixels = 64;

  const ImageView source_;
  const int pixel_bytes_;
  uint8_t outside_[kOutsidePixels * 4];
};

/// Writes rows of pixels to an image.
class DestRows {
 public:
  /// Most columns that are opened at a time where pixels get another alpha.
  static constexpr int64_t kAlphaColumns = 1024;

  /// Pixels are stored as they are.
  explicit DestRows(const ImageView& dest) : DestRows(dest, dest, 0) { KeepAlpha(); }
  /// Alpha of 32-bit pixels is not what was written but that of the pixel of `source` that lies
  /// `alpha_shift` further right and down; outside, and without source pixels, it is the marker.
  DestRows(const ImageView& dest, const ImageView& source, int64_t alpha_shift)
      : dest_(dest), source_(source), alpha_shift_(alpha_shift) {}

  /// Where pixels from (x, y) on are to be written, at most `MostOpened` of them.
  uint8_t* Open(int64_t y, int64_t x) {
    return dest_.bit_count >= 8 && !TakesAlpha() ? At(y, x) : row_;
  }
  int64_t MostOpened() const { return TakesAlpha() ? kAlphaColumns : kTileColumns; }
  /// Stores what was written since `Open`.
  void Close(int64_t y, int64_t x, int64_t count);
  int64_t Rows() const { return dest_.Rows(); }
  int64_t Columns() const { return dest_.Columns(); }
  /// Where pixel (x, y) lies, at whole bytes.
  uint8_t* At(int64_t y, int64_t x) const { return dest_.Row(y) + x * PixelBytes(dest_.bit_count); }

  /// From now on, pixels bring their alpha with them.
  void KeepAlpha() { keeps_alpha_ = true; }
  /// True when pixels are stored with another alpha than their own.
  bool TakesAlpha() const { return dest_.bit_count == 32 && !keeps_alpha_; }

 private:
  void StoreWithAlpha(int64_t y, int64_t x, int64_t count);

  const ImageView dest_;
  const ImageView source_;
  const int64_t alpha_shift_;
  bool keeps_alpha_ = false;
  uint8_t row_[std::max(kTileColumns, 4 * kAlphaColumns)];
};

/// Neighbours side by side: `count` of them from `first` on, counted from the pixel itself.
struct Interval {
  int64_t first;
  int64_t count;
};
/// The neighbours that a pixel depends on.
struct Window {
  /// The square of a positive size.
  static constexpr Window Square(int size) {
    const Interval side{-Reach(size).before, size};
    return {side, side};
  }
  Interval columns;
  Interval rows;
};

/// Some columns of the output, and the pixels of each row that their windows cover: window i covers
/// those from pixel i on. A strip is read and written row by row; where its pixels lie is its own
/// affair.
class Strip {
 public:
  Strip(const Strip&) = delete;
  Strip& operator=(const Strip&) = delete;

  size_t Step() const { return static_cast<size_t>(source_.pixel_bytes()); }
  int64_t Rows() const { return out_.Rows(); }
  /// Windows of the strip, and pixels that they cover.
  int64_t Count() const { return in_count_ - window_.count + 1; }
  int64_t InCount() const { return in_count_; }
  size_t OutBytes() const { return static_cast<size_t>(Count()) * Step(); }
  size_t InBytes() const { return static_cast<size_t>(InCount()) * Step(); }

  /// The pixels of row `y` of the source under the windows, in and around the image. `scratch` is a
  /// scratch row of `InBytes` that they are put into unless the strip is `InPlace`.
  virtual const uint8_t* Read(int64_t y, uint8_t* scratch) const = 0;
  virtual bool InPlace() const = 0;
  /// Asks for what comes after output row `y`, whose windows reach down to row y + after, to be
  /// brought near. Several short pieces of memory at once are more than processors follow by
  /// themselves.
  virtual void Prefetch(int64_t y, int64_t after) const = 0;

  /// Where the outputs of row `y` are to be written from window `first` on, and what stores `count`
  /// of them.
  virtual uint8_t* Open(int64_t y, int64_t first) = 0;
  virtual void Close(int64_t y, int64_t first, int64_t count) = 0;
  /// The whole row.
  uint8_t* Open(int64_t y) { return Open(y, 0); }
  void Close(int64_t y) { Close(y, 0, Count()); }
  /// Calls write(dest, first, bytes) for the parts of row `y`, `first` bytes from its begin, which
  /// then are stored. Parts that get their alpha afterwards stay in the nearest cache meanwhile.
  template <typename Write>
  void WriteParts(int64_t y, Write&& write) {
    const int64_t most = out_.TakesAlpha() ? kPartColumns : kTileColumns;
    ForEachTile(0, Count(), most, [&](int64_t first, int64_t count) {
      write(Open(y, first), static_cast<size_t>(first) * Step(),
            static_cast<size_t>(count) * Step());
      Close(y, first, count);
    });
  }

 protected:
  static constexpr int64_t kPartColumns = 512;

  Strip(const SourceRows& source, DestRows& out, const Interval& window, int64_t in_count)
      : source_(source), out_(out), window_(window), in_count_(in_count) {}
  ~Strip() = default;
  /// `Prefetch` for `count` windows from column `x` on, `rows_ahead` rows further down.
  void PrefetchPart(int64_t y, int64_t after, int64_t rows_ahead, int64_t x, int64_t count) const;

  const SourceRows& source_;
  DestRows& out_;
  const Interval window_;

 private:
  const int64_t in_count_;
};

/// Neighbouring columns whose windows lie inside the image, whose rows are read where they are.
class InnerStrip final : public Strip {
 public:
  /// `count` columns from `x` on; `outside` is a row of pixels that stand for those above and
  /// below.
  InnerStrip(const SourceRows& source, DestRows& out, const Interval& window, int64_t x,
             int64_t count, const uint8_t* outside)
      : Strip(source, out, window, count + window.count - 1), x_(x), outside_(outside) {}

  const uint8_t* Read(int64_t y, uint8_t* scratch) const override;
  bool InPlace() const override { return true; }
  void Prefetch(int64_t y, int64_t after) const override;
  uint8_t* Open(int64_t y, int64_t first) override { return out_.Open(y, x_ + first); }
  void Close(int64_t y, int64_t first, int64_t count) override { out_.Close(y, x_ + first, count); }

 private:
  const int64_t x_;
  const uint8_t* const outside_;
};

/// Any columns: rows are put together in scratch rows. The ends of rows may be one strip, the right
/// one joined to the left one; windows that begin in the last pixels of the left one belong to
/// neither and are not stored.
class AssembledStrip final : public Strip {
 public:
  /// Columns of the output that lie side by side.
  struct Piece {
    int64_t x;
    int64_t count;
  };
  /// Most bytes of outputs of two pieces, those between them included: one part.
  static constexpr size_t kMostJoined = 4 * kPartColumns;

  AssembledStrip(const SourceRows& source, DestRows& out, const Interval& window, const Piece& left,
                 const Piece& right = {})
      : Strip(source, out, window, Covered(left, window) + Covered(right, window)),
        pieces_{left, right} {}

  const uint8_t* Read(int64_t y, uint8_t* scratch) const override;
  bool InPlace() const override { return false; }
  void Prefetch(int64_t y, int64_t after) const override;
  uint8_t* Open(int64_t y, int64_t first) override;
  void Close(int64_t y, int64_t first, int64_t count) override;

 private:
  static int64_t Covered(const Piece& piece, const Interval& window) {
    return piece.count == 0 ? 0 : piece.count + window.count - 1;
  }
  bool IsJoined() const { return pieces_[1].count != 0; }

  const Piece pieces_[2];
  uint8_t joined_[kMostJoined];
};

/// Fills `pixels` with copies of one pixel. They may begin with it.
void RepeatPixel(uint8_t* pixels, int64_t count, const uint8_t* pixel, int pixel_bytes);

/// Most columns of strips of one piece: of those that are assembled, and of those in place.
struct StripWidths {
  int64_t assembled;
  int64_t in_place;
};

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

/// The strips that together cover the output: where there are enough columns whose windows lie
/// inside the image, these as `InnerStrip`s and the ends of the rows as one more strip.
class Strips {
 public:
  /// Functions that work on the rows may read `slack` bytes past their pixels, at most `kRowSlack`;
  /// where there are fewer than `kFewestInPlace` windows, they may read that many. Inner strips
  /// take a scratch row at the end of `scratch`.
  Strips(const SourceRows& source, DestRows& out, const Interval& window, const StripWidths& most,
         size_t slack, std::span<uint8_t> scratch);

  int64_t count() const { return tiles_.count() + (HasEnds() ? 1 : 0); }
  /// Strip `i`, until the next one is asked for.
  Strip& operator[](int64_t i);

  /// True when all strips are in place, but for the ends of the rows.
  bool InPlace() const { return outside_ != nullptr; }
  /// True when the last strip is the ends of the rows.
  bool HasEnds() const { return inner_.count < out_.Columns(); }
  AssembledStrip::Piece LeftEnd() const { return {0, inner_.first}; }
  AssembledStrip::Piece RightEnd() const {
    const int64_t end = inner_.first + inner_.count;
    return {end, out_.Columns() - end};
  }

 private:
  const SourceRows& source_;
  DestRows& out_;
  const Interval window_;
  uint8_t* outside_ = nullptr;  ///< a scratch row; null when nothing is read in place
  Interval inner_;              ///< the columns that are not ends
  Tiles tiles_;                 ///< of these
  std::optional<InnerStrip> inner_strip_;
  std::optional<AssembledStrip> assembled_strip_;
};

/// Calls visit(strip) for each of `Strips`.
template <typename Visitor>
void ForEachStrip(const SourceRows& source, DestRows& out, const Interval& window,
                  const StripWidths& most, size_t slack, std::span<uint8_t> scratch,
                  Visitor&& visit) {
  Strips strips(source, out, window, most, slack, scratch);
  for (int64_t i = 0; i < strips.count(); ++i) visit(strips[i]);
}

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

/// Stores `color` in every pixel.
void FillPixels(const ImageView& dest, uint32_t color);

/// True when there is something to compute: pixels to write, of a depth that stores any.
inline bool StoresPixels(const ImageView& dest) {
  return dest.HasPixels() && PixelBytes(dest.bit_count) != 0;
}

}  // namespace qel

#endif  // QEL_FILTER_NEIGHBOURHOOD_H_
