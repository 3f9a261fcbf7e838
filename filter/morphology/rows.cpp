#include <algorithm>

#include "filter/morphology/extrema_job.h"

// A few rows at once: the extrema down all rows of the windows, then across them.

namespace qel {
namespace {

/// Most rows of a window.
constexpr int64_t kMostRows = 7;
/// Scratch rows beside those that rows of the windows are assembled in.
constexpr int64_t kSharedRows = 4;

void RunStrip(const ExtremaJob& job, Strip& strip) {
  const Reach reach(job.size);
  const auto size = static_cast<size_t>(job.size);
  ScratchRows scratch(job.scratch, ScratchPitch(strip.InBytes()));
  uint8_t* const combined = scratch.Take(1);
  uint8_t* const spare = scratch.Take(2);
  uint8_t* const slots = scratch.Take(strip.InPlace() ? 0 : job.size);
  const uint8_t* rows[kMostRows];
  const auto slot = [&](size_t i) { return slots + i * scratch.pitch(); };
  for (size_t j = 1; j < size; ++j) {
    rows[j] = strip.Read(static_cast<int64_t>(j) - 1 - reach.before, slot(j));
  }
  for (int64_t y = 0; y < strip.Rows(); ++y) {
    strip.Prefetch(y, reach.after);
    std::copy(rows + 1, rows + size, rows);
    rows[size - 1] = strip.Read(y + reach.after, slot(static_cast<size_t>(y) % size));
    WriteExtrema(strip, y, job.kernels.size(), spare, scratch.pitch(),
                 [&](size_t e, uint8_t* dest, size_t first, size_t bytes) {
                   const uint8_t* here[kMostRows];
                   for (size_t j = 0; j < size; ++j) here[j] = rows[j] + first;
                   job.kernels[e]->window(dest, here, size, strip.Step(), bytes, combined);
                 });
  }
}

}  // namespace

void RunExtremaByRows(const ExtremaJob& job) {
  // Windows bring the alpha of their last pixel with them.
  job.out.KeepAlpha();
  const StripWidths widths{job.ColumnsFor(kSharedRows + job.size), job.ColumnsFor(kSharedRows)};
  ForEachStrip(job.source, job.out, {-Reach(job.size).before, job.size}, widths, 0, job.scratch,
               [&](Strip& strip) { RunStrip(job, strip); });
}

}  // namespace qel
