#ifndef QEL_CLI_BATCH_MANIFEST_H_
#define QEL_CLI_BATCH_MANIFEST_H_

#include <unistd.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cli/batch/batch_plan.h"

namespace qel::cli {

/// True for files that are empty or whose first line, as far as it goes, is one of a manifest:
/// those that a run may replace by its own. What cannot be read counts as empty.
bool BeginsLikeManifest(const std::string& path);

/// The record of a run: a file with one JSON object per line and item, told by its names, what was
/// done (the recipe) and the SHA-256 of both files. While the run lasts, lines are added before
/// outputs get their names ("started") and once they have them ("done"), so that a run that was
/// killed can be resumed; at its end, one line for every item is left, in order.
/// Threads: any for everything but `Finish`.
class Manifest {
 public:
  /// Opens the file for `items` items, for this run alone. Lines of earlier runs are kept to be
  /// known when `resume`; those that are not understood are told on standard error. Throws
  /// `Failure(kNoOutput)`.
  Manifest(const std::string& path, const std::string& recipe, size_t items, bool resume);
  Manifest(const Manifest&) = delete;
  Manifest& operator=(const Manifest&) = delete;

  /// True when an earlier run made an output of this hash, which stands there now, from an input of
  /// this hash; the item then takes over its line. An empty `input_hash` stands for any.
  bool TakeOver(size_t index, const BatchItem& item, const std::string& input_hash,
                const std::string& output_hash);

  /// Adds a line for an item whose output is about to get its name: without it, the output of a run
  /// that is then killed could be processed again in place. So it is on the disk in that case, when
  /// this returns. Throws `Failure(kNoOutput)`.
  void RecordStarted(const BatchItem& item, const std::string& input_hash,
                     const std::string& output_hash);
  /// Adds the line of an item whose output stands under its name. Throws `Failure(kNoOutput)`.
  void RecordDone(size_t index, const BatchItem& item, const std::string& input_hash,
                  const std::string& output_hash);
  /// Replaces the line of an item. A line that finds no room is missing: `Finish` has none either.
  void RecordFailed(size_t index, const BatchItem& item, const std::string& reason);

  /// Writes the lines in the order of the items, whole or not at all. Earlier lines of items that
  /// failed are kept behind them: what was made of those is not to be made again in place. So are
  /// those of items without a line where a run was `interrupted`; otherwise they are dropped.
  /// Throws `pictures::PictureError`.
  void Finish(bool interrupted);

 private:
  struct Line {
    uint64_t offset = 0;
    uint32_t length = 0;  ///< 0: there is none
  };
  struct File {
    int descriptor = -1;
    ~File() {
      if (descriptor >= 0) close(descriptor);
    }
  };
  void ReadEarlierLines();
  std::string LineOf(const BatchItem& item, std::string_view status, const std::string& input_hash,
                     const std::string& output_hash) const;
  /// Takes away what a write that failed, or a run that was killed, left of a line.
  void CutToSize();
  /// Adds a line, and makes it that of an item. False when it found no room: the item has none.
  bool Append(const std::string& text, std::optional<size_t> index);
  std::string Read(const Line& line) const;
  /// Earlier lines, in their order: of items that failed in this run and, if `of_others`, of those
  /// that have no line in it.
  std::vector<std::string> EarlierLines(bool of_others) const;

  const std::string path_;
  const std::string recipe_;
  File file_;
  uint64_t size_ = 0;
  /// Lines of earlier runs by the hash of all that they say but for status and input.
  std::unordered_map<std::string, Line> earlier_;
  std::mutex mutex_;
  std::vector<Line> lines_;  ///< by item
  bool any_failed_ = false;
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_MANIFEST_H_
