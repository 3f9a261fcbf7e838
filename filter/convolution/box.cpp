#include <algorithm>
#include <cstring>

#include "filter/convolution/convolution_job.h"

// Equal weights: running sums down the columns. From row to row, one row of the source enters them
// and one leaves. Sums of columns beside the image are those of the outside color all the way.

namespace qel {
namespace {

/// Most bytes of a row under the windows of a tile: long rows pass by quicker than parts of them.
constexpr size_t kTileBytes = 14 * 1024;

template <typename Sum, typename Quotient>
class BoxTile {
 public:
  /// From now on, pixels bring their alpha with them.
  BoxTile(const ConvolutionJob& job, const BoxKernels<Sum, Quotient>& kernels,
          const Quotient& division)
      : job_(job),
        kernels_(kernels),
        division_(division),
        step_(job.source.pixel_bytes()),
        weight_(static_cast<Sum>(job.weights.At(0, 0))),
        takes_alpha_(job.out.TakesAlpha()),
        alpha_shift_(Reach(static_cast<int>(job.weights.stride())).after) {
    job.out.KeepAlpha();
  }

  /// Most columns of the output in a tile.
  int64_t MostColumns() const { return job_.TileWidth(static_cast<int64_t>(MostBytes())); }

  /// Columns `x` to `x` + `count` - 1 of the output.
  void Run(int64_t x, int64_t count) {
    Place(x, count);
    // Of whole rows the next page, of parts of them the next row.
    constexpr ptrdiff_t kPage = 4096;
    const bool has_parts = count < job_.out.Columns() && job_.source.InPlace();
    ahead_ = has_parts && job_.out.Rows() > 1 ? job_.out.At(1, 0) - job_.out.At(0, 0) : kPage;
    const int64_t first = job_.weights.FirstRow();
    const auto taps = static_cast<int64_t>(job_.weights.rows());
    // Rows above the image, which sums begin with, leave first.
    for (int64_t row = first; row < first + taps - 1; ++row) Move(row, kAboveAll);
    for (int64_t y = 0; y < job_.out.Rows(); ++y) {
      Move(y + first + taps - 1, y == 0 ? kAboveAll : y + first - 1);
      if (!takes_alpha_) {
        Write(y, x, 0, count, nullptr);
        continue;
      }
      const uint8_t* const alpha =
          job_.source.InPlace() ? job_.source.At(y + alpha_shift_, x + alpha_shift_) : nullptr;
      const int64_t inside =
          alpha == nullptr
              ? 0
              : std::clamp<int64_t>(job_.source.Columns() - alpha_shift_ - x, 0, count);
      Write(y, x, 0, inside, alpha);
      Write(y, x, inside, count, outside_);
    }
  }

 private:
  static constexpr int64_t kAboveAll = INT64_MIN;
  /// Of rows of bytes, the one outside among them.
  static constexpr size_t kMostRows = 3;
  static constexpr size_t kSlack = (kMostRows + 1) * (kRowSlack + 128);
  static_assert(kMostBoxBytes * (kMostRows + sizeof(Sum)) + kSlack <= kConvolutionScratchBytes);

  size_t MostBytes() const {
    const size_t rows = job_.source.InPlace() ? 1 : kMostRows;
    return std::min(kTileBytes, (kConvolutionScratchBytes - kSlack) / (rows + sizeof(Sum)));
  }

  void Place(int64_t x, int64_t count) {
    const int64_t begin = x + job_.weights.FirstColumn();
    const int64_t covered = count + static_cast<int64_t>(job_.weights.columns()) - 1;
    first_ = std::clamp<int64_t>(0, begin, begin + covered);
    columns_ = std::clamp<int64_t>(job_.source.Columns(), first_, begin + covered) - first_;
    const auto bytes = static_cast<size_t>(covered * step_);
    sums_ = reinterpret_cast<Sum*>(job_.scratch.data());
    inside_sums_ = sums_ + (first_ - begin) * step_;
    outside_ = job_.scratch.data() + ScratchPitch(bytes * sizeof(Sum));
    entering_ = outside_ + ScratchPitch(bytes);
    leaving_ = entering_ + ScratchPitch(bytes);
    RepeatPixel(outside_, covered, job_.source.outside(), static_cast<int>(step_));
    const auto weight = static_cast<Sum>(uint32_t{weight_} * job_.weights.rows());
    for (size_t i = 0; i < bytes; ++i) sums_[i] = static_cast<Sum>(uint32_t{weight} * outside_[i]);
  }

  /// The pixels of a row that lie inside, or those that stand for them.
  const uint8_t* Read(int64_t row, uint8_t* slot) const {
    if (row == kAboveAll) return outside_;
    if (job_.source.InPlace()) {
      const uint8_t* const pixels = job_.source.At(row, first_);
      return pixels == nullptr ? outside_ : pixels;
    }
    job_.source.CopyPixels(row, first_, columns_, slot);
    return slot;
  }
  /// Lets a row of the source enter the sums and another one leave.
  void Move(int64_t entering, int64_t leaving) {
    const uint8_t* const in = Read(entering, entering_);
    const uint8_t* const out = Read(leaving, leaving_);
    if (in == out) return;
    kernels_.running_sums(inside_sums_, in, out, weight_, ahead_,
                          static_cast<size_t>(columns_ * step_));
  }

  /// Stores columns `begin` to `end` - 1 of the tile; `alpha` is null or has the pixels whose alpha
  /// they get.
  void Write(int64_t y, int64_t x, int64_t begin, int64_t end, const uint8_t* alpha) {
    ForEachTile(begin, end, job_.out.MostOpened(), [&](int64_t first, int64_t count) {
      const auto bytes = static_cast<size_t>(count * step_);
      // Kernels read a vector where there is less.
      uint8_t few[kFewBytes];
      const uint8_t* from = alpha == nullptr ? nullptr : alpha + (first - begin) * step_;
      if (from != nullptr && bytes < kFewBytes) {
        std::memcpy(few, from, bytes);
        from = few;
      }
      kernels_.across(job_.out.Open(y, x + first), sums_ + first * step_, job_.weights.columns(),
                      job_.plan.step, division_, from, ahead_, bytes);
      job_.out.Close(y, x + first, count);
    });
  }
  static constexpr size_t kFewBytes = 64;

  const ConvolutionJob& job_;
  const BoxKernels<Sum, Quotient>& kernels_;
  const Quotient& division_;
  const int64_t step_;
  const Sum weight_;
  const bool takes_alpha_;
  const int64_t alpha_shift_;
  // Of a tile: its columns inside, and what lies in scratch memory.
  int64_t first_ = 0;
  int64_t columns_ = 0;
  ptrdiff_t ahead_ = 0;
  Sum* sums_ = nullptr;
  Sum* inside_sums_ = nullptr;
  uint8_t* outside_ = nullptr;
  uint8_t* entering_ = nullptr;
  uint8_t* leaving_ = nullptr;
};

template <typename Sum, typename Quotient>
void RunBox(const ConvolutionJob& job, const BoxKernels<Sum, Quotient>& kernels,
            const Quotient& division) {
  BoxTile<Sum, Quotient> tile(job, kernels, division);
  ForEachTile(0, job.out.Columns(), tile.MostColumns(),
              [&](int64_t x, int64_t count) { tile.Run(x, count); });
}

}  // namespace

void ConvolveBox(const ConvolutionJob& job) {
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  if (job.plan.is_short) {
    RunBox(job, kernels.box16, job.plan.reciprocal);
  } else {
    RunBox(job, kernels.box32, job.plan.division);
  }
}

}  // namespace qel
