#ifndef QEL_BENCH_RUNNER_H_
#define QEL_BENCH_RUNNER_H_

#include <benchmark/benchmark.h>

#include <list>
#include <string>
#include <vector>

#include "bench/options.h"
#include "bench/report.h"

namespace qel::bench {

/// Runs rows through Google Benchmark, which prints nothing of its own, and keeps the results.
class Runner final : public benchmark::BenchmarkReporter {
 public:
  /// All of these must live on.
  Runner(const std::vector<Components>& modules, const Setting& setting, const Options& options,
         const std::vector<Row>& rows);

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>&) override;

  /// The results of the rows that ran, in their order.
  std::vector<Result> Results() const;

 private:
  static constexpr int kSmall = -1;  // in place of the number of a size

  void Measure(benchmark::State& state, Result& result, int size);

  const std::vector<Components>& modules_;
  const Setting& setting_;
  const Options& options_;
  std::list<Result> all_;
  std::string line_;
};

}  // namespace qel::bench

#endif  // QEL_BENCH_RUNNER_H_
