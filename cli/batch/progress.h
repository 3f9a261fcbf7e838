#ifndef QEL_CLI_BATCH_PROGRESS_H_
#define QEL_CLI_BATCH_PROGRESS_H_

#include <memory>
#include <string>

#include "cli/batch/batch_plan.h"
#include "cli/batch/batch_totals.h"

namespace qel::cli {

/// How a run tells how far it is. Calls come one at a time.
class Progress {
 public:
  virtual ~Progress() = default;
  virtual void Start(const BatchTotals&, int /*jobs*/) {}
  /// An item is finished; `totals` contains it.
  virtual void Finished(const BatchItem&, const ItemResult&, const BatchTotals& /*totals*/) {}
  /// Some time has passed.
  virtual void Tick(const BatchTotals&) {}
  virtual void End(const BatchTotals&, bool /*interrupted*/) {}
};

/// Whether `name` is a way to show progress: "auto", "bar", "json" or "none".
bool IsProgressName(const std::string& name);

/// "bar" is a line on the terminal; "json" writes an object per line to `descriptor` for the start,
/// every finished item and the end, and with a single file how much of it is done; "auto" is a bar
/// when standard error is a terminal, for a single file only if it takes long.
std::unique_ptr<Progress> MakeProgress(const std::string& name, int descriptor, size_t files);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_PROGRESS_H_
