#ifndef QEL_CLI_BATCH_BATCH_PLAN_H_
#define QEL_CLI_BATCH_BATCH_PLAN_H_

#include <string>
#include <vector>

#include "cli/batch/output_name.h"
#include "cli/batch/shard.h"

namespace qel::cli {

/// One file to be made.
struct BatchItem {
  std::string input;
  std::string output;
};

/// What a run is to do.
struct BatchRequest {
  std::vector<std::string> inputs;
  std::string output;        ///< pattern of the output names; empty: every input is replaced
  bool names_format = true;  ///< whether extensions of outputs must be those of formats
  Shard shard;
  bool make_folders = false;                 ///< missing folders of outputs are no fault
  std::string manifest;                      ///< may be empty
  std::vector<std::string> other_files;      ///< that are no pictures, and not the manifest either
  std::vector<std::string> second_pictures;  ///< files that no output may replace
};

/// The items of the request's part of the work. All inputs count for the numbers and clashes, so
/// that parts together do what one run would.
/// Throws `Failure`: kUsage when two inputs have one output, an output would replace an input, the
/// manifest is any other file of the run, also under another name, or an output names no picture
/// format; kNoOutput when a folder is missing.
std::vector<BatchItem> PlanBatch(const BatchRequest& request);

/// Makes the folders of the outputs as far as they are missing, and removes what runs that were
/// killed have left in them. Throws `Failure(kNoOutput)`.
void PrepareOutputFolders(const std::vector<BatchItem>& items);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_BATCH_PLAN_H_
