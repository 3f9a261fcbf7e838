#ifndef QEL_FILTER_NEIGHBOURHOOD_H_
#define QEL_FILTER_NEIGHBOURHOOD_H_

#include <algorithm>
#include <cstddef>

#include "image/image_view.h"

namespace qel {

// The one walk through neighbourhoods. The columns of an image are taken in strips. Where the
// windows of a strip stay inside the image, its rows are read in place. At the ends of rows, and at
// depths below 8 bits, they are copied into scratch rows that reach beyond the image, with the
// outside colour in place. So no pixel is a border pixel any more and neighbour (i, j) of every
// pixel lies at a fixed distance. Rows hold samples: whole pixels at 32 and 24 bits, one level per
// pixel at palette depths, whose channels are equal.

/// Bytes of a sample: 4, 3 or 1; 0 for depths that store nothing.
constexpr int SampleBytes(int bit_count) {
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

/// All scratch of an operation together: a fixed block on the stack, whatever the image and size.
inline constexpr size_t kScratchBytes = 56 * 1024;
/// Most columns of a tile.
inline constexpr int64_t kTileColumns = 4096;
/// Readable bytes after the samples of a scratch row, for vectors that start inside it.
inline constexpr size_t kRowSlack = 128;
/// Rows are read in place where windows begin at no fewer samples than this.
inline constexpr int64_t kFewestInPlace = 64;

/// Bytes from scratch row to scratch row: room for `bytes` and the slack, in whole cache lines, and
/// an odd number of these so that rows do not meet in the same sets of the cache.
constexpr size_t ScratchPitch(size_t bytes) { return ((bytes + kRowSlack + 63) / 64 | 1) * 64; }

/// Divides the columns from `first` up to `end` evenly into tiles of at most `most` columns and
/// calls visit(x, count).
template <typename Visitor>
void ForEachTile(int64_t first, int64_t end, int64_t most, Visitor&& visit) {
  most = std::clamp<int64_t>(most, 1, kTileColumns);
  const int64_t columns = end - first;
  const int64_t tiles = (columns + most - 1) / most;
  for (int64_t i = 0; i < tiles; ++i) {
    const int64_t from = columns * i / tiles;
    visit(first + from, columns * (i + 1) / tiles - from);
  }
}

/// Reads scratch rows of an image, anywhere in and around it.
class SourceRows {
 public:
  explicit SourceRows(const ImageView& source);

  int sample_bytes() const { return sample_bytes_; }
  /// The sample that stands in for everything outside.
  const uint8_t* outside() const { return outside_; }
  /// True when the pixels of the image are samples as they are.
  bool InPlace() const { return source_.HasPixels() && source_.bit_count >= 8; }
  /// The sample of pixel (x, y) in the image, which is `InPlace`; null for rows outside of it.
  const uint8_t* At(int64_t y, int64_t x) const {
    return y >= 0 && y < source_.Rows() ? source_.Row(y) + x * sample_bytes_ : nullptr;
  }
  int64_t Columns() const { return source_.Columns(); }
  /// Writes the samples of the pixels (x, y) to (x + count - 1, y).
  void Fetch(int64_t y, int64_t x, int64_t count, uint8_t* samples) const;

 private:
  void FetchOutside(int64_t count, uint8_t* samples) const;

  static constexpr int64_t kOutsideSamples = 64;

  const ImageView source_;
  const int sample_bytes_;
  uint8_t outside_[kOutsideSamples * 4];
};

/// Writes samples to an image.
class DestRows {
 public:
  /// Samples are stored as they are.
  explicit DestRows(const ImageView& dest) : DestRows(dest, dest, 0) { KeepAlpha(); }
  /// Alpha of 32-bit pixels is not taken from the samples but from the pixel of `source` that lies
  /// `alpha_shift` further right and down; outside, and without source pixels, it is the marker.
  DestRows(const ImageView& dest, const ImageView& source, int64_t alpha_shift)
      : dest_(dest), source_(source), alpha_shift_(alpha_shift) {}

  /// Where the samples of pixels from (x, y) on are to be written, at most `kTileColumns` of them.
  uint8_t* Open(int64_t y, int64_t x) {
    return dest_.bit_count >= 8 && !TakesAlpha() ? At(y, x) : row_;
  }
  /// Stores what was written since `Open`.
  void Close(int64_t y, int64_t x, int64_t count);
  int64_t Rows() const { return dest_.Rows(); }
  int64_t Columns() const { return dest_.Columns(); }
  /// Where pixel (x, y) lies, at whole bytes.
  uint8_t* At(int64_t y, int64_t x) const {
    return dest_.Row(y) + x * SampleBytes(dest_.bit_count);
  }

  /// From now on, samples bring their alpha with them.
  void KeepAlpha() { keeps_alpha_ = true; }
  /// True when samples are stored with another alpha than their own.
  bool TakesAlpha() const { return dest_.bit_count == 32 && !keeps_alpha_; }

 private:
  void StoreWithAlpha(int64_t y, int64_t x, int64_t count);

  const ImageView dest_;
  const ImageView source_;
  const int64_t alpha_shift_;
  bool keeps_alpha_ = false;
  uint8_t row_[kTileColumns * 4];
};

/// The columns that the window of a pixel covers: `count` of them from `first` on, counted from the
/// pixel's own.
struct WindowColumns {
  int64_t first;
  int64_t count;
};

/// Some columns of the output, and the samples of each row that their windows cover: windows begin
/// at neighbouring samples.
class Strip {
 public:
  /// Columns of the output that lie side by side.
  struct Piece {
    int64_t x;
    int64_t count;
  };

  /// A strip whose rows are assembled in scratch rows. Two pieces are joined: the windows that
  /// begin in the last samples of the first one belong to neither.
  Strip(const SourceRows& source, DestRows& out, const WindowColumns& window, const Piece& piece)
      : source_(source), out_(out), window_(window), pieces_{piece} {}
  Strip(const SourceRows& source, DestRows& out, const WindowColumns& window, const Piece& left,
        const Piece& right)
      : source_(source), out_(out), window_(window), pieces_{left, right} {}
  /// A strip whose rows lie in the image; `outside` is a row of samples for those above and below.
  Strip(const SourceRows& source, DestRows& out, const WindowColumns& window, const Piece& piece,
        const uint8_t* outside)
      : source_(source), out_(out), window_(window), pieces_{piece}, outside_(outside) {}

  bool InPlace() const { return outside_ != nullptr; }
  size_t Step() const { return static_cast<size_t>(source_.sample_bytes()); }
  int64_t Rows() const { return out_.Rows(); }
  /// Windows of the strip.
  int64_t Count() const { return InCount() - window_.count + 1; }
  size_t OutBytes() const { return static_cast<size_t>(Count()) * Step(); }
  /// Samples that the windows cover.
  int64_t InCount() const {
    const int64_t left = pieces_[0].count + window_.count - 1;
    return pieces_[1].count == 0 ? left : left + pieces_[1].count + window_.count - 1;
  }
  size_t InBytes() const { return static_cast<size_t>(InCount()) * Step(); }
  /// The samples under the windows of row `y`: in the image, or assembled in `slot`, which is
  /// a scratch row of `InBytes`.
  const uint8_t* Read(int64_t y, uint8_t* slot) const;
  /// Asks for what comes after output row `y`, whose windows reach down to row y + after, to be
  /// brought near. Several short pieces of memory at once are more than processors follow by
  /// themselves.
  void Prefetch(int64_t y, int64_t after);

  /// Where the samples of the windows of row `y` are to be written, and what stores them.
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

/// Fills `samples` with copies of one sample. They may begin with it.
void RepeatSample(uint8_t* samples, int64_t count, const uint8_t* sample, int sample_bytes);

/// Most columns of strips of one piece: of those that are assembled, and of those in place.
struct StripWidths {
  int64_t assembled;
  int64_t in_place;
};

/// Calls visit(strip) for strips that together cover the output. Functions that work on the rows
/// may read `slack` bytes past their samples, which is at most `kRowSlack`; where there are fewer
/// than `kFewestInPlace` windows, they may read that many.
template <typename Visitor>
void ForEachStrip(const SourceRows& source, DestRows& out, const WindowColumns& window,
                  const StripWidths& most, size_t slack, Visitor&& visit) {
  const int64_t step = source.sample_bytes();
  const int64_t columns = out.Columns();
  const auto tile = [&](int64_t x, int64_t count) {
    Strip strip(source, out, window, {x, count});
    visit(strip);
  };
  // The columns whose windows lie inside.
  const int64_t past = window.first + window.count - 1;
  const int64_t spare = (static_cast<int64_t>(slack) + step - 1) / step;
  const int64_t begin = std::max<int64_t>(-window.first, 0);
  const int64_t end = columns - std::max<int64_t>(past + spare, 0);
  const int64_t joined = begin + columns - end + window.count - 1;
  const bool ends_fit =
      joined <= most.assembled && joined * step <= static_cast<int64_t>(Strip::kMostJoined);
  if (!source.InPlace() || source.Columns() != columns || end - begin < kFewestInPlace ||
      most.in_place < 2 * kFewestInPlace || !ends_fit) {
    ForEachTile(0, columns, most.assembled, tile);
    return;
  }
  uint8_t outside[kTileColumns * 4 + Strip::kMostJoined + kRowSlack];
  const int64_t widest = std::min(end - begin, kTileColumns) + window.count - 1 + spare;
  RepeatSample(outside, widest, source.outside(), source.sample_bytes());
  ForEachTile(begin, end, most.in_place, [&](int64_t x, int64_t count) {
    Strip strip(source, out, window, {x, count}, outside);
    visit(strip);
  });
  if (begin == 0) {
    if (end < columns) tile(end, columns - end);
  } else {
    Strip strip(source, out, window, {0, begin}, {end, columns - end});
    visit(strip);
  }
}

/// Calls row_function(dest, rows, bytes) for every output row of windows of 3 x 3 samples, or parts
/// of it; `rows` are the rows of the windows from the first window on.
template <typename RowFunction>
void ForEachRowOfSquares(const SourceRows& source, DestRows& out, RowFunction&& row_function) {
  constexpr int kRows = 3;
  alignas(64) uint8_t scratch[kScratchBytes];
  const auto bytes = static_cast<int64_t>(kScratchBytes / kRows - kRowSlack - 128);
  const int64_t assembled = bytes / source.sample_bytes() - (kRows - 1);
  ForEachStrip(source, out, {-1, kRows}, {assembled, kTileColumns}, 0, [&](Strip& strip) {
    const size_t pitch = ScratchPitch(strip.InBytes());
    const auto read = [&](int64_t y) {
      return strip.Read(y, scratch + static_cast<size_t>((y + kRows) % kRows) * pitch);
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

/// Stores `colour` in every pixel.
void FillPixels(const ImageView& dest, uint32_t colour);

/// True when there is something to compute: pixels to write, of a depth that stores any.
inline bool StoresPixels(const ImageView& dest) {
  return dest.HasPixels() && SampleBytes(dest.bit_count) != 0;
}

}  // namespace qel

#endif  // QEL_FILTER_NEIGHBOURHOOD_H_
