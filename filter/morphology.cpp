#include <cstring>
#include <span>

#include "component/result_image.h"
#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "filter/neighbourhood.h"
#include "image/copy_rows.h"

namespace qel {
namespace {

// Extrema of square windows at a cost that hardly depends on their size, first down the columns and
// then across them. A few rows are folded in one go. For more, output rows are taken in groups of
// at most as many rows as a window has. The windows of a group share a core of rows; above it each
// takes an end piece of the rows that only the first ones reach, and below it a growing piece of
// the rows that only the last ones reach. Windows too wide for that are reduced across first, by
// the same grouping.

/// Windows up to this size have their rows folded in one go.
constexpr int64_t kFewRows = 7;
/// Windows up to this size are reduced from extended rows; wider ones before rows are combined.
constexpr int64_t kWidestExtension = 127;
/// Most rows of a group, for one extremum and for two.
constexpr int64_t kGroupRows[] = {32, 20};
/// Columns of a tile, and of the pieces in which a core is read, for wider windows.
constexpr int64_t kWideColumns = 128;
/// Scratch rows beside those of a group, and beside those that few rows are assembled in.
constexpr int64_t kSharedRows = 5;
constexpr int64_t kRowsBesideFew = 4;

/// All scratch rows of a call.
constexpr size_t kScratchBytes = 48 * 1024;

/// One extremum on its way down a strip.
struct Extremum {
  const ExtremumKernels* kernels;
  uint8_t* above;    ///< one row per member of the group but the last: its end piece
  uint8_t* running;  ///< the core and what has been added below it
};

/// The scratch rows of one strip.
class Scratch {
 public:
  Scratch(std::span<uint8_t> memory, size_t pitch) : memory_(memory.data()), pitch_(pitch) {}
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

/// Reduces wide windows of single rows.
class WideRows {
 public:
  WideRows(const SourceRows& source, const Reach& reach, int64_t first, int64_t count)
      : source_(source), reach_(reach), first_(first), count_(count) {}

  /// The same for columns as a group does for rows: a shared core, an end piece to the left and a
  /// growing piece to the right of it. `spare` are three scratch rows.
  void Read(const ExtremumKernels& kernels, int64_t y, uint8_t* row, uint8_t* spare,
            size_t pitch) const {
    uint8_t* const core = spare;
    uint8_t* const ends = spare + pitch;
    ReadCore(kernels, y, core, ends);
    // The ends to the left, each of which includes those right of it.
    const uint8_t* from = Accumulate(kernels, y, first_ - reach_.before, ends, pitch, true);
    std::memcpy(row, from, Bytes() - Step());
    std::memcpy(row + Bytes() - Step(), core, Step());
    RepeatSample(core, count_ - 1, core, source_.sample_bytes());
    kernels.fold(row, core, Bytes() - Step());
    from = Accumulate(kernels, y, first_ + reach_.after + 1, ends, pitch, false);
    kernels.fold(row + Step(), from, Bytes() - Step());
  }

 private:
  size_t Step() const { return static_cast<size_t>(source_.sample_bytes()); }
  size_t Bytes() const { return static_cast<size_t>(count_) * Step(); }

  /// Folds the columns that all windows of the tile contain into one sample.
  void ReadCore(const ExtremumKernels& kernels, int64_t y, uint8_t* core, uint8_t* piece) const {
    // Everything outside is alike: one column of it on either side is enough.
    const int64_t begin = std::max<int64_t>(first_ + count_ - 1 - reach_.before, -1);
    const int64_t end = std::min(first_ + reach_.after, source_.Columns()) + 1;
    const int64_t first_piece = std::min(kWideColumns, end - begin);
    source_.Fetch(y, begin, first_piece, core);
    for (int64_t x = begin + first_piece; x < end; x += kWideColumns) {
      const int64_t columns = std::min(kWideColumns, end - x);
      source_.Fetch(y, x, columns, piece);
      kernels.fold(core, piece, static_cast<size_t>(columns) * Step());
    }
    for (auto samples = static_cast<size_t>(first_piece); samples > 1;) {
      const size_t half = samples / 2;
      samples -= half;
      kernels.fold(core, core + samples * Step(), half * Step());
    }
  }

  /// Reads one column less than the tile has and lets each include all those after or before it.
  const uint8_t* Accumulate(const ExtremumKernels& kernels, int64_t y, int64_t x, uint8_t* ends,
                            size_t pitch, bool after) const {
    const size_t bytes = Bytes() - Step();
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
  const Reach reach_;
  const int64_t first_;
  const int64_t count_;
};

/// Computes the extrema of one strip: one, or the second subtracted from the first. Its rows are
/// extended by what the windows reach, or `wide` reduces them first.
class StripReducer {
 public:
  StripReducer(Strip& strip, const Reach& reach, std::span<const ExtremumKernels* const> kernels,
               const WideRows* wide, std::span<uint8_t> scratch)
      : strip_(strip),
        reach_(reach),
        wide_(wide),
        count_(kernels.size()),
        scratch_(scratch, ScratchPitch(strip.InBytes())) {
    for (size_t e = 0; e < count_; ++e) extrema_[e] = {kernels[e], nullptr, nullptr};
    // In place, another scratch row is the one outside.
    row_ = scratch_.Take(strip.InPlace() ? 0 : 1);
  }

  void Run() {
    if (wide_ == nullptr && Size() <= kFewRows) {
      RunFewRows();
    } else {
      RunGroups();
    }
  }

 private:
  int64_t Size() const { return reach_.before + reach_.after + 1; }
  uint8_t* Above(const Extremum& extremum, int64_t member) const {
    return extremum.above + static_cast<size_t>(member) * scratch_.pitch();
  }

  /// All rows of each window at once.
  void RunFewRows() {
    const auto size = static_cast<size_t>(Size());
    combined_ = scratch_.Take(1);
    spare_ = scratch_.Take(2);
    uint8_t* const slots = scratch_.Take(strip_.InPlace() ? 0 : Size());
    const uint8_t* rows[kFewRows];
    const auto slot = [&](size_t i) { return slots + i * scratch_.pitch(); };
    for (size_t j = 1; j < size; ++j) {
      rows[j] = strip_.Read(static_cast<int64_t>(j) - 1 - reach_.before, slot(j));
    }
    for (int64_t y = 0; y < strip_.Rows(); ++y) {
      strip_.Prefetch(y, reach_.after);
      std::copy(rows + 1, rows + size, rows);
      rows[size - 1] = strip_.Read(y + reach_.after, slot(static_cast<size_t>(y) % size));
      Write(y, [&](size_t e, uint8_t* dest, size_t first, size_t bytes) {
        const uint8_t* here[kFewRows];
        for (size_t j = 0; j < size; ++j) here[j] = rows[j] + first;
        extrema_[e].kernels->square(dest, here, size, strip_.Step(), bytes, combined_);
      });
    }
  }

  void RunGroups() {
    combined_ = scratch_.Take(1);
    spare_ = scratch_.Take(3);
    const auto rest = static_cast<int64_t>(kScratchBytes / scratch_.pitch()) - kSharedRows;
    const int64_t group =
        std::min({rest / static_cast<int64_t>(count_), kGroupRows[count_ - 1], Size()});
    for (size_t e = 0; e < count_; ++e) {
      extrema_[e].above = scratch_.Take(group - 1);
      extrema_[e].running = scratch_.Take(1);
    }
    for (int64_t y = 0; y < strip_.Rows(); y += group) {
      RunGroup(y, std::min(group, strip_.Rows() - y));
    }
  }

  /// Calls visit(extremum, row) with row `y` for each extremum.
  template <typename Visitor>
  void VisitRow(int64_t y, Visitor&& visit) {
    const uint8_t* row = wide_ == nullptr ? strip_.Read(y, row_) : row_;
    for (size_t e = 0; e < count_; ++e) {
      if (wide_ != nullptr) wide_->Read(*extrema_[e].kernels, y, row_, spare_, scratch_.pitch());
      visit(extrema_[e], row);
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
          extremum.kernels->pick(above, row, Above(extremum, member + 1), bytes);
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
      if (wide_ == nullptr) {
        Advance(y, member, members);
      } else {
        AdvanceWide(y, member, members);
      }
    }
  }

  /// Lets the windows of a member reach as far down as they do, and writes its row.
  void Advance(int64_t y, int64_t member, int64_t members) {
    // The core has the row of the first member already, which makes no difference.
    const uint8_t* const row = strip_.Read(y + reach_.after + member, row_);
    Write(y + member, [&](size_t e, uint8_t* dest, size_t first, size_t bytes) {
      uint8_t* const running = extrema_[e].running + first;
      const uint8_t* const above =
          member < members - 1 ? Above(extrema_[e], member) + first : running;
      extrema_[e].kernels->advance(dest, running, row + first, above, combined_,
                                   static_cast<size_t>(Size()), strip_.Step(), bytes);
    });
  }

  /// The same for rows that are reduced across already.
  void AdvanceWide(int64_t y, int64_t member, int64_t members) {
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
      extrema_[e].kernels->pick(dest, running, above, part);
    });
  }

  /// Writes output row `y`. reduce(e, dest, first, bytes) gives extremum `e` of the windows from
  /// `first` on.
  template <typename Reduce>
  void Write(int64_t y, Reduce&& reduce) {
    strip_.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
      if (count_ == 1) {
        reduce(0, dest, first, bytes);
        return;
      }
      reduce(0, spare_, first, bytes);
      reduce(1, spare_ + scratch_.pitch(), first, bytes);
      ActiveFilterKernels().subtract(dest, spare_, spare_ + scratch_.pitch(), strip_.Step(), bytes);
    });
  }

  Strip& strip_;
  const Reach reach_;
  const WideRows* const wide_;
  const size_t count_;
  Scratch scratch_;
  uint8_t* row_;
  uint8_t* combined_;
  uint8_t* spare_;
  Extremum extrema_[2];
};

/// Windows of 3 x 3.
void ReduceSquares(const SourceRows& source, DestRows& out,
                   std::span<const ExtremumKernels* const> kernels, std::span<uint8_t> scratch) {
  const auto step = static_cast<size_t>(source.sample_bytes());
  ForEachRowOfSquares(source, out, scratch,
                      [&](uint8_t* dest, const uint8_t* const* rows, size_t bytes) {
                        if (kernels.size() == 2) {
                          ActiveFilterKernels().spread(dest, rows, step, bytes);
                        } else {
                          kernels[0]->square(dest, rows, 3, step, bytes, nullptr);
                        }
                      });
}

void ReduceWindows(const ImageView& source, const ImageView& dest, int size,
                   std::span<const ExtremumKernels* const> kernels) {
  const bool whole_pixels =
      source.bit_count == 8 || source.bit_count == 24 || source.bit_count == 32;
  if (size == 1 && kernels.size() == 1 && whole_pixels && source.HasPixels()) {
    CopyRows(dest.bits, dest.stride, source.bits, source.stride,
             source.Columns() * (source.bit_count / 8), source.Rows());
    return;
  }
  const Reach reach(size);
  const SourceRows rows(source);
  DestRows out(dest, source, reach.after);
  ScratchBlock<kScratchBytes> scratch;
  if (size > kWidestExtension) {
    ForEachTile(0, dest.Columns(), kWideColumns, [&](int64_t x, int64_t count) {
      const WideRows wide(rows, reach, x, count);
      Strip strip(rows, out, {0, 1}, {x, count});
      StripReducer(strip, reach, kernels, &wide, scratch).Run();
    });
    return;
  }
  // Windows bring the alpha of their last sample with them.
  out.KeepAlpha();
  if (size == 3) {
    ReduceSquares(rows, out, kernels, scratch);
    return;
  }
  const auto columns_of = [&](int64_t scratch_rows) {
    return ScratchRowBytes(kScratchBytes, scratch_rows) / rows.sample_bytes() - (size - 1);
  };
  const auto extrema = static_cast<int64_t>(kernels.size());
  const int64_t grouped = kSharedRows + extrema * std::min<int64_t>(size, kGroupRows[extrema - 1]);
  const bool few = size <= kFewRows;
  const StripWidths widths{columns_of(few ? kRowsBesideFew + size : grouped),
                           columns_of(few ? kRowsBesideFew : grouped)};
  ForEachStrip(rows, out, {-reach.before, size}, widths, 0, scratch,
               [&](Strip& strip) { StripReducer(strip, reach, kernels, nullptr, scratch).Run(); });
}

/// The common course of the three operations. `empty` is what windows without pixels give.
result_t Run(IQEL* image, int size, std::span<const ExtremumKernels* const> kernels, uint32_t empty,
             IQEL** result) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadSizeBitsAndFormat(*image);
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
