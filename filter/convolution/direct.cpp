#include <algorithm>

#include "filter/convolution/convolution_job.h"

// Every weight of the window for every pixel, as many at once as their size allows.

namespace qel {
namespace {

/// Words of the packed weights.
constexpr size_t kWeightWords = kMostTaps * ((kMostTaps + 1) / 2);

/// Packs the weights of each row, `per_word` of `bits` in a word, and returns the words of a row.
size_t PackWeights(const Weights& weights, size_t per_word, size_t bits, int32_t* words) {
  const size_t words_per_row = (weights.columns() + per_word - 1) / per_word;
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

/// Doubles the pairs of bytes in `words`, and marks those before which sums of 16 bits must widen;
/// false when a single pair needs more.
bool MarkWidening(int32_t* words, size_t count, uint8_t* widens) {
  constexpr int32_t kMost = INT16_MAX / 255;  // and as many below 0
  int32_t lowest = 0, highest = 0;
  for (size_t i = 0; i < count; ++i) {
    const int32_t left = static_cast<int8_t>(words[i]), right = static_cast<int8_t>(words[i] >> 8);
    const int32_t more = std::max(left, 0) + std::max(right, 0);
    const int32_t less = std::min(left, 0) + std::min(right, 0);
    if (more > kMost || less < -kMost) return false;
    widens[i] = highest + more > kMost || lowest + less < -kMost;
    if (widens[i] != 0) lowest = highest = 0;
    highest += more;
    lowest += less;
    words[i] = static_cast<int32_t>(static_cast<uint32_t>(words[i]) * 0x10001u);
  }
  return true;
}

}  // namespace

void ConvolveDirect(const ConvolutionJob& whole) {
  constexpr size_t kWeightBytes = (kWeightWords * (sizeof(int32_t) + 1) + 63) / 64 * 64;
  ConvolutionJob job = whole;
  auto* const words = reinterpret_cast<int32_t*>(job.scratch.data());
  uint8_t* const widens = job.scratch.data() + kWeightWords * sizeof(int32_t);
  job.scratch = job.scratch.subspan(kWeightBytes);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const bool takes_alpha = job.weights.Whole() && job.out.TakesAlpha();
  if (takes_alpha) job.out.KeepAlpha();
  DirectWeights packed{job.weights.Row(0), job.weights.columns(), job.weights.stride(),
                       job.weights.rows(), job.plan.step,         widens};
  packed.takes_alpha = takes_alpha;
  packed.last_column = (job.weights.columns() - 1) * job.plan.step;
  ConvolutionKernels::Direct direct = kernels.direct32;
  const auto take = [&](ConvolutionKernels::Direct function, size_t per_word, size_t bits) {
    direct = function;
    packed.words_per_row = packed.stride = PackWeights(job.weights, per_word, bits, words);
    packed.words = words;
  };
  const size_t taps = job.weights.Within(1 << 7) ? kernels.direct8_taps : 0;
  if (taps != 0) take(kernels.direct8, taps, 8);
  if (taps == 2 && !MarkWidening(words, packed.stride * packed.rows, widens)) {
    direct = kernels.direct32;
  }
  if (direct == kernels.direct32 && job.weights.Within(1 << 15)) take(kernels.direct16, 2, 16);
  ForEachWeighedRow(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    direct(dest, rows, packed, job.plan.division, count);
  });
}

}  // namespace qel
