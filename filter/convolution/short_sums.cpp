#include "filter/convolution/convolution_job.h"

// Kernels whose sums fit 16 bits, with products of bytes: squares of 3 x 3, and few weights.

namespace qel {

void ConvolveSquare3(const ConvolutionJob& job) {
  if (job.weights.Whole()) job.out.KeepAlpha();
  ForEachWeighedRow(job, 0, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().square3(dest, rows, job.plan.square3, count);
  });
}

void ConvolveSparse(const ConvolutionJob& job) {
  PairWeights weights = job.plan.pairs.Stored();
  const PairWeights::Place last{job.weights.rows() - 1,
                                (job.weights.columns() - 1) * job.plan.step};
  if (job.weights.Whole()) {
    weights.alpha = job.plan.step == 4 ? &last : nullptr;
    job.out.KeepAlpha();
  }
  ForEachWeighedRow(job, 0, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().sparse(dest, rows, weights, count);
  });
}

}  // namespace qel
