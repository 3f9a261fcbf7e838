#ifndef QEL_FILTER_MORPHOLOGY_EXTREMA_JOB_H_
#define QEL_FILTER_MORPHOLOGY_EXTREMA_JOB_H_

#include <span>

#include "filter/filter_kernels.h"
#include "filter/neighbourhood.h"

namespace qel {

/// All scratch rows of a call.
inline constexpr size_t kExtremaScratchBytes = 50 * 1024;

/// What the methods share: images, windows, and one extremum or two, of which the second is
/// subtracted from the first.
struct ExtremaJob {
  const SourceRows& source;
  DestRows& out;
  int size;
  std::span<const ExtremumKernels* const> kernels;
  std::span<uint8_t> scratch;  ///< kExtremaScratchBytes
};

// The methods; each does what `RunExtrema` does.
void RunExtremaByGroups(const ExtremaJob& job);
void RunExtremaByWideGroups(const ExtremaJob& job);

/// The scratch rows of a strip.
class ScratchRows {
 public:
  ScratchRows(std::span<uint8_t> memory, size_t pitch) : memory_(memory.data()), pitch_(pitch) {}
  size_t pitch() const { return pitch_; }
  uint8_t* Take(int64_t rows) {
    uint8_t* const taken = memory_ + used_;
    used_ += static_cast<size_t>(rows) * pitch_;
    return taken;
  }

 private:
  uint8_t* const memory_;
  const size_t pitch_;
  size_t used_ = 0;
};

/// Writes output row `y` of a strip of one extremum or two. reduce(e, dest, first, bytes) gives
/// extremum `e` of the windows from `first` on. `spare` are two rows `pitch` bytes apart.
template <typename Reduce>
void WriteExtrema(Strip& strip, int64_t y, size_t extrema, uint8_t* spare, size_t pitch,
                  Reduce&& reduce) {
  strip.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
    if (extrema == 1) {
      reduce(0, dest, first, bytes);
      return;
    }
    reduce(0, spare, first, bytes);
    reduce(1, spare + pitch, first, bytes);
    ActiveFilterKernels().subtract(dest, spare, spare + pitch, strip.Step(), bytes);
  });
}

}  // namespace qel

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_JOB_H_
