#ifndef QEL_CLI_BATCH_DRY_RUN_H_
#define QEL_CLI_BATCH_DRY_RUN_H_

#include <vector>

#include "cli/batch/batch_plan.h"
#include "cli/batch/batch_totals.h"
#include "cli/batch/run_options.h"
#include "cli/operations.h"

namespace qel::cli {

/// Prints what a run would do, from the headers of the inputs: sizes, depths,
/// output names, and about how much memory it would need at its peak. Inputs whose header is at
/// fault are told on standard error.
ExitCode DryRun(const std::vector<BatchItem>& items, const std::vector<Step>& steps,
                const RunOptions& options);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_DRY_RUN_H_
