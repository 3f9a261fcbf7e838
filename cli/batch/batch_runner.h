#ifndef QEL_CLI_BATCH_BATCH_RUNNER_H_
#define QEL_CLI_BATCH_BATCH_RUNNER_H_

#include <vector>

#include "cli/batch/batch_plan.h"
#include "cli/batch/forecast.h"
#include "cli/batch/manifest.h"
#include "cli/batch/run_stats.h"
#include "cli/batch/session.h"
#include "cli/terminal/interruption.h"
#include "cli/terminal/progress.h"
#include "pictures/atomic_file.h"

namespace qel::cli {

/// All that a run needs.
struct Batch {
  const std::vector<BatchItem>& items;
  const std::vector<Step>& steps;
  const Forecaster& forecaster;
  const pictures::ReadOptions& reading;
  const pictures::WriteOptions& writing;
  pictures::Replace replace;
  const Session& session;
  PictureFiles& second_pictures;
  Manifest* manifest;  ///< may be null
  bool resume;         ///< leave out items that the manifest knows; it is then not null
  Progress& progress;
  RunStats* stats = nullptr;  ///< may be null
};

/// Makes the items on `jobs` threads. An item that fails is told on standard error and leaves the
/// others alone. An interruption ends the process, once the outputs that are being written are
/// complete; calculations are not waited for.
ExitCode RunBatch(const Batch& batch, int jobs, const Interruption& interruption);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_BATCH_RUNNER_H_
