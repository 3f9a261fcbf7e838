#ifndef QEL_FILTER_STRIPS_H_
#define QEL_FILTER_STRIPS_H_

#include <optional>

#include "filter/pixel_rows.h"

namespace qel {

// The columns of an image are taken in strips. Where the windows of a strip stay inside the image,
// its rows are read in place. At the ends of rows, and at depths below 8 bits, they are copied into
// scratch rows that reach beyond the image, with the outside color in place. So no pixel is a
// border pixel any more and neighbour (i, j) of every pixel lies at a fixed distance.

/// How far the neighbourhood of a positive size reaches from its pixel, in both directions.
/// Deliberate: even sizes reach one further up and left than down and right.
struct Reach {
  explicit constexpr Reach(int size) : before(size / 2), after(int64_t{size} - 1 - size / 2) {}
  int64_t before;
  int64_t after;
};

/// Rows are read in place where windows begin at no fewer pixels than this.
inline constexpr int64_t kFewestInPlace = 64;

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

/// Most columns of strips of one piece: of those that are assembled, and of those in place.
struct StripWidths {
  int64_t assembled;
  int64_t in_place;
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

}  // namespace qel

#endif  // QEL_FILTER_STRIPS_H_
