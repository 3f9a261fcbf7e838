#include <algorithm>
#include <cstring>

#include "filter/convolution/convolution_job.h"

// Equal weights: running sums down the columns. From row to row, one row of the source enters them
// and one leaves.

namespace qel {
namespace {

template <typename Sum, typename Quotient>
[[gnu::noinline]] void RunBox(const ConvolutionJob& job, const BoxKernels<Sum, Quotient>& kernels,
                              const Quotient& division) {
  constexpr size_t kRows = 2;
  constexpr size_t kSlack = (kRows + 1) * (kRowSlack + 128);
  static_assert(kMostBoxBytes * (kRows + sizeof(Sum)) + kSlack <= kConvolutionScratchBytes);
  const int64_t most =
      std::min(job.TileWidth(static_cast<int64_t>(kMostBoxBytes)), job.out.MostOpened());
  const auto taps = static_cast<int64_t>(job.weights.rows());
  const auto weight = static_cast<Sum>(job.weights.At(0, 0));
  ForEachStrip(job.source, job.out, job.Columns(), {most, most}, 0, job.scratch, [&](Strip& strip) {
    const size_t bytes = strip.InBytes();
    uint8_t* const leaving_slot = job.scratch.data();
    auto* const sums = reinterpret_cast<Sum*>(leaving_slot + ScratchPitch(bytes));
    // In place, the row outside lies here.
    uint8_t* const entering_slot =
        leaving_slot + ScratchPitch(bytes) + ScratchPitch(bytes * sizeof(Sum));
    std::memset(sums, 0, bytes * sizeof(Sum));
    std::memset(leaving_slot, 0, bytes);
    const uint8_t* leaving = leaving_slot;
    const auto enter = [&](int64_t row) {
      const uint8_t* const entering = strip.Read(row + job.weights.FirstRow(), entering_slot);
      kernels.running_sums(sums, entering, leaving, weight, bytes);
    };
    for (int64_t row = 0; row < taps - 1; ++row) enter(row);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, taps - 1 + job.weights.FirstRow());
      if (y > 0) leaving = strip.Read(y - 1 + job.weights.FirstRow(), leaving_slot);
      enter(y + taps - 1);
      kernels.across(strip.Open(y), sums, job.weights.columns(), job.plan.step, division,
                     strip.OutBytes());
      strip.Close(y);
    }
  });
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
