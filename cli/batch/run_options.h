#ifndef QEL_CLI_BATCH_RUN_OPTIONS_H_
#define QEL_CLI_BATCH_RUN_OPTIONS_H_

#include <string>
#include <vector>

#include "cli/batch/shard.h"
#include "cli/terminal/options.h"
#include "pictures/atomic_file.h"
#include "pictures/picture_file.h"

namespace qel::cli {

/// The command line of `qel run` and `qel convert`. What stands before -o or --in-place are inputs,
/// what stands after it are steps.
struct RunOptions {
  std::vector<std::string> inputs;  ///< names and patterns
  std::string list;                 ///< of --files-from; may be empty
  std::string output;               ///< pattern; empty: in place
  std::vector<std::string> steps;
  std::string recipe_file;        ///< of --recipe; may be empty
  std::vector<int> recipe_lines;  ///< the lines in it that the first steps come from
  pictures::ReadOptions reading;
  pictures::WriteOptions writing;
  std::string recipe;  ///< the steps with the options that change what they make
  std::string module;
  int jobs = 1;
  int threads = 0;    ///< for each picture; 0: what pictures leave of the jobs
  int band_rows = 0;  ///< 0: what suits the picture
  bool make_folders = false;
  pictures::Replace replace = pictures::Replace::kWritable;
  bool dry_run = false;
  std::string manifest;
  bool resume = false;
  bool notes = true;
  bool stats = false;
  Shard shard;
  std::string progress;
  int progress_descriptor = 2;
};

/// What the words after `command` say, which is run or convert. Throws `Failure(kUsage)`, and
/// `pictures::PictureError` for a recipe that cannot be read.
RunOptions ParseRunOptions(const std::string& command, const Options& options);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_RUN_OPTIONS_H_
