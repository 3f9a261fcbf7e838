#ifndef QEL_CLI_BATCH_SHARD_H_
#define QEL_CLI_BATCH_SHARD_H_

#include <cstddef>
#include <string>

namespace qel::cli {

/// One part of a run that several machines share: neighbouring inputs, as many as in any other part
/// or one more. Part after part, they are the whole run in its order.
struct Shard {
  size_t index = 0;  ///< from 0
  size_t count = 1;

  /// The first of its inputs among `files`, and the one behind its last.
  size_t Begin(size_t files) const { return files / count * index + files % count * index / count; }
  size_t End(size_t files) const { return Shard{index + 1, count}.Begin(files); }
};

/// Reads "2/5", the second part of five, or "auto": the part that the environment of a Slurm array
/// or of a Kubernetes indexed job names. Throws `Failure(kUsage)`.
Shard ParseShard(const std::string& text);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_SHARD_H_
