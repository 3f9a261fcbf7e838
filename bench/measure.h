#ifndef QEL_BENCH_MEASURE_H_
#define QEL_BENCH_MEASURE_H_

#include <cstdint>
#include <functional>
#include <vector>

namespace qel::bench {

/// How long to measure.
struct Effort {
  int rounds = 9;               ///< every contender has one batch in each
  double batch_seconds = 0.01;  ///< a batch has as many calls as fit, one to eight
  double most_seconds = 2;      ///< fewer rounds, but three, when all of them would take longer
};

/// One of those that are measured in turns.
struct Contender {
  std::function<void()> prepare;  ///< runs before each call and does not count
  std::function<void()> run;
};

struct Timing {
  double seconds = 0;  ///< of a call, on the processor
  double ratio = 0;    ///< to the first contender
};

/// Measures the contenders in alternating batches. A batch counts as its shortest call; the results
/// are medians over the rounds, of the batches and of their ratios to the first contender's batch
/// of the same round: what else the machine does meets all of them alike.
std::vector<Timing> MeasureInTurns(const std::vector<Contender>& contenders, const Effort& effort);

/// The most memory from `operator new`, in this process, that was alive at once during `run` beyond
/// what there was before.
int64_t PeakMemory(const std::function<void()>& run);

}  // namespace qel::bench

#endif  // QEL_BENCH_MEASURE_H_
