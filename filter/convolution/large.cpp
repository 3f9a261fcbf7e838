#include <algorithm>
#include <cstring>

#include "filter/convolution/convolution_job.h"

// Windows of any size: one weight at a time, and of the weights that fall outside for a whole tile
// only their sum.

namespace qel {

void ConvolveLarge(const ConvolutionJob& job) {
  constexpr int64_t kColumns = 512;
  constexpr int64_t kPiece = 256;
  auto* const sums = reinterpret_cast<uint32_t*>(job.scratch.data());
  uint8_t* const pixels = job.scratch.data() + kColumns * 4 * sizeof(uint32_t);
  static_assert(kConvolutionScratchBytes >= kColumns * 16 + (kColumns + kPiece) * 4 + kRowSlack);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const Weights& weights = job.weights;
  const size_t step = job.plan.step;
  const auto columns = static_cast<int64_t>(weights.columns());
  const auto rows = static_cast<int64_t>(weights.rows());
  ForEachTile(0, job.out.Columns(), kColumns, [&](int64_t x, int64_t count) {
    const size_t bytes = static_cast<size_t>(count) * step;
    // The columns of the kernel that meet the image somewhere in this tile.
    const int64_t first = x + weights.FirstColumn();
    const int64_t begin = std::clamp<int64_t>(-(first + count - 1), 0, columns);
    const int64_t end = std::clamp<int64_t>(job.out.Columns() - first, begin, columns);
    for (int64_t y = 0; y < job.out.Rows(); ++y) {
      std::memset(sums, 0, bytes * sizeof(uint32_t));
      uint32_t outside = 0;
      for (int64_t j = 0; j < rows; ++j) {
        const int32_t* const row = weights.Row(static_cast<size_t>(j));
        const int64_t sy = y + weights.FirstRow() + j;
        const bool inside = sy >= 0 && sy < job.out.Rows();
        const int64_t from = inside ? begin : columns;
        const int64_t to = inside ? end : columns;
        for (int64_t i = 0; i < from; ++i) outside += static_cast<uint32_t>(row[i]);
        for (int64_t i = to; i < columns; ++i) outside += static_cast<uint32_t>(row[i]);
        for (int64_t piece = from; piece < to; piece += kPiece) {
          const int64_t piece_end = std::min(piece + kPiece, to);
          job.source.CopyPixels(sy, first + piece, count + piece_end - piece - 1, pixels);
          for (int64_t i = piece; i < piece_end; ++i) {
            if (row[i] == 0) continue;
            kernels.accumulate(sums, pixels + static_cast<size_t>(i - piece) * step,
                               static_cast<uint32_t>(row[i]), bytes);
          }
        }
      }
      for (size_t k = 0; k < bytes; ++k) sums[k] += outside * job.source.outside()[k % step];
      kernels.finish(job.out.Open(y, x), sums, job.plan.division, bytes);
      job.out.Close(y, x, count);
    }
  });
}

}  // namespace qel
