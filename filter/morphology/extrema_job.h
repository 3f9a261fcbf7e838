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
void RunExtremaByBlocks(const ExtremaJob& job);

}  // namespace qel

#endif  // QEL_FILTER_MORPHOLOGY_EXTREMA_JOB_H_
