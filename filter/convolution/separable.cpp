#include <algorithm>

#include "filter/convolution/convolution_job.h"

// Separable kernels: weight (j, i) = down[j] * across[i].

namespace qel {

// Each row is read once and summed across; its sums are then summed down the columns.
void ConvolveSeparable16(const ConvolutionJob& job) {
  int16_t down[kMostTaps];
  int16_t across[kMostTaps];
  const SeparableWeights weights = job.plan.factors.Store(down, across, job.plan.step);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const size_t taps = job.weights.rows();
  // A row of bytes and a ring of rows of sums.
  const size_t row_bytes =
      (kConvolutionScratchBytes - (2 * taps + 1) * (kRowSlack + 128)) / (2 * taps + 1);
  const int64_t most =
      std::min(job.TileWidth(static_cast<int64_t>(row_bytes)), job.out.MostOpened());
  uint8_t* const scratch = job.scratch.data();
  ForEachStrip(job.source, job.out, job.Columns(), {most, most}, 0, job.scratch, [&](Strip& strip) {
    const size_t pitch = ScratchPitch(strip.OutBytes() * sizeof(uint16_t));
    // In place, the row of bytes is the one outside.
    uint8_t* const ring = scratch + (strip.InPlace() ? 0 : ScratchPitch(strip.InBytes()));
    const auto sums_of = [&](int64_t row) {
      return reinterpret_cast<uint16_t*>(ring + static_cast<size_t>(row) % taps * pitch);
    };
    const auto read = [&](int64_t row) {
      const uint8_t* const pixels = strip.Read(row + job.weights.FirstRow(), scratch);
      kernels.across16(sums_of(row), pixels, weights, strip.OutBytes());
    };
    const auto last = static_cast<int64_t>(taps) - 1;
    for (int64_t row = 0; row < last; ++row) read(row);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, last + job.weights.FirstRow());
      read(y + last);
      const uint16_t* sums[kMostTaps];
      for (size_t j = 0; j < taps; ++j) sums[j] = sums_of(y + static_cast<int64_t>(j));
      kernels.down16(strip.Open(y), sums, weights, job.plan.reciprocal, strip.OutBytes());
      strip.Close(y);
    }
  });
}

// Sums down the columns, a stretch of a row at a time, then across them.
void ConvolveSeparable32(const ConvolutionJob& job) {
  int16_t down[kMostTaps];
  int16_t across[kMostTaps];
  const SeparableWeights weights = job.plan.factors.Store(down, across, job.plan.step);
  ForEachWeighedRow(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().separable32(dest, rows, weights, job.plan.division, count);
  });
}

}  // namespace qel
