#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "filter/morphology/extrema_job.h"

// Extrema of the largest windows. Each row is widened across once, by doubling. Then rows form
// blocks as high as windows: a window is the end of one block and the begin of the next (van Herk
// 1992, Gil and Werman 1993), three comparisons a byte whatever the size.

namespace qel {
namespace {

class Blocks {
 public:
  explicit Blocks(const ExtremaJob& job)
      : source_(job.source),
        out_(job.out),
        kernels_(job.kernels),
        reach_(job.size),
        size_(job.size),
        step_(job.source.pixel_bytes()),
        row_bytes_(Bytes(job.out.Columns())) {
    // All that lies outside is alike, so none of it counts beyond the nearest.
    const int64_t most = out_.Columns() + int64_t{kGroupRows};
    before_ = std::min(reach_.before, most);
    width_ = before_ + std::min(reach_.after, most) + 1;
    const int64_t covered = out_.Columns() + width_ - 1;
    across_.pitch = ScratchPitch(Bytes(covered) + kRowSlack);
    pitch_ = ScratchPitch(row_bytes_);
    const auto slots = static_cast<size_t>(std::min(size_, out_.Rows()));
    memory_.reset(new (std::nothrow)
                      uint8_t[2 * across_.pitch + pitch_ * (3 + kernels_.size() * (slots + 1))]);
    if (memory_ == nullptr) return;
    uint8_t* next = memory_.get();
    const auto take = [&](size_t bytes) { return std::exchange(next, next + bytes); };
    pixels_ = take(across_.pitch);
    across_.columns[0] = across_.columns[1] = pixels_;
    across_.spare[0] = across_.spare[1] = take(across_.pitch);
    outside_ = take(pitch_);
    for (uint8_t*& row : joined_) row = take(pitch_);
    for (size_t e = 0; e < kernels_.size(); ++e) {
      begin_[e] = take(pitch_);
      rows_[e] = take(slots * pitch_);
    }
    across_.rows = 1;
    across_.alpha_bytes = 0;
    across_.size = static_cast<size_t>(width_);
    across_.step = static_cast<size_t>(step_);
    across_.count = row_bytes_;
    RepeatPixel(pixels_, covered, source_.outside(), source_.pixel_bytes());
    RepeatPixel(outside_, out_.Columns(), source_.outside(), source_.pixel_bytes());
  }

  /// False when there is no memory.
  explicit operator bool() const { return memory_ != nullptr; }

  void Run() {
    int64_t entered = 0;
    for (int64_t y = 0; y < out_.Rows(); ++y) {
      for (; entered < std::min(y + reach_.after + 1, out_.Rows()); ++entered) Enter(entered);
      Write(y);
    }
  }

 private:
  size_t Bytes(int64_t pixels) const { return static_cast<size_t>(pixels * step_); }
  /// Row `y` of the image, widened, or the extrema from there to the end of its block. It gives way
  /// to the one that lies a block further down.
  uint8_t* Row(size_t extremum, int64_t y) const {
    return rows_[extremum] + static_cast<size_t>(y % size_) * pitch_;
  }

  /// Widens row `y`, and adds it to the begin of its block.
  void Enter(int64_t y) {
    source_.CopyPixels(y, 0, out_.Columns(), pixels_ + Bytes(before_));
    for (size_t e = 0; e < kernels_.size(); ++e) {
      uint8_t* const row = Row(e, y);
      across_.ahead[0] = across_.dest[0] = row;
      kernels_[e]->across(across_);
      if (y % size_ == 0) {
        std::memcpy(begin_[e], row, row_bytes_);
      } else {
        kernels_[e]->fold(begin_[e], row, row_bytes_);
      }
    }
  }

  /// Lets each row from `y` to the end of its block include those after it.
  void FoldEnd(int64_t y) {
    const int64_t end = std::min((y / size_ + 1) * size_, out_.Rows());
    for (size_t e = 0; e < kernels_.size(); ++e) {
      for (int64_t row = end - 2; row >= y; --row) {
        kernels_[e]->fold(Row(e, row), Row(e, row + 1), row_bytes_);
      }
    }
  }

  void Write(int64_t y) {
    const int64_t first = std::max<int64_t>(y - reach_.before, 0);
    const int64_t last = std::min(y + reach_.after, out_.Rows() - 1);
    const bool is_cut = y < reach_.before || y + reach_.after > last;
    // The first row of a block has been left: the others come to their ends.
    if (first % size_ == 1) FoldEnd(first);
    ForEachTile(0, out_.Columns(), out_.MostOpened(), [&](int64_t x, int64_t count) {
      const size_t at = Bytes(x), bytes = Bytes(count);
      uint8_t* const dest = out_.Open(y, x);
      const auto reduce = [&](size_t e, uint8_t* to) {
        const uint8_t* const begin = begin_[e] + at;
        const uint8_t* const end = first % size_ == 0 ? begin : Row(e, first) + at;
        kernels_[e]->of_two(to, end, first / size_ == last / size_ ? end : begin, bytes);
        if (is_cut) kernels_[e]->fold(to, outside_, bytes);
      };
      if (kernels_.size() == 1) {
        reduce(0, dest);
      } else {
        for (const size_t e : {size_t{0}, size_t{1}}) reduce(e, joined_[e]);
        ActiveFilterKernels().subtract(dest, joined_[0], joined_[1], across_.step, bytes);
      }
      out_.Close(y, x, count);
    });
  }

  const SourceRows& source_;
  DestRows& out_;
  const std::span<const ExtremumKernels* const> kernels_;
  const Reach reach_;
  const int64_t size_;
  const int64_t step_;
  const size_t row_bytes_;
  int64_t before_;  ///< pixels in front of those of a row
  int64_t width_;   ///< pixels that are reduced across
  size_t pitch_;
  std::unique_ptr<uint8_t[]> memory_;
  AcrossRows across_;
  uint8_t* pixels_;     ///< a row with what lies outside
  uint8_t* outside_;    ///< as many pixels of what lies outside
  uint8_t* joined_[2];  ///< extrema of windows, where there are two
  uint8_t* begin_[2];   ///< extrema of the last block's rows up to the last one
  uint8_t* rows_[2];    ///< of the last blocks
};

}  // namespace

bool RunExtremaByBlocks(const ExtremaJob& job) {
  Blocks blocks(job);
  if (!blocks) return false;
  blocks.Run();
  return true;
}

}  // namespace qel
