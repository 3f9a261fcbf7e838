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

  /// The neighbours that weigh anything.
  Interval Columns() const {
    return {weights.FirstColumn(), static_cast<int64_t>(weights.columns())};
  }
  Interval Rows() const { return {weights.FirstRow(), static_cast<int64_t>(weights.rows())}; }
  /// Columns of a tile whose rows have room for `bytes` bytes; may be negative.
  int64_t TileWidth(int64_t bytes) const {
    return bytes / source.pixel_bytes() - static_cast<int64_t>(weights.columns()) + 1;
  }
};

/// Calls row_function(dest, rows, bytes) with the rows of each output row's windows. It may read
/// `slack` bytes past them.
template <typename RowFunction>
void ForEachWeighedRow(const ConvolutionJob& job, size_t slack, RowFunction&& row_function) {
  ForEachRowOfWindows<kMostTaps>(job.source, job.out, {job.Columns(), job.Rows()}, slack,
                                 job.scratch, std::forward<RowFunction>(row_function));
}

// The methods; each does what `RunConvolution` does.
void ConvolveSquare3(const ConvolutionJob& job);
void ConvolveBox(const ConvolutionJob& job);
void ConvolveSeparable16(const ConvolutionJob& job);
void ConvolveSparse(const ConvolutionJob& job);
void ConvolveSeparable32(const ConvolutionJob& job);
void ConvolveRowPairs(const ConvolutionJob& job);
void ConvolveDirect(const ConvolutionJob& job);
void ConvolveLarge(const ConvolutionJob& job);

}  // namespace qel

#endif  // QEL_FILTER_CONVOLUTION_CONVOLUTION_JOB_H_
