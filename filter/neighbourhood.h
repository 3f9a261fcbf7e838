#ifndef QEL_FILTER_NEIGHBOURHOOD_H_
#define QEL_FILTER_NEIGHBOURHOOD_H_

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>

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
/// Most columns of a tile.
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
    most = std::clamp<int64_t>(most, 1, kTileColumns);
    count_ = (columns_ + most - 1) / most;
  }
  int64_t count() const { return count_; }
  /// Where tile `i` begins; that of number `count` is the end.
  int64_t operator[](int64_t i) const { return first_ + columns_ * i / count_; }

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
  void Fetch(int64_t y, int64_t x, int64_t count, uint8_t* pixels) const;

 private:
  void FetchOutside(int64_t count, uint8_t* pixels) const;

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

/// The columns that the window of a pixel covers: `count` of them from `first` on, counted from the
/// pixel's own.
struct WindowColumns {
  int64_t first;
  int64_t count;
};

/// Some columns of the output, and the pixels of each row that their windows cover: windows begin
/// at neighbouring pixels.
class Strip {
 public:
  /// Columns of the output that lie side by side.
  struct Piece {
    int64_t x;
    int64_t count;
  };

  /// A strip whose rows are assembled in scratch rows, or, with a row of pixels `outside` for
  /// those above and below, lie in the image. Two pieces are joined: the windows that begin in the
  /// last pixels of the first one belong to neither.
  Strip(const SourceRows& source, DestRows& out, const WindowColumns& window, const Piece& left,
        const Piece& right = {}, const uint8_t* outside = nullptr)
      : source_(source), out_(out), window_(window), pieces_{left, right}, outside_(outside) {}

  bool InPlace() const { return outside_ != nullptr; }
  size_t Step() const { return static_cast<size_t>(source_.pixel_bytes()); }
  int64_t Rows() const { return out_.Rows(); }
  /// Windows of the strip.
  int64_t Count() const { return InCount() - window_.count + 1; }
  size_t OutBytes() const { return static_cast<size_t>(Count()) * Step(); }
  /// Pixels that the windows cover.
  int64_t InCount() const {
    const int64_t left = pieces_[0].count + window_.count - 1;
    return pieces_[1].count == 0 ? left : left + pieces_[1].count + window_.count - 1;
  }
  size_t InBytes() const { return static_cast<size_t>(InCount()) * Step(); }
  /// The pixels under the windows of row `y`: in the image, or assembled in `slot`, which is
  /// a scratch row of `InBytes`.
  const uint8_t* Read(int64_t y, uint8_t* slot) const;
  /// Asks for what comes after output row `y`, whose windows reach down to row y + after, to be
  /// brought near. Several short pieces of memory at once are more than processors follow by
  /// themselves.
  void Prefetch(int64_t y, int64_t after);

  /// Where the output pixels of row `y` are to be written, and what stores them.
  uint8_t* Open(int64_t y) { return pieces_[1].count == 0 ? out_.Open(y, pieces_[0].x) : joined_; }
  void Close(int64_t y);
  /// Calls write(dest, first, bytes) for the parts of row `y`, `first` bytes from its begin, which
  /// then are stored. Parts that get their alpha afterwards stay in the nearest cache meanwhile.
  template <typename Write>
  void WriteParts(int64_t y, Write&& write) {
    if (pieces_[1].count != 0 || !out_.TakesAlpha()) {
      write(Open(y), size_t{0}, OutBytes());
      Close(y);
      return;
    }
    constexpr int64_t kPartColumns = 512;
    const Piece& piece = pieces_[0];
    ForEachTile(piece.x, piece.x + piece.count, kPartColumns, [&](int64_t x, int64_t count) {
      const auto bytes = static_cast<size_t>(count) * Step();
      write(out_.Open(y, x), static_cast<size_t>(x - piece.x) * Step(), bytes);
      out_.Close(y, x, count);
    });
  }

  /// Most bytes that the windows of two pieces give.
  static constexpr size_t kMostJoined = 2048;

 private:
  const SourceRows& source_;
  DestRows& out_;
  const WindowColumns window_;
  const Piece pieces_[2] = {};
  const uint8_t* outside_ = nullptr;
  uint8_t joined_[kMostJoined];
};

/// Fills `pixels` with copies of one pixel. They may begin with it.
void RepeatPixel(uint8_t* pixels, int64_t count, const uint8_t* pixel, int pixel_bytes);

/// Most columns of strips of one piece: of those that are assembled, and of those in place.
struct StripWidths {
  int64_t assembled;
  int64_t in_place;
};

/// Calls visit(strip) for strips that together cover the output. Functions that work on the rows
/// may read `slack` bytes past their pixels, which is at most `kRowSlack`; where there are fewer
/// than `kFewestInPlace` windows, they may read that many. Strips in place take a scratch row at
/// the end of `scratch`.
template <typename Visitor>
void ForEachStrip(const SourceRows& source, DestRows& out, const WindowColumns& window,
                  const StripWidths& most, size_t slack, std::span<uint8_t> scratch,
                  Visitor&& visit) {
  const int64_t step = source.pixel_bytes();
  const int64_t columns = out.Columns();
  // The columns whose windows lie inside.
  const int64_t past = window.first + window.count - 1;
  const int64_t spare = (static_cast<int64_t>(slack) + step - 1) / step;
  int64_t begin = std::max<int64_t>(-window.first, 0);
  int64_t end = columns - std::max<int64_t>(past + spare, 0);
  const int64_t joined = begin + columns - end + window.count - 1;
  const bool ends_fit =
      joined <= most.assembled && joined * step <= static_cast<int64_t>(Strip::kMostJoined);
  uint8_t* outside = nullptr;
  if (source.InPlace() && source.Columns() == columns && end - begin >= kFewestInPlace &&
      most.in_place >= 2 * kFewestInPlace && ends_fit) {
    const int64_t widest = std::min({end - begin, most.in_place, kTileColumns}) + window.count - 1;
    outside = scratch.data() + scratch.size() - ScratchPitch(static_cast<size_t>(widest * step));
    RepeatPixel(outside, widest + static_cast<int64_t>(slack) / step, source.outside(),
                source.pixel_bytes());
  } else {
    begin = 0;
    end = columns;
  }
  // One call of `visit`, which may be inlined with all it calls: the ends come as one more tile.
  const Tiles tiles(begin, end, outside != nullptr ? most.in_place : most.assembled);
  const int64_t strips = tiles.count() + (begin > 0 || end < columns ? 1 : 0);
  for (int64_t i = 0; i < strips; ++i) {
    Strip::Piece left = {0, begin};
    Strip::Piece right = {end, columns - end};
    const bool in_place = outside != nullptr && i < tiles.count();
    if (i < tiles.count()) {
      left = {tiles[i], tiles[i + 1] - tiles[i]};
      right = {};
    } else if (begin == 0) {
      left = std::exchange(right, {});
    }
    Strip strip(source, out, window, left, right, in_place ? outside : nullptr);
    visit(strip);
  }
}

/// Calls row_function(dest, rows, bytes) for every output row of windows of 3 x 3 pixels, or parts
/// of it; `rows` are the rows of the windows from the first window on.
template <typename RowFunction>
void ForEachRowOfSquares(const SourceRows& source, DestRows& out, std::span<uint8_t> scratch,
                         RowFunction&& row_function) {
  constexpr int kRows = 3;
  const int64_t assembled =
      ScratchRowBytes(scratch.size(), kRows) / source.pixel_bytes() - (kRows - 1);
  ForEachStrip(source, out, {-1, kRows}, {assembled, kTileColumns}, 0, scratch, [&](Strip& strip) {
    const size_t pitch = ScratchPitch(strip.InBytes());
    const auto read = [&](int64_t y) {
      return strip.Read(y, scratch.data() + static_cast<size_t>((y + kRows) % kRows) * pitch);
    };
    const uint8_t* rows[kRows] = {nullptr, read(-1), read(0)};
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, 1);
      rows[0] = rows[1];
      rows[1] = rows[2];
      rows[2] = read(y + 1);
      strip.WriteParts(y, [&](uint8_t* dest, size_t first, size_t part) {
        const uint8_t* const here[kRows] = {rows[0] + first, rows[1] + first, rows[2] + first};
        row_function(dest, here, part);
      });
    }
  });
}

/// Stores `color` in every pixel.
void FillPixels(const ImageView& dest, uint32_t color);

/// True when there is something to compute: pixels to write, of a depth that stores any.
inline bool StoresPixels(const ImageView& dest) {
  return dest.HasPixels() && PixelBytes(dest.bit_count) != 0;
}

}  // namespace qel

#endif  // QEL_FILTER_NEIGHBOURHOOD_H_
