#include <algorithm>
#include <cstring>

#include "filter/morphology/extrema_job.h"

// Extrema of the largest windows, in strips of columns. Rows are widened across and form blocks
// (van Herk 1992, Gil and Werman 1993): a window is the end of one block, some whole ones and the
// begin of another. A block has as many rows as a window has blocks, so that scratch rows are few;
// its ends need its rows once more when windows get there.

namespace qel {
namespace {

class Blocks {
 public:
  explicit Blocks(const ExtremaJob& job)
      : source_(job.source),
        out_(job.out),
        kernels_(job.kernels),
        size_(job.size),
        reach_(job.size),
        step_(job.source.pixel_bytes()) {
    Divide(job.scratch);
  }

  void Run() {
    ForEachTile(0, out_.Columns(), strip_columns_, [&](int64_t x, int64_t count) {
      x_ = x;
      count_ = count;
      // Where windows have many columns in common, these are as few as are folded at a time.
      const int64_t core = kCoreBytes / step_;
      core_ = size_ - (count - 1) > core ? core : 0;
      across_.size = static_cast<size_t>(core_ > 0 ? count - 1 + core_ : size_);
      across_.count = Bytes(count);
      RunStrip();
    });
  }

 private:
  static constexpr int64_t kMostStrip = 2048;  ///< bytes of outputs
  /// Bytes of columns, common to all windows of a strip, that are folded at a time.
  static constexpr int64_t kCoreBytes = 256;
  static constexpr int64_t kMostGroup = 48;
  /// Whole blocks of a window; together with as many rows of a group, of two extrema, they leave
  /// strips of three cache lines.
  static constexpr int64_t kMostBlocks = 48;

  size_t Bytes(int64_t pixels) const { return static_cast<size_t>(pixels * step_); }
  static size_t UpToLines(size_t bytes) { return (bytes + 63) / 64 * 64; }

  /// Divides rows into blocks, columns into strips, and the scratch memory into rows.
  void Divide(std::span<uint8_t> scratch) {
    const int64_t height = std::min(size_, out_.Rows());
    while (group_ < kMostGroup && group_ * group_ < height) ++group_;
    block_ = group_ * ((height - 1) / (kMostBlocks * group_) + 1);
    slots_ = height / block_ + 1;
    const size_t extrema = kernels_.size();
    const auto rows_of_each = static_cast<size_t>(group_ + slots_ + 2);
    const auto fits = [&](int64_t strip) {
      strip_columns_ = std::min(strip / step_, out_.Columns());
      pitch_ = UpToLines(Bytes(strip_columns_));
      across_.pitch = ScratchPitch(
          std::min(Bytes(strip_columns_ + size_), Bytes(2 * strip_columns_) + size_t{kCoreBytes}));
      return (1 + extrema * rows_of_each) * pitch_ + 2 * across_.pitch <= scratch.size();
    };
    for (int64_t strip = kMostStrip; !fits(strip);) strip -= 64;

    uint8_t* next = scratch.data();
    const auto take = [&](int64_t rows, size_t pitch) {
      uint8_t* const taken = next;
      next += static_cast<size_t>(rows) * pitch;
      return taken;
    };
    pixels_ = take(1, across_.pitch);
    spare_ = take(1, across_.pitch);
    outside_ = take(1, pitch_);
    for (size_t e = 0; e < extrema; ++e) {
      row_[e] = take(1, pitch_);
      begin_[e] = take(1, pitch_);
      ends_[e] = take(group_, pitch_);
      blocks_[e] = take(slots_, pitch_);
    }
    RepeatPixel(outside_, strip_columns_, source_.outside(), source_.pixel_bytes());
    across_.rows = 1;
    across_.alpha_bytes = 0;
    across_.step = static_cast<size_t>(step_);
    across_.columns[0] = across_.columns[1] = pixels_;
    across_.spare[0] = across_.spare[1] = spare_;
  }

  void RunStrip() {
    has_begin_ = false;
    int64_t entered = 0;
    for (int64_t y = 0; y < out_.Rows(); ++y) {
      const int64_t first = std::max<int64_t>(y - reach_.before, 0);
      const int64_t last = std::min(y + reach_.after, out_.Rows() - 1);
      for (; entered <= last; ++entered) Enter(entered);
      if (y == 0 || (first > 0 && first % group_ == 0)) StartGroup(first, last);
      Write(y, static_cast<size_t>(first % group_) * pitch_, last - first + 1 < size_);
    }
  }

  /// The extremum of the block of row `y`, as far as its rows have entered.
  uint8_t* Block(size_t extremum, int64_t y) const {
    return blocks_[extremum] + static_cast<size_t>(y / block_ % slots_) * pitch_;
  }

  /// Calls visit(extremum, row) with row `y`, widened.
  template <typename Visitor>
  void VisitRow(int64_t y, const Visitor& visit) {
    const int64_t x = x_ - reach_.before;
    const int64_t side = count_ - 1;
    if (core_ == 0) {
      source_.CopyPixels(y, x, side + size_, pixels_);
    } else {
      source_.CopyPixels(y, x, side, pixels_);
      source_.CopyPixels(y, x + size_, side, pixels_ + Bytes(side + core_));
    }
    for (size_t e = 0; e < kernels_.size(); ++e) {
      if (core_ > 0) ReadCore(*kernels_[e], y, x + side, x + size_);
      across_.ahead[0] = across_.dest[0] = row_[e];
      kernels_[e]->across(across_);
      visit(e, row_[e]);
    }
  }

  /// Folds columns `begin` to `end` - 1, which all windows of the strip contain.
  void ReadCore(const ExtremumKernels& kernels, int64_t y, int64_t begin, int64_t end) {
    // All that lies outside is alike.
    begin = std::max(begin, -core_);
    end = std::min(end, source_.Columns() + core_);
    uint8_t* const core = pixels_ + Bytes(count_ - 1);
    source_.CopyPixels(y, begin, core_, core);
    for (int64_t x = begin + core_; x < end; x += core_) {
      const int64_t columns = std::min(core_, end - x);
      source_.CopyPixels(y, x, columns, spare_);
      kernels.fold(core, spare_, Bytes(columns));
    }
  }

  /// Adds row `y` to its block, and to what windows of the group contain below their ends.
  void Enter(int64_t y) {
    VisitRow(y, [&](size_t e, const uint8_t* row) {
      if (y % block_ == 0) {
        std::memcpy(Block(e, y), row, across_.count);
      } else {
        kernels_[e]->fold(Block(e, y), row, across_.count);
      }
      if (has_begin_) kernels_[e]->fold(begin_[e], row, across_.count);
    });
  }

  /// Finds the ends of a block from row `first` and from those after it on, and joins the blocks
  /// below it down to row `last`. Windows that are not cut reach beyond the block.
  void StartGroup(int64_t first, int64_t last) {
    const int64_t end = std::min((first / block_ + 1) * block_, out_.Rows());
    for (int64_t y = end - 1; y >= first; --y) {
      // Those below the group come to its last row.
      const auto at = [&](int64_t row) {
        return static_cast<size_t>(std::min(row - first, group_ - 1)) * pitch_;
      };
      VisitRow(y, [&](size_t e, const uint8_t* row) {
        const uint8_t* const after = y == end - 1 ? row : ends_[e] + at(y + 1);
        kernels_[e]->of_two(ends_[e] + at(y), row, after, across_.count);
      });
    }
    has_begin_ = last >= end;
    for (size_t e = 0; e < kernels_.size() && has_begin_; ++e) {
      std::memcpy(begin_[e], Block(e, end), across_.count);
      for (int64_t y = end + block_; y / block_ <= last / block_; y += block_) {
        kernels_[e]->fold(begin_[e], Block(e, y), across_.count);
      }
    }
  }

  /// Writes row `y`, whose windows take the end of a block that lies `end` bytes after the first;
  /// where they are cut, they contain what is outside.
  void Write(int64_t y, size_t end, bool is_cut) {
    ForEachTile(0, count_, out_.MostOpened(), [&](int64_t x, int64_t count) {
      const size_t at = Bytes(x), bytes = Bytes(count);
      uint8_t* const dest = out_.Open(y, x_ + x);
      const auto reduce = [&](size_t e, uint8_t* to) {
        const uint8_t* const upper = ends_[e] + end + at;
        kernels_[e]->of_two(to, upper, has_begin_ ? begin_[e] + at : upper, bytes);
        if (is_cut) kernels_[e]->fold(to, outside_, bytes);
      };
      if (kernels_.size() == 1) {
        reduce(0, dest);
      } else {
        for (const size_t e : {size_t{0}, size_t{1}}) reduce(e, row_[e]);
        ActiveFilterKernels().subtract(dest, row_[0], row_[1], across_.step, bytes);
      }
      out_.Close(y, x_ + x, count);
    });
  }

  const SourceRows& source_;
  DestRows& out_;
  const std::span<const ExtremumKernels* const> kernels_;
  const int64_t size_;
  const Reach reach_;
  const int64_t step_;

  int64_t group_ = 1;      ///< rows whose windows share `begin_`
  int64_t block_;          ///< rows, those of some groups
  int64_t slots_;          ///< for the blocks of a window
  int64_t strip_columns_;  ///< at most
  size_t pitch_;
  uint8_t* pixels_;   ///< what windows of a row contain
  uint8_t* spare_;    ///< the same, while it is widened
  uint8_t* outside_;  ///< as many pixels of what lies outside
  uint8_t* row_[2];   ///< widened
  uint8_t* begin_[2];
  uint8_t* ends_[2];    ///< of a block, from each row of the group on
  uint8_t* blocks_[2];  ///< by turns the extrema of the last blocks
  AcrossRows across_;

  // Of the strip.
  int64_t x_ = 0;
  int64_t count_ = 0;
  int64_t core_ = 0;  ///< columns that stand for those common to all windows; 0 where all are kept
  bool has_begin_ = false;  ///< windows of the group reach beyond the block of their first row
};

}  // namespace

void RunExtremaByBlocks(const ExtremaJob& job) { Blocks(job).Run(); }

}  // namespace qel
