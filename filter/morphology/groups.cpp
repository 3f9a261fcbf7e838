#include <algorithm>
#include <cstring>

#include "filter/morphology/extrema_job.h"
#include "filter/morphology/extrema_plan.h"

// Extrema of windows of several rows and columns. Output rows are taken in groups of eight: the
// windows of a group share a core of rows; above it each takes a suffix of the rows that only the
// first ones reach, and below it a prefix of the rows that only the last ones reach (van Herk 1992,
// Gil and Werman 1993). The rows below a group are a block, whose extremum later groups have in
// their core: 3 to 5 comparisons a byte for any size. All of this stays in registers. Then windows
// widen across the columns, two- or fourfold, in the nearest cache, some columns of a group at a
// time. Columns outside the image are all alike, and need no reducing.

namespace qel {
namespace {

constexpr auto kGroup = static_cast<int64_t>(kGroupRows);
/// Bytes of outputs that are taken at a time.
constexpr int64_t kMostPiece = 1024;
constexpr int64_t kShortPiece = 704;
/// Bytes of outputs of a strip, whose source rows the next cache is to hold.
constexpr int64_t kMostStrip = 8192;
/// Where vectors of alpha are read.
constexpr int64_t kFewestAlphaBytes = 64;

constexpr int64_t UpToLines(int64_t bytes) { return (bytes + 63) / 64 * 64; }

class Groups {
 public:
  explicit Groups(const ExtremaJob& job)
      : source_(job.source),
        out_(job.out),
        kernels_(job.kernels),
        size_(job.size),
        reach_(job.size),
        blocks_((size_ - kGroup) / kGroup),
        step_(job.source.pixel_bytes()),
        reads_in_place_(job.source.InPlace() && job.source.Columns() * step_ >= kWidestVector),
        stores_in_place_(job.source.InPlace()),
        lead_(UpToLines((size_ - 1) * step_)) {
    Divide(job.scratch);
  }

  void Run() {
    ForEachTile(0, out_.Columns(), strip_columns_,
                [&](int64_t x, int64_t count) { RunStrip(x, count); });
  }

 private:
  /// Bytes that row functions read at least.
  static constexpr int64_t kWidestVector = 64;
  static constexpr int64_t kRowsOfCore = 2 * kGroup - 1;  // at most, beside blocks

  static int64_t Pitch(int64_t bytes) {
    return static_cast<int64_t>(ScratchPitch(static_cast<size_t>(bytes)));
  }

  /// Divides the scratch memory into rows, and the columns into pieces and strips.
  void Divide(std::span<uint8_t> scratch) {
    const auto extrema = static_cast<int64_t>(kernels_.size());
    const auto memory = static_cast<int64_t>(scratch.size());
    const int64_t windows = extrema * (kGroup + static_cast<int64_t>(kAcrossRows)) + 1;
    const int64_t block_rows = blocks_ == 0 ? 0 : extrema * (blocks_ + 1);
    const int64_t read_rows = reads_in_place_ ? 0 : kGroup + kRowsOfCore;
    const int64_t lines = block_rows + read_rows;
    const int64_t row_bytes = source_.Columns() * step_;
    const auto covered = [&](int64_t outputs) {
      return std::min(outputs + (size_ - 1) * step_, row_bytes);
    };
    const auto fits = [&](int64_t piece, int64_t strip) {
      return windows * Pitch(lead_ + piece) + lines * Pitch(covered(strip)) <= memory;
    };
    int64_t piece = kMostPiece;
    while (!fits(piece, piece)) piece -= 64;
    // Strips that are shorter than rows cost more than pieces that are.
    while (reads_in_place_ && piece > kShortPiece && !fits(piece, kMostStrip)) piece -= 64;
    int64_t strip = reads_in_place_ ? kMostStrip : piece;
    while (strip > piece && !fits(piece, strip)) strip -= 64;
    piece_columns_ = piece / step_;
    strip_columns_ = strip / step_;
    pitch_ = static_cast<size_t>(Pitch(lead_ + piece));
    line_pitch_ = static_cast<size_t>(Pitch(covered(strip)));
    uint8_t* next = scratch.data();
    const auto take = [&](int64_t rows, size_t pitch) {
      uint8_t* const taken = next;
      next += static_cast<size_t>(rows) * pitch;
      return taken;
    };
    outside_ = take(1, pitch_);
    for (size_t e = 0; e < kernels_.size(); ++e) {
      columns_[e] = take(kGroup, pitch_);
      spare_[e] = take(kAcrossRows, pitch_);
      block_rows_[e] = take(block_rows / extrema, line_pitch_);
    }
    read_rows_ = take(read_rows, line_pitch_);
    RepeatPixel(outside_, static_cast<int64_t>(pitch_) / step_, source_.outside(),
                source_.pixel_bytes());
  }

  size_t Bytes(int64_t pixels) const { return static_cast<size_t>(pixels * step_); }

  /// Row `y` of the source from the first column of the strip on; null for rows outside.
  const uint8_t* Read(int64_t y) {
    if (y < 0 || y >= out_.Rows()) return nullptr;
    if (reads_in_place_) return source_.At(y, first_);
    uint8_t* const row = read_rows_ + next_read_++ * line_pitch_;
    source_.CopyPixels(y, first_, end_ - first_, row);
    return row;
  }
  /// The extremum of the rows below group `group`, which may be before the first.
  uint8_t* Block(size_t extremum, int64_t group) const {
    const auto slot = static_cast<size_t>((group + blocks_ + 1) % (blocks_ + 1));
    return block_rows_[extremum] + slot * line_pitch_;
  }

  void RunStrip(int64_t x, int64_t count) {
    first_ = std::max<int64_t>(x - reach_.before, 0);
    end_ = std::min(x + count + reach_.after, source_.Columns());
    for (int64_t group = -blocks_; group < 0; ++group) ReduceBlock(group);
    for (int64_t group = 0; group * kGroup < out_.Rows(); ++group) RunGroup(group, x, count);
  }

  /// Finds the extrema of a block above those that come below a group.
  void ReduceBlock(int64_t group) {
    for (int64_t i = 0; i < kGroup; ++i) {
      next_read_ = 0;
      const uint8_t* const row = Read(group * kGroup + reach_.after + i);
      for (size_t e = 0; e < kernels_.size(); ++e) {
        uint8_t* const block = Block(e, group);
        if (row == nullptr) {
          FoldOutside(*kernels_[e], block, i == 0);
        } else if (i == 0) {
          std::memcpy(block, row, Bytes(end_ - first_));
        } else {
          kernels_[e]->fold(block, row, Bytes(end_ - first_));
        }
      }
    }
  }
  void FoldOutside(const ExtremumKernels& kernels, uint8_t* block, bool is_first) const {
    ForEachTile(0, end_ - first_, piece_columns_, [&](int64_t at, int64_t count) {
      if (is_first) {
        std::memcpy(block + Bytes(at), outside_, Bytes(count));
      } else {
        kernels.fold(block + Bytes(at), outside_, Bytes(count));
      }
    });
  }

  /// The rows under the windows of a group, from the first column of the strip on.
  void ReadGroup(int64_t group) {
    const int64_t top = group * kGroup - reach_.before;
    const int64_t bottom = top + size_ - 1;
    next_read_ = 0;
    for (int64_t i = 0; i < kGroup; ++i) {
      below_[i] = Read(bottom + i);
      // What lies there is needed by the next group.
      const bool comes = reads_in_place_ && bottom + kGroup + i < out_.Rows();
      ahead_[i] = comes ? source_.At(bottom + kGroup + i, first_) : nullptr;
    }
    for (int64_t i = 0; i < kGroup - 1; ++i) above_[i] = Read(top + i);
    const int64_t core_end = bottom - blocks_ * kGroup;
    core_rows_ = 0;
    for (int64_t y = top + kGroup - 1; y < core_end; ++y) core_[core_rows_++] = Read(y);
    // The smallest windows have but one row in common.
    if (core_rows_ + static_cast<size_t>(blocks_) == 0) core_[core_rows_++] = below_[0];
  }

  void RunGroup(int64_t group, int64_t x, int64_t count) {
    ReadGroup(group);
    int64_t reduced = x - reach_.before;
    ForEachTile(x, x + count, piece_columns_, [&](int64_t from, int64_t columns) {
      const int64_t end = from + columns + reach_.after;
      for (size_t e = 0; e < kernels_.size(); ++e) ReduceColumns(e, group, reduced, end, from);
      reduced = end;
      WriteRows(group * kGroup, from, columns);
      if (from + columns == x + count) return;
      // The next piece begins with the columns that this one ends with.
      for (size_t e = 0; e < kernels_.size(); ++e) {
        for (int64_t i = 0; i < kGroup; ++i) {
          uint8_t* const row = columns_[e] + static_cast<size_t>(i) * pitch_;
          const size_t kept = Bytes(size_ - 1);
          std::memmove(row + static_cast<size_t>(lead_) - kept,
                       row + static_cast<size_t>(lead_) - kept + Bytes(columns), kept);
        }
      }
    });
  }

  /// Reduces columns `begin` to `end` - 1 for the outputs from column `x` on.
  void ReduceColumns(size_t extremum, int64_t group, int64_t begin, int64_t end, int64_t x) {
    uint8_t* const to = columns_[extremum] + lead_ + (begin - x - reach_.after) * step_;
    int64_t inside = std::clamp(first_, begin, end);
    const int64_t inside_end = std::clamp(end_, inside, end);
    CopyOutside(to, inside - begin);
    if (inside < inside_end) ReduceInside(extremum, group, to, begin, inside, inside_end);
    // After the last vector, which may have been written as a whole.
    CopyOutside(to + (inside_end - begin) * step_, end - inside_end);
  }
  /// The same for columns of the image; `to` is where column `begin` goes.
  void ReduceInside(size_t extremum, int64_t group, uint8_t* to, int64_t begin, int64_t inside,
                    int64_t inside_end) {
    // Less than a vector is taken together with some before it, which gives the same once more.
    const int64_t fewest = (kWidestVector + step_ - 1) / step_;
    inside = std::max(std::min(inside, inside_end - fewest), first_);

    const size_t at = Bytes(inside - first_);
    const auto from = [&](const uint8_t* row) { return row == nullptr ? outside_ : row + at; };
    GroupRows rows;
    std::transform(above_, above_ + kGroup - 1, rows.above, from);
    std::transform(below_, below_ + kGroup, rows.below, from);
    std::transform(ahead_, ahead_ + kGroup, rows.ahead, from);
    std::transform(core_, core_ + core_rows_, rows.core, from);
    rows.core_count = core_rows_;
    for (int64_t i = 1; i <= blocks_; ++i) {
      rows.core[rows.core_count++] = Block(extremum, group - i) + at;
    }
    rows.block = blocks_ == 0 ? nullptr : Block(extremum, group) + at;
    kernels_[extremum]->down(to + (inside - begin) * step_, pitch_, rows,
                             Bytes(inside_end - inside));
  }
  void CopyOutside(uint8_t* to, int64_t pixels) const {
    if (pixels == 0) return;
    for (int64_t i = 0; i < kGroup; ++i) {
      std::memcpy(to + static_cast<size_t>(i) * pitch_, outside_, Bytes(pixels));
    }
  }

  /// Writes the outputs of a group from (x, y) on.
  void WriteRows(int64_t y, int64_t x, int64_t count) {
    AcrossRows rows;
    rows.pitch = pitch_;
    rows.size = static_cast<size_t>(size_);
    rows.step = static_cast<size_t>(step_);
    rows.count = Bytes(count);
    // Alpha is that of the last pixel of the window.
    int64_t alphas = 0;
    if (step_ == 4 && stores_in_place_) {
      alphas = std::clamp<int64_t>(source_.Columns() - (x + reach_.after), 0, count);
      if (alphas * step_ < kFewestAlphaBytes) alphas = 0;
    }
    rows.alpha_bytes = Bytes(alphas);
    const int64_t most = stores_in_place_ ? static_cast<int64_t>(kAcrossRows) : 1;
    const int64_t end = std::min(y + kGroup, out_.Rows());
    for (int64_t first = y; first < end; first += most) {
      rows.rows = static_cast<size_t>(std::min(most, end - first));
      const size_t at =
          static_cast<size_t>(first - y) * pitch_ + static_cast<size_t>(lead_) - Bytes(size_ - 1);
      // Of one extremum alone, kernels step through both all the same.
      for (const size_t e : {size_t{0}, size_t{1}}) {
        const size_t extremum = std::min(e, kernels_.size() - 1);
        rows.columns[e] = columns_[extremum] + at;
        rows.spare[e] = spare_[extremum];
      }
      for (size_t i = 0; i < rows.rows; ++i) {
        const int64_t row = first + static_cast<int64_t>(i);
        rows.dest[i] = out_.Open(row, x);
        rows.ahead[i] = stores_in_place_ && row + kGroup < out_.Rows() ? out_.At(row + kGroup, x)
                                                                       : rows.dest[i];
        const uint8_t* const alpha_row =
            alphas > 0 ? source_.At(row + reach_.after, x + reach_.after) : nullptr;
        rows.alphas[i] = alpha_row != nullptr ? alpha_row : outside_;
      }
      if (kernels_.size() == 2) {
        ActiveFilterKernels().range_across(rows);
      } else {
        kernels_[0]->across(rows);
      }
      for (size_t i = 0; i < rows.rows; ++i) {
        const int64_t row = first + static_cast<int64_t>(i);
        if (step_ == 4) TakeAlphas(rows.dest[i], row, x, alphas, count);
        out_.Close(row, x, count);
      }
    }
  }
  /// Gives outputs number `begin` to `end` - 1 of row `y` their alpha.
  void TakeAlphas(uint8_t* dest, int64_t y, int64_t x, int64_t begin, int64_t end) const {
    for (int64_t i = begin; i < end; ++i) {
      const int64_t column = x + i + reach_.after;
      const bool is_inside = source_.InPlace() && column < source_.Columns();
      const uint8_t* const pixel = is_inside ? source_.At(y + reach_.after, column) : nullptr;
      dest[4 * i + 3] = (pixel != nullptr ? pixel : source_.outside())[3];
    }
  }

  const SourceRows& source_;
  DestRows& out_;
  const std::span<const ExtremumKernels* const> kernels_;
  const int64_t size_;
  const Reach reach_;
  const int64_t blocks_;  ///< in the core of a group
  const int64_t step_;
  const bool reads_in_place_;
  const bool stores_in_place_;
  /// Columns of a piece begin here in their rows, those kept from the piece before it end here.
  const int64_t lead_;

  int64_t piece_columns_;
  int64_t strip_columns_;
  size_t pitch_;
  size_t line_pitch_;  ///< of rows as long as a strip
  uint8_t* outside_;
  uint8_t* columns_[2];     ///< extrema down the columns, the rows of a group
  uint8_t* spare_[2];       ///< rows for windows that are widened
  uint8_t* block_rows_[2];  ///< by turns the extrema of the last blocks
  uint8_t* read_rows_;
  size_t next_read_ = 0;

  /// Columns of the image under the windows of the strip.
  int64_t first_ = 0;
  int64_t end_ = 0;
  // Of the group, from `first_` on; null for rows outside.
  const uint8_t* above_[kGroupRows - 1];
  const uint8_t* core_[kGroupRows];
  size_t core_rows_ = 0;
  const uint8_t* below_[kGroupRows];
  const uint8_t* ahead_[kGroupRows];
};

}  // namespace

void RunExtremaByGroups(const ExtremaJob& job) {
  // Windows bring the alpha of their last pixel with them.
  job.out.KeepAlpha();
  Groups(job).Run();
}

}  // namespace qel
