#ifndef QEL_CLI_BATCH_BATCH_TOTALS_H_
#define QEL_CLI_BATCH_BATCH_TOTALS_H_

#include <cstddef>
#include <optional>
#include <string>

#include "cli/terminal/errors.h"
#include "pictures/picture_error.h"

namespace qel::cli {

/// What became of one item.
struct ItemResult {
  enum class Status { kDone, kSkipped, kFailed };
  Status status = Status::kDone;
  ExitCode code = kDone;  ///< of a failure
  std::string reason;     ///< of a failure, with the file's name
};

/// What an exception means for the item of this input. Errors of picture files name their file.
inline ItemResult FailureOf(const std::string& input, const std::exception& error) {
  const bool named = dynamic_cast<const pictures::PictureError*>(&error) != nullptr;
  return {ItemResult::Status::kFailed, ExitCodeOf(error),
          (named ? "" : input + ": ") + MessageOf(error)};
}

/// How far a run has come.
struct BatchTotals {
  size_t files = 0;
  size_t done = 0;
  size_t skipped = 0;
  size_t failed = 0;
  double partly = 0;                     ///< of pictures that are being worked on, in pictures
  std::optional<ExitCode> failure_code;  ///< of all failures, kSomeFailed when they differ

  size_t Finished() const { return done + skipped + failed; }
  /// How much of the whole run is done, from 0 to 1.
  double Share() const {
    return files == 0 ? 1 : (static_cast<double>(Finished()) + partly) / static_cast<double>(files);
  }

  void Add(const ItemResult& result) {
    if (result.status == ItemResult::Status::kDone) ++done;
    if (result.status == ItemResult::Status::kSkipped) ++skipped;
    if (result.status != ItemResult::Status::kFailed) return;
    ++failed;
    failure_code = failure_code.value_or(result.code) == result.code ? result.code : kSomeFailed;
  }

  /// The exit code of the whole run: the failures' own when nothing else came of it.
  ExitCode Code() const {
    if (failed == 0) return kDone;
    return failed == Finished() ? *failure_code : kSomeFailed;
  }
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_BATCH_TOTALS_H_
