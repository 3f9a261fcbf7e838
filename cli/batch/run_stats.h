#ifndef QEL_CLI_BATCH_RUN_STATS_H_
#define QEL_CLI_BATCH_RUN_STATS_H_

#include <mutex>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace qel::cli {

/// Where the time of one picture went, in seconds.
struct PictureTimes {
  double reading = 0;
  std::vector<double> steps;
  double writing = 0;
  double megapixels = 0;  ///< as it was read
};

/// Where the time of a run went.
/// Threads: any for `Add`.
class RunStats {
 public:
  explicit RunStats(size_t steps) { sum_.steps.resize(steps); }

  void Add(const PictureTimes& times);

  /// A line each for reading, every step by its text, and writing: seconds of all pictures
  /// together, milliseconds a picture, and megapixels a second.
  void Print(std::span<const std::string> steps, std::ostream& output) const;

 private:
  std::mutex mutex_;
  PictureTimes sum_;
  size_t pictures_ = 0;
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_RUN_STATS_H_
