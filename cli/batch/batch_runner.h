#ifndef QEL_CLI_BATCH_BATCH_RUNNER_H_
#define QEL_CLI_BATCH_BATCH_RUNNER_H_

#include <vector>

#include "cli/batch/batch_plan.h"
#include "cli/batch/manifest.h"
#include "cli/batch/picture_job.h"
#include "cli/batch/progress.h"
#include "cli/terminal/interruption.h"
#include "pictures/atomic_file.h"

namespace qel::cli {

/// All that a run needs.
struct Batch {
  const std::vector<BatchItem>& items;
  const JobTools& tools;
  pictures::Replace replace;
  Manifest* manifest;  ///< may be null
  bool resume;         ///< leave out items that the manifest knows; it is then not null
  Progress& progress;
  RunStats* stats = nullptr;  ///< may be null
  int threads = 0;            ///< for each picture; 0: what pictures leave of the jobs
};

/// Makes the items on `jobs` threads: as many pictures at a time, and where there are not as many,
/// several threads for each. An item that fails is told on standard error and leaves the
/// others alone. An interruption ends the process, once the outputs that are being written are
/// complete; calculations are not waited for.
ExitCode RunBatch(const Batch& batch, int jobs, const Interruption& interruption);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_BATCH_RUNNER_H_
