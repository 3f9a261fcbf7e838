#ifndef QEL_FILTER_CONVOLUTION_CONVOLUTION_JOB_H_
#define QEL_FILTER_CONVOLUTION_CONVOLUTION_JOB_H_

#include <span>

#include "filter/convolution/convolution_plan.h"
#include "filter/neighbourhood.h"

namespace qel {

/// Scratch rows of all methods.
inline constexpr size_t kConvolutionScratchBytes = 44 * 1024;

/// What the methods share.
struct ConvolutionJob {
  const ConvolutionPlan& plan;
  const Weights& weights;  ///< those of the plan
  const SourceRows& source;
  DestRows& out;
  std::span<uint8_t> scratch;  ///< kConvolutionScratchBytes

  WindowColumns Window() const {
    return {weights.FirstColumn(), static_cast<int64_t>(weights.columns())};
  }
  /// Columns of a tile whose rows have room for `bytes` bytes; may be negative.
  int64_t TileWidth(int64_t bytes) const {
    return bytes / source.pixel_bytes() - static_cast<int64_t>(weights.columns()) + 1;
  }
};

/// The rows of a strip's windows, each read once.
class RowRing {
 public:
  /// `scratch` has room for a scratch row of the strip for each row of the windows.
  RowRing(const ConvolutionJob& job, const Strip& strip, uint8_t* scratch)
      : strip_(strip),
        taps_(job.weights.rows()),
        first_row_(job.weights.FirstRow()),
        scratch_(scratch),
        pitch_(ScratchPitch(strip.InBytes())) {
    for (size_t j = 0; j + 1 < taps_; ++j) Read(static_cast<int64_t>(j));
  }

  /// The rows of the windows of output row `y`, which must be asked for in order.
  const uint8_t* const* RowsAt(int64_t y) {
    Read(y + static_cast<int64_t>(taps_) - 1);
    for (size_t j = 0; j < taps_; ++j) rows_[j] = read_[Slot(y + static_cast<int64_t>(j))];
    return rows_;
  }

 private:
  size_t Slot(int64_t row) const { return static_cast<size_t>(row) % taps_; }
  void Read(int64_t row) {
    const size_t slot = Slot(row);
    read_[slot] = strip_.Read(row + first_row_, scratch_ + slot * pitch_);
  }

  const Strip& strip_;
  const size_t taps_;
  const int64_t first_row_;
  uint8_t* const scratch_;
  const size_t pitch_;
  const uint8_t* read_[kMostTaps];
  const uint8_t* rows_[kMostTaps];
};

/// Calls row_function(dest, rows, bytes) with the rows of each output row's windows. It may read
/// `slack` bytes past them.
template <typename RowFunction>
void RunRing(const ConvolutionJob& job, size_t slack, RowFunction&& row_function) {
  const int64_t assembled =
      job.TileWidth(ScratchRowBytes(job.scratch.size(), static_cast<int64_t>(job.weights.rows())));
  ForEachStrip(job.source, job.out, job.Window(), {assembled, kTileColumns}, slack, job.scratch,
               [&](Strip& strip) {
                 RowRing ring(job, strip, job.scratch.data());
                 const int64_t after =
                     job.weights.FirstRow() + static_cast<int64_t>(job.weights.rows()) - 1;
                 for (int64_t y = 0; y < strip.Rows(); ++y) {
                   strip.Prefetch(y, after);
                   const uint8_t* const* const rows = ring.RowsAt(y);
                   strip.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
                     const uint8_t* here[kMostTaps];
                     for (size_t j = 0; j < job.weights.rows(); ++j) here[j] = rows[j] + first;
                     row_function(dest, here, bytes);
                   });
                 }
               });
}

// The methods; each does what `RunConvolution` does.
void ConvolveSquare3(const ConvolutionJob& job);
void ConvolveBox(const ConvolutionJob& job);
void ConvolveSeparable16(const ConvolutionJob& job);
void ConvolveSparse(const ConvolutionJob& job);
void ConvolveSeparable32(const ConvolutionJob& job);
void ConvolveDirect(const ConvolutionJob& job);
void ConvolveLarge(const ConvolutionJob& job);

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_CONVOLUTION_JOB_H_
