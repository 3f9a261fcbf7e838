#ifndef QEL_CLI_SESSION_LIMIT_OPTIONS_H_
#define QEL_CLI_SESSION_LIMIT_OPTIONS_H_

#include "cli/terminal/options.h"
#include "pictures/limits.h"

namespace qel::cli {

/// The limits that --max-pixels and --max-memory ask for. Throws `Failure(kUsage)`.
inline pictures::Limits LimitsFrom(const Options& options) {
  constexpr int64_t kThousand = 1000, kBinaryThousand = 1024;
  pictures::Limits limits;
  limits.max_pixels = options.Size("--max-pixels", kThousand, limits.max_pixels);
  limits.max_memory = options.Size("--max-memory", kBinaryThousand, limits.max_memory);
  return limits;
}

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_LIMIT_OPTIONS_H_
