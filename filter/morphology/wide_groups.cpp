#include <cstring>
#include <utility>

#include "filter/morphology/extrema_job.h"
#include "filter/morphology/extrema_plan.h"

// Extrema of the largest windows after van Herk (1992) and Gil and Werman (1993). Output rows are
// taken in groups. The windows of a group share a core of rows; above it each takes a suffix of the
// rows that only the first ones reach, and below it a running prefix of the rows that only the last
// ones reach: four comparisons a byte whatever the size. Rows are reduced across first, by the same
// grouping of columns.

namespace qel {
namespace {

/// Most rows of a group, for one extremum and for two.
constexpr int64_t kMostRows[] = {32, 20};
/// Scratch rows beside those of a group.
constexpr int64_t kSharedRows = 4;

/// The scratch rows of a strip.
class ScratchRows {
 public:
  ScratchRows(std::span<uint8_t> memory, size_t pitch) : memory_(memory.data()), pitch_(pitch) {}
  size_t pitch() const { return pitch_; }
  uint8_t* Take(int64_t rows) {
    uint8_t* const taken = memory_ + used_;
    used_ += static_cast<size_t>(rows) * pitch_;
    return taken;
  }

 private:
  uint8_t* const memory_;
  const size_t pitch_;
  size_t used_ = 0;
};

/// One extremum on its way down a strip.
struct Extremum {
  const ExtremumKernels* kernels;
  uint8_t* above;    ///< one row per member of the group but the last: its suffix
  uint8_t* running;  ///< the core and what has been added below it
};

/// Reduces wide windows of single rows.
class WideRows {
 public:
  WideRows(const SourceRows& source, const Reach& reach, int64_t first, int64_t count)
      : source_(source), reach_(reach), first_(first), count_(count) {}

  /// The same for columns as a group does for rows: a shared core, a suffix to the left and a
  /// prefix to the right of it. `spare` are three scratch rows.
  void Read(const ExtremumKernels& kernels, int64_t y, uint8_t* row, uint8_t* spare,
            size_t pitch) const {
    uint8_t* const core = spare;
    uint8_t* const ends = spare + pitch;
    ReadCore(kernels, y, core, ends);
    // The ends to the left, each of which includes those right of it.
    const uint8_t* from = Accumulate(kernels, y, first_ - reach_.before, ends, pitch, true);
    std::memcpy(row, from, Bytes() - Step());
    std::memcpy(row + Bytes() - Step(), core, Step());
    RepeatPixel(core, count_ - 1, core, source_.pixel_bytes());
    kernels.fold(row, core, Bytes() - Step());
    from = Accumulate(kernels, y, first_ + reach_.after + 1, ends, pitch, false);
    kernels.fold(row + Step(), from, Bytes() - Step());
  }

 private:
  size_t Step() const { return static_cast<size_t>(source_.pixel_bytes()); }
  size_t Bytes() const { return static_cast<size_t>(count_) * Step(); }

  /// Folds the columns that all windows of the tile contain into one pixel.
  void ReadCore(const ExtremumKernels& kernels, int64_t y, uint8_t* core, uint8_t* piece) const {
    // Everything outside is alike: one column of it on either side is enough.
    const int64_t begin = std::max<int64_t>(first_ + count_ - 1 - reach_.before, -1);
    const int64_t end = std::min(first_ + reach_.after, source_.Columns()) + 1;
    const int64_t first_piece = std::min(count_, end - begin);  // as much as a row holds
    source_.CopyPixels(y, begin, first_piece, core);
    for (int64_t x = begin + first_piece; x < end; x += count_) {
      const int64_t columns = std::min(count_, end - x);
      source_.CopyPixels(y, x, columns, piece);
      kernels.fold(core, piece, static_cast<size_t>(columns) * Step());
    }
    for (auto pixels = static_cast<size_t>(first_piece); pixels > 1;) {
      const size_t half = pixels / 2;
      pixels -= half;
      kernels.fold(core, core + pixels * Step(), half * Step());
    }
  }

  /// Reads one column less than the tile has and lets each include all those after or before it.
  const uint8_t* Accumulate(const ExtremumKernels& kernels, int64_t y, int64_t x, uint8_t* ends,
                            size_t pitch, bool after) const {
    const size_t bytes = Bytes() - Step();
    uint8_t* from = ends;
    uint8_t* to = ends + pitch;
    source_.CopyPixels(y, x, count_ - 1, from);
    for (size_t jump = Step(); jump < bytes; jump *= 2) {
      // What has no partner at that distance is complete.
      kernels.of_two(to + (after ? 0 : jump), from, from + jump, bytes - jump);
      const size_t complete = after ? bytes - jump : 0;
      std::memcpy(to + complete, from + complete, jump);
      std::swap(from, to);
    }
    return from;
  }

  const SourceRows& source_;
  const Reach reach_;
  const int64_t first_;
  const int64_t count_;
};

/// The extrema of one strip, whose rows `wide` reduces across.
class GroupedStrip {
 public:
  GroupedStrip(const ExtremaJob& job, Strip& strip, const WideRows& wide)
      : strip_(strip),
        reach_(job.size),
        wide_(wide),
        count_(job.kernels.size()),
        scratch_(job.scratch, ScratchPitch(strip.InBytes())) {
    for (size_t e = 0; e < count_; ++e) extrema_[e] = {job.kernels[e], nullptr, nullptr};
    row_ = scratch_.Take(1);
  }

  void Run() {
    spare_ = scratch_.Take(3);
    const auto rest = static_cast<int64_t>(kExtremaScratchBytes / scratch_.pitch()) - kSharedRows;
    const int64_t group =
        std::min({rest / static_cast<int64_t>(count_), kMostRows[count_ - 1], Size()});
    for (size_t e = 0; e < count_; ++e) {
      extrema_[e].above = scratch_.Take(group - 1);
      extrema_[e].running = scratch_.Take(1);
    }
    for (int64_t y = 0; y < strip_.Rows(); y += group) {
      RunGroup(y, std::min(group, strip_.Rows() - y));
    }
  }

 private:
  int64_t Size() const { return reach_.before + reach_.after + 1; }
  uint8_t* Above(const Extremum& extremum, int64_t member) const {
    return extremum.above + static_cast<size_t>(member) * scratch_.pitch();
  }

  /// Calls visit(extremum, row) with row `y` for each extremum.
  template <typename Visitor>
  void VisitRow(int64_t y, Visitor&& visit) {
    for (size_t e = 0; e < count_; ++e) {
      wide_.Read(*extrema_[e].kernels, y, row_, spare_, scratch_.pitch());
      visit(extrema_[e], row_);
    }
  }

  void RunGroup(int64_t y, int64_t members) {
    const size_t bytes = strip_.InBytes();
    for (int64_t member = members - 2; member >= 0; --member) {
      VisitRow(y + member - reach_.before, [&](const Extremum& extremum, const uint8_t* row) {
        uint8_t* const above = Above(extremum, member);
        if (member == members - 2) {
          std::memcpy(above, row, bytes);
        } else {
          extremum.kernels->of_two(above, row, Above(extremum, member + 1), bytes);
        }
      });
    }
    // Everything outside is alike: one row of it on either side is enough.
    const int64_t begin = std::max<int64_t>(y + members - 1 - reach_.before, -1);
    const int64_t end = std::min(y + reach_.after, strip_.Rows());
    for (int64_t core = begin; core <= end; ++core) {
      VisitRow(core, [&](const Extremum& extremum, const uint8_t* row) {
        if (core == begin) {
          std::memcpy(extremum.running, row, bytes);
        } else {
          extremum.kernels->fold(extremum.running, row, bytes);
        }
      });
    }
    for (int64_t member = 0; member < members; ++member) {
      if (member > 0) strip_.Prefetch(y + member, reach_.after);
      Advance(y, member, members);
    }
  }

  /// Lets the windows of a member reach as far down as they do, and writes its row. The core has
  /// the row of the first member already.
  void Advance(int64_t y, int64_t member, int64_t members) {
    const size_t bytes = strip_.InBytes();
    if (member > 0) {
      VisitRow(y + reach_.after + member, [&](const Extremum& extremum, const uint8_t* row) {
        extremum.kernels->fold(extremum.running, row, bytes);
      });
    }
    Write(y + member, [&](size_t e, uint8_t* dest, size_t first, size_t part) {
      const uint8_t* const running = extrema_[e].running + first;
      const uint8_t* const above =
          member < members - 1 ? Above(extrema_[e], member) + first : running;
      extrema_[e].kernels->of_two(dest, running, above, part);
    });
  }

  /// Writes output row `y`; reduce(e, dest, first, bytes) gives extremum `e` of the windows from
  /// `first` on.
  template <typename Reduce>
  void Write(int64_t y, Reduce&& reduce) {
    strip_.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
      if (count_ == 1) return reduce(0, dest, first, bytes);
      uint8_t* const lowest = spare_ + scratch_.pitch();
      reduce(0, spare_, first, bytes);
      reduce(1, lowest, first, bytes);
      ActiveFilterKernels().subtract(dest, spare_, lowest, strip_.Step(), bytes);
    });
  }

  Strip& strip_;
  const Reach reach_;
  const WideRows& wide_;
  const size_t count_;
  ScratchRows scratch_;
  uint8_t* row_;
  uint8_t* spare_;
  Extremum extrema_[2];
};

}  // namespace

void RunExtremaByWideGroups(const ExtremaJob& job) {
  ForEachTile(0, job.out.Columns(), kWideColumns, [&](int64_t x, int64_t count) {
    const WideRows wide(job.source, Reach(job.size), x, count);
    AssembledStrip strip(job.source, job.out, {0, 1}, {x, count});
    GroupedStrip(job, strip, wide).Run();
  });
}

}  // namespace qel
