#include <cstring>
#include <span>

#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "filter/neighbourhood.h"
#include "module/result_image.h"

namespace qel {
namespace {

// Extrema of square windows at a cost that hardly depends on their size. Output rows are taken in
// groups of at most as many rows as a window has. The windows of a group share a core of rows;
// above it each takes an end piece of the rows that only the first ones reach, and below it a
// growing piece of the rows that only the last ones reach. So each row is folded in about three
// times. Columns follow: by widening windows threefold, or, where a window is wider than scratch
// rows, by the same grouping.

/// Windows up to this size are reduced from extended rows; wider ones before rows are combined.
constexpr int64_t kWidestExtension = 127;
/// Most rows of a group, for one extremum and for two.
constexpr int64_t kGroupRows[] = {32, 20};
/// Columns of a tile, and of the pieces in which a core is read, for wider windows.
constexpr int64_t kWideColumns = 128;

/// One extremum on its way down a tile.
struct Extremum {
  const ExtremumKernels* kernels;
  uint8_t* above;    ///< one row per member of the group but the last: its end piece
  uint8_t* running;  ///< the core and what has been added below it
};

/// The scratch rows of one tile.
class Scratch {
 public:
  explicit Scratch(size_t pitch) : pitch_(pitch) {}
  size_t pitch() const { return pitch_; }
  uint8_t* Take(size_t rows) {
    uint8_t* const taken = memory_ + used_;
    used_ += rows * pitch_;
    return taken;
  }

 private:
  alignas(64) uint8_t memory_[kScratchBytes];
  const size_t pitch_;
  size_t used_ = 0;
};

/// Reduces windows of `size` samples: dest[k] is the extremum of row[k], row[k + step], ...
/// `spare` are two scratch rows, `row` is a third.
void ReduceAcross(const ExtremumKernels& kernels, uint8_t* dest, const uint8_t* row, size_t count,
                  size_t step, size_t size, uint8_t* spare, size_t pitch) {
  if (size == 1) {
    std::memcpy(dest, row, count);
    return;
  }
  size_t width = 1;
  const uint8_t* from = row;
  uint8_t* to = spare;
  while (3 * width < size) {
    const size_t jump = width * step;
    width *= 3;
    kernels.pick3(to, from, from + jump, from + 2 * jump, count + (size - width) * step);
    from = to;
    to = to == spare ? spare + pitch : spare;
  }
  const uint8_t* const last = from + (size - width) * step;
  if (size <= 2 * width) {
    kernels.pick(dest, from, last, count);
  } else {
    kernels.pick3(dest, from, from + width * step, last, count);
  }
}

/// Folds a row of `samples` samples into its first one.
void FoldToOne(const ExtremumKernels& kernels, uint8_t* row, size_t samples, size_t step) {
  while (samples > 1) {
    const size_t half = samples / 2;
    samples -= half;
    kernels.fold(row, row + samples * step, half * step);
  }
}

/// A tile of columns and the windows about its pixels.
class Tile {
 public:
  Tile(const SourceRows& source, const ImageShape& shape, const Reach& reach, int64_t first,
       int64_t count)
      : source_(source), shape_(shape), reach_(reach), first_(first), count_(count) {}

  bool Wide() const { return Size() > kWidestExtension; }
  size_t Size() const { return static_cast<size_t>(reach_.before + reach_.after + 1); }
  size_t Step() const { return static_cast<size_t>(source_.sample_bytes()); }
  int64_t Columns() const { return count_; }
  int64_t First() const { return first_; }
  const Reach& Windows() const { return reach_; }
  int64_t Rows() const { return shape_.Rows(); }
  size_t OutBytes() const { return static_cast<size_t>(count_) * Step(); }
  /// Bytes of the rows that are combined: extended, or already reduced across.
  size_t RowBytes() const { return OutBytes() + (Wide() ? 0 : (Size() - 1) * Step()); }

  size_t Pitch() const {
    return ScratchPitch(Wide() ? static_cast<size_t>(kWideColumns) * Step() : RowBytes());
  }

  /// Reads row `y` as it is to be combined. `spare` are four scratch rows for wide windows.
  void Read(const ExtremumKernels& kernels, int64_t y, uint8_t* row, uint8_t* spare,
            size_t pitch) const {
    if (Wide()) {
      ReadReduced(kernels, y, row, spare, pitch);
    } else {
      source_.Fetch(y, first_ - reach_.before, static_cast<int64_t>(RowBytes() / Step()), row);
    }
  }

 private:
  /// The same for columns as a group does for rows: a shared core, an end piece to the left and a
  /// growing piece to the right of it.
  void ReadReduced(const ExtremumKernels& kernels, int64_t y, uint8_t* row, uint8_t* spare,
                   size_t pitch) const {
    uint8_t* const core = spare;
    uint8_t* const ends = spare + pitch;
    ReadCore(kernels, y, core, ends);
    // The ends to the left, each of which includes those right of it.
    const uint8_t* from = Accumulate(kernels, y, first_ - reach_.before, ends, pitch, true);
    std::memcpy(row, from, OutBytes() - Step());
    std::memcpy(row + OutBytes() - Step(), core, Step());
    RepeatSample(core, count_ - 1, core, source_.sample_bytes());
    kernels.fold(row, core, OutBytes() - Step());
    from = Accumulate(kernels, y, first_ + reach_.after + 1, ends, pitch, false);
    kernels.fold(row + Step(), from, OutBytes() - Step());
  }

  /// Folds the columns that all windows of the tile contain into one sample.
  void ReadCore(const ExtremumKernels& kernels, int64_t y, uint8_t* core, uint8_t* piece) const {
    // Everything outside is alike: one column of it on either side is enough.
    const int64_t begin = std::max<int64_t>(first_ + count_ - 1 - reach_.before, -1);
    const int64_t end = std::min(first_ + reach_.after, shape_.Columns()) + 1;
    const int64_t first_piece = std::min(kWideColumns, end - begin);
    source_.Fetch(y, begin, first_piece, core);
    for (int64_t x = begin + first_piece; x < end; x += kWideColumns) {
      const int64_t columns = std::min(kWideColumns, end - x);
      source_.Fetch(y, x, columns, piece);
      kernels.fold(core, piece, static_cast<size_t>(columns) * Step());
    }
    FoldToOne(kernels, core, static_cast<size_t>(first_piece), Step());
  }

  /// Reads one column less than the tile has and lets each include all those after or before it.
  const uint8_t* Accumulate(const ExtremumKernels& kernels, int64_t y, int64_t x, uint8_t* ends,
                            size_t pitch, bool after) const {
    const size_t bytes = OutBytes() - Step();
    uint8_t* from = ends;
    uint8_t* to = ends + pitch;
    source_.Fetch(y, x, count_ - 1, from);
    for (size_t jump = Step(); jump < bytes; jump *= 2) {
      // What has no partner at that distance is complete.
      kernels.pick(to + (after ? 0 : jump), from, from + jump, bytes - jump);
      const size_t complete = after ? bytes - jump : 0;
      std::memcpy(to + complete, from + complete, jump);
      std::swap(from, to);
    }
    return from;
  }

  const SourceRows& source_;
  const ImageShape& shape_;
  const Reach reach_;
  const int64_t first_;
  const int64_t count_;
};

/// Computes the extrema of one tile: one, or the second subtracted from the first.
class TileReducer {
 public:
  TileReducer(const Tile& tile, std::span<const ExtremumKernels* const> kernels, DestRows& out)
      : tile_(tile), out_(out), count_(kernels.size()), scratch_(tile.Pitch()) {
    const size_t rest = kScratchBytes / scratch_.pitch() - kSharedRows;
    group_ = std::min({static_cast<int64_t>(rest / count_), kGroupRows[count_ - 1],
                       static_cast<int64_t>(tile.Size())});
    row_ = scratch_.Take(1);
    combined_ = scratch_.Take(1);
    spare_ = scratch_.Take(3);
    for (size_t e = 0; e < count_; ++e) {
      uint8_t* const above = scratch_.Take(static_cast<size_t>(group_));
      extrema_[e] = {kernels[e], above, above + static_cast<size_t>(group_ - 1) * scratch_.pitch()};
    }
  }

  void Run() {
    for (int64_t y = 0; y < tile_.Rows(); y += group_) {
      RunGroup(y, std::min(group_, tile_.Rows() - y));
    }
  }

  /// Scratch rows that do not depend on the size of the group.
  static constexpr size_t kSharedRows = 5;

 private:
  uint8_t* Above(const Extremum& extremum, int64_t member) const {
    return extremum.above + static_cast<size_t>(member) * scratch_.pitch();
  }

  /// Calls visit(extremum, row) with row `y` for each extremum.
  template <typename Visitor>
  void VisitRow(int64_t y, Visitor&& visit) {
    for (size_t e = 0; e < count_; ++e) {
      // Extended rows are the same for all extrema.
      if (e == 0 || tile_.Wide()) {
        tile_.Read(*extrema_[e].kernels, y, row_, combined_, scratch_.pitch());
      }
      visit(extrema_[e], row_);
    }
  }

  void RunGroup(int64_t y, int64_t members) {
    const size_t bytes = tile_.RowBytes();
    const Reach& reach = tile_.Windows();
    for (int64_t member = members - 2; member >= 0; --member) {
      VisitRow(y + member - reach.before, [&](const Extremum& extremum, const uint8_t* row) {
        uint8_t* const above = Above(extremum, member);
        if (member == members - 2) {
          std::memcpy(above, row, bytes);
        } else {
          extremum.kernels->pick(above, row, Above(extremum, member + 1), bytes);
        }
      });
    }
    // Everything outside is alike: one row of it on either side is enough.
    const int64_t begin = std::max<int64_t>(y + members - 1 - reach.before, -1);
    const int64_t end = std::min(y + reach.after, tile_.Rows());
    for (int64_t core = begin; core <= end; ++core) Include(core, core == begin);
    for (int64_t member = 0; member < members; ++member) {
      if (member > 0) Include(y + reach.after + member, false);
      Write(y + member, member, members);
    }
  }

  void Include(int64_t y, bool first) {
    VisitRow(y, [&](const Extremum& extremum, const uint8_t* row) {
      if (first) {
        std::memcpy(extremum.running, row, tile_.RowBytes());
      } else {
        extremum.kernels->fold(extremum.running, row, tile_.RowBytes());
      }
    });
  }

  void Write(int64_t y, int64_t member, int64_t members) {
    uint8_t* const dest = out_.Open(y, tile_.First());
    Reduce(extrema_[0], member, members, dest);
    if (count_ > 1) {
      Reduce(extrema_[1], member, members, row_);
      ActiveFilterKernels().subtract(dest, row_, tile_.OutBytes());
    }
    out_.Close(y, tile_.First(), tile_.Columns());
  }

  void Reduce(const Extremum& extremum, int64_t member, int64_t members, uint8_t* dest) {
    const uint8_t* window = extremum.running;
    if (member < members - 1) {
      extremum.kernels->pick(combined_, window, Above(extremum, member), tile_.RowBytes());
      window = combined_;
    }
    ReduceAcross(*extremum.kernels, dest, window, tile_.OutBytes(), tile_.Step(),
                 tile_.Wide() ? 1 : tile_.Size(), spare_, scratch_.pitch());
  }

  const Tile& tile_;
  DestRows& out_;
  const size_t count_;
  Scratch scratch_;
  int64_t group_;
  uint8_t* row_;
  uint8_t* combined_;
  uint8_t* spare_;
  Extremum extrema_[2];
};

/// Most columns of a tile: as many as leave room for the groups.
int64_t TileWidth(const Reach& reach, size_t extrema, int64_t step) {
  const int64_t size = reach.before + reach.after + 1;
  if (size > kWidestExtension) return kWideColumns;
  const auto rows = static_cast<int64_t>(TileReducer::kSharedRows) +
                    static_cast<int64_t>(extrema) * std::min(size, kGroupRows[extrema - 1]);
  const auto bytes = static_cast<int64_t>(kScratchBytes) / rows - int64_t{kRowSlack} - 128;
  return bytes / step - (size - 1);
}

void ReduceWindows(const ImageView& source, const ImageView& dest, int size,
                   std::span<const ExtremumKernels* const> kernels) {
  const Reach reach(size);
  const SourceRows rows(source);
  DestRows out(dest, source, reach.after);
  const int64_t most = TileWidth(reach, kernels.size(), rows.sample_bytes());
  ForEachTile(dest.Columns(), most, [&](int64_t x, int64_t count) {
    const Tile tile(rows, dest, reach, x, count);
    TileReducer(tile, kernels, out).Run();
  });
}

/// The common course of the three operations. `empty` is what windows without pixels give.
result_t Run(IQEL* image, int size, std::span<const ExtremumKernels* const> kernels, uint32_t empty,
             IQEL** result) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadView(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (size <= 0) {
    FillPixels(dest, empty);
  } else if (StoresPixels(dest)) {
    ReduceWindows(source, dest, size, kernels);
  }
  return output.HandOver(image, result);
}

constexpr uint32_t kWhite = PackColour(255, 255, 255, 0);
constexpr uint32_t kBlack = PackColour(0, 0, 0, 0);

}  // namespace

result_t CQELFilterTransform::Erode(IQEL* image, int size, IQEL** result) {
  const ExtremumKernels* const kernels[] = {&ActiveFilterKernels().minimum};
  return Run(image, size, kernels, kWhite, result);
}

result_t CQELFilterTransform::Dilate(IQEL* image, int size, IQEL** result) {
  const ExtremumKernels* const kernels[] = {&ActiveFilterKernels().maximum};
  return Run(image, size, kernels, kBlack, result);
}

result_t CQELFilterTransform::Edge(IQEL* image, int size, IQEL** result) {
  const ExtremumKernels* const kernels[] = {&ActiveFilterKernels().maximum,
                                            &ActiveFilterKernels().minimum};
  return Run(image, size, kernels, kWhite, result);
}

}  // namespace qel
