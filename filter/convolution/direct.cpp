#include "filter/convolution/convolution_job.h"

// Every weight of the window for every pixel, two at once where their size allows.

namespace qel {
namespace {

/// Words of the packed weights.
constexpr size_t kWeightWords = kMostTaps * ((kMostTaps + 1) / 2);

/// Packs the weights of each row, two in a word, and returns the words of a row.
size_t PackPairs(const Weights& weights, int32_t* words) {
  const size_t columns = weights.columns();
  for (size_t j = 0; j < weights.rows(); ++j) {
    for (size_t i = 0; i < columns; i += 2) {
      const auto left = static_cast<uint32_t>(weights.At(j, i)) & 0xFFFF;
      const auto right = i + 1 < columns ? static_cast<uint32_t>(weights.At(j, i + 1)) : 0;
      *words++ = static_cast<int32_t>(left | right << 16);
    }
  }
  return (columns + 1) / 2;
}

}  // namespace

void ConvolveDirect(const ConvolutionJob& whole) {
  ConvolutionJob job = whole;
  auto* const words = reinterpret_cast<int32_t*>(job.scratch.data());
  job.scratch = job.scratch.subspan((kWeightWords * sizeof(int32_t) + 63) / 64 * 64);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const bool takes_alpha = job.weights.Whole() && job.out.TakesAlpha();
  if (takes_alpha) job.out.KeepAlpha();
  DirectWeights packed{job.weights.Row(0), job.weights.columns(), job.weights.stride(),
                       job.weights.rows(), job.plan.step};
  packed.takes_alpha = takes_alpha;
  packed.last_column = (job.weights.columns() - 1) * job.plan.step;
  ConvolutionKernels::Direct direct = kernels.direct32;
  if (job.weights.Within(1 << 15)) {
    direct = kernels.direct16;
    packed.words_per_row = packed.stride = PackPairs(job.weights, words);
    packed.words = words;
  }
  ForEachWeighedRow(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    direct(dest, rows, packed, job.plan.division, count);
  });
}

}  // namespace qel
