#include <algorithm>
#include <cstring>
#include <utility>

#include "filter/convolution/convolution_job.h"
#include "filter/convolution/row_pair_kernels.h"

// Kernels of weights of a byte, two output rows at a time. Each pair of source rows is interleaved
// once; then any neighbour is a load from there, and a product of bytes weighs both rows. Columns
// beside the image stay as they are.

namespace qel {
namespace {

constexpr size_t InLines(size_t bytes) { return ((bytes + 63) / 64 | 1) * 64; }

class RowPairTiles {
 public:
  explicit RowPairTiles(const ConvolutionJob& job)
      : job_(job),
        kernels_(ActiveRowPairKernels()),
        step_(job.plan.step),
        reach_((job.weights.columns() - 1) * step_),
        pair_count_(job.weights.rows() / 2 + 1),
        takes_alpha_(job.weights.Whole() && job.out.TakesAlpha()),
        reads_in_place_(job.source.InPlace()),
        stores_in_place_(reads_in_place_ && (takes_alpha_ || !job.out.TakesAlpha())) {
    if (takes_alpha_) job.out.KeepAlpha();
  }

  void Run() {
    ForEachTile(0, job_.out.Columns(), MostColumns(),
                [&](int64_t x, int64_t count) { RunTile(x, count); });
  }

 private:
  /// Bytes of the weights of taps for one of two output rows.
  size_t TapBytes() const { return InLines(job_.plan.row_pairs.TapRoom() * sizeof(int32_t)); }
  int64_t MostColumns() const {
    // Rows of bytes: what is outside, those read, and outputs that cannot go where they belong.
    const size_t rows = size_t{1} + (reads_in_place_ ? 0 : 2) + (stores_in_place_ ? 0 : 1);
    constexpr size_t kMostRounded = 127;
    const size_t bytes = job_.scratch.size() - 2 * TapBytes() - (pair_count_ + rows) * kMostRounded;
    const size_t covered = bytes / (2 * pair_count_ + rows);
    return std::min(static_cast<int64_t>((covered - reach_) / step_), job_.out.MostOpened());
  }

  void RunTile(int64_t x, int64_t count) {
    Place(x, count);
    const auto pairs = static_cast<int64_t>(pair_count_);
    for (int64_t pair = 0; pair + 1 < pairs; ++pair) {
      // Pairs above the image are there already.
      if (FirstRow(pair) < -1) {
        next_ = Below(next_);
      } else {
        Read(pair);
      }
    }
    for (int64_t y = 0; y < job_.out.Rows(); y += 2) {
      if (y != 0) Advance();
      Read(y / 2 + pairs - 1);
      Write(y, x, count);
    }
  }

  /// Divides the scratch memory, and fills pairs with what is outside.
  void Place(int64_t x, int64_t count) {
    const int64_t begin = x + job_.weights.FirstColumn();
    const int64_t end = begin + count + static_cast<int64_t>(job_.weights.columns()) - 1;
    first_ = std::clamp<int64_t>(0, begin, end);
    columns_ = std::clamp(job_.source.Columns(), first_, end) - first_;
    inside_ = 2 * static_cast<size_t>(first_ - begin) * step_;
    const size_t outputs = static_cast<size_t>(count) * step_;
    const size_t covered = outputs + reach_;
    uint8_t* next = job_.scratch.data();
    const auto take = [&](size_t bytes) { return std::exchange(next, next + bytes); };
    RowPairTaps taps;
    taps.places = places_;
    taps.upper = reinterpret_cast<int32_t*>(take(TapBytes()));
    taps.lower = reinterpret_cast<int32_t*>(take(TapBytes()));
    outside_ = take(InLines(covered));
    for (uint8_t*& row : read_) row = reads_in_place_ ? nullptr : take(InLines(covered));
    lower_ = stores_in_place_ ? nullptr : take(InLines(outputs));
    pitch_ = InLines(2 * (std::max(outputs, kMostRowPairBytes) + reach_));
    next_ = 0;
    pairs_ = take(pair_count_ * pitch_);
    RepeatPixel(outside_, end - begin, job_.source.outside(), job_.source.pixel_bytes());
    kernels_.interleave(pairs_, outside_, outside_, covered);
    for (size_t i = 1; i < pair_count_; ++i) std::memcpy(pairs_ + i * pitch_, pairs_, 2 * covered);
    weights_ = job_.plan.row_pairs.Store(job_.weights, pitch_, step_, taps, groups_);
    weights_.pairs = pairs_;
    weights_.division = job_.plan.division;
    weights_.takes_alpha = takes_alpha_;
    for (size_t i = 0; i < 2; ++i) {
      const size_t last = job_.weights.rows() - 1 + i;
      weights_.alphas[i] = {static_cast<uint16_t>(last / 2 * pitch_ + 2 * reach_), last % 2 != 0};
    }
  }

  /// The pixels of row `y` that lie inside, or those that stand for them.
  const uint8_t* Pixels(int64_t y, uint8_t* row) const {
    if (reads_in_place_) {
      const uint8_t* const pixels = job_.source.At(y, first_);
      return pixels == nullptr ? outside_ : pixels;
    }
    job_.source.CopyPixels(y, first_, columns_, row);
    return row;
  }
  int64_t FirstRow(int64_t pair) const { return job_.weights.FirstRow() + 2 * pair; }
  /// Reads the next pair, which has this number, counted from the top of the first window.
  void Read(int64_t pair) {
    const int64_t y = FirstRow(pair);
    kernels_.interleave(pairs_ + next_ + inside_, Pixels(y, read_[0]), Pixels(y + 1, read_[1]),
                        static_cast<size_t>(columns_) * step_);
    next_ = Below(next_);
  }
  /// The same place in the next pair.
  uint16_t Below(uint16_t place) const {
    const auto last = static_cast<uint16_t>((pair_count_ - 1) * pitch_);
    return static_cast<uint16_t>(place < last ? place + pitch_ : place - last);
  }
  void Advance() {
    for (size_t i = 0; i < weights_.tap_count; ++i) places_[i] = Below(places_[i]);
    for (RowPairWeights::Alpha& alpha : weights_.alphas) alpha.place = Below(alpha.place);
  }

  /// Writes rows `y` and `y` + 1.
  void Write(int64_t y, int64_t x, int64_t count) {
    const bool has_lower = y + 1 < job_.out.Rows();
    const size_t bytes = static_cast<size_t>(count) * step_;
    RowPairOutputs outputs;
    outputs.upper = outputs.lower = job_.out.Open(y, x);
    if (has_lower) outputs.lower = stores_in_place_ ? job_.out.Open(y + 1, x) : lower_;
    // Two rows further down.
    std::fill_n(outputs.ahead, outputs.kRowsAhead, outputs.upper);
    const int64_t below = FirstRow(y / 2 + static_cast<int64_t>(pair_count_));
    for (int64_t i = 0; i < 2; ++i) {
      if (reads_in_place_ && below + i >= 0 && below + i < job_.out.Rows()) {
        outputs.ahead[i] = job_.source.At(below + i, first_);
      }
      if (stores_in_place_ && y + 2 + i < job_.out.Rows()) {
        outputs.ahead[2 + i] = job_.out.At(y + 2 + i, x);
      }
    }
    kernels_.weigh(outputs, weights_, bytes);
    job_.out.Close(y, x, count);
    if (!has_lower) return;
    if (!stores_in_place_) std::memcpy(job_.out.Open(y + 1, x), lower_, bytes);
    job_.out.Close(y + 1, x, count);
  }

  const ConvolutionJob& job_;
  const RowPairKernels& kernels_;
  const size_t step_;
  const size_t reach_;       ///< bytes from the first pixel of a window to its last one
  const size_t pair_count_;  ///< under the windows of two rows
  const bool takes_alpha_;
  const bool reads_in_place_;
  const bool stores_in_place_;
  // Of a tile: its columns inside, and what lies in scratch memory.
  int64_t first_ = 0;
  int64_t columns_ = 0;
  size_t inside_ = 0;  ///< bytes from the begin of a pair to these
  uint8_t* outside_ = nullptr;
  uint8_t* read_[2] = {};
  uint8_t* lower_ = nullptr;
  uint8_t* pairs_ = nullptr;  ///< a ring
  size_t pitch_ = 0;
  uint16_t next_ = 0;  ///< where the next pair goes
  RowPairGroup groups_[kMostRowPairGroups];
  uint16_t places_[RowPairs::kMostTapRoom];  ///< beside the scratch memory, which tiles need
  RowPairWeights weights_;
};

}  // namespace

// Inlined, its places would be on the stack of all methods.
[[gnu::noinline]] void ConvolveRowPairs(const ConvolutionJob& job) { RowPairTiles(job).Run(); }

}  // namespace qel
