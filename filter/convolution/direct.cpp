#include "filter/convolution/convolution_job.h"

// Every weight of the window for every pixel, as many at once as their size allows.

namespace qel {
namespace {

/// Words of the packed weights.
constexpr size_t kWeightWords = kMostTaps * ((kMostTaps + 1) / 2);

/// Packs the weights of each row, `per_word` in a word, and returns the words of a row.
size_t PackWeights(const Weights& weights, size_t per_word, int32_t* words) {
  const size_t words_per_row = (weights.columns() + per_word - 1) / per_word;
  const size_t bits = 32 / per_word;
  const uint32_t mask = (uint32_t{1} << bits) - 1;
  for (size_t j = 0; j < weights.rows(); ++j) {
    for (size_t word = 0; word < words_per_row; ++word) {
      uint32_t packed = 0;
      for (size_t t = 0; t < per_word && word * per_word + t < weights.columns(); ++t) {
        const auto weight = static_cast<uint32_t>(weights.At(j, word * per_word + t));
        packed |= (weight & mask) << (bits * t);
      }
      *words++ = static_cast<int32_t>(packed);
    }
  }
  return words_per_row;
}

}  // namespace

void ConvolveDirect(const ConvolutionJob& whole) {
  constexpr size_t kWeightBytes = (kWeightWords * sizeof(int32_t) + 63) / 64 * 64;
  ConvolutionJob job = whole;
  auto* const words = reinterpret_cast<int32_t*>(job.scratch.data());
  job.scratch = job.scratch.subspan(kWeightBytes);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  DirectWeights packed{job.weights.Row(0), job.weights.columns(), job.weights.stride(),
                       job.weights.rows(), job.plan.step};
  ConvolutionKernels::Direct direct = kernels.direct32;
  const bool bytes = kernels.direct8 != nullptr && job.weights.Within(1 << 7);
  if (bytes || job.weights.Within(1 << 15)) {
    direct = bytes ? kernels.direct8 : kernels.direct16;
    packed.words_per_row = packed.stride = PackWeights(job.weights, bytes ? 4 : 2, words);
    packed.words = words;
  }
  RunRing(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    direct(dest, rows, packed, job.plan.division, count);
  });
}

}  // namespace qel
