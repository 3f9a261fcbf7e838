#include "bench/measure.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <new>

namespace qel::bench {
namespace {

constexpr int kMostCalls = 8;
constexpr int kFewestRounds = 3;

/// Time of this thread on the processor: on a machine with other work, long calls are interrupted
/// more often than short ones, which would spoil the ratios.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double SecondsOf(const Contender& contender) {
  if (contender.prepare) contender.prepare();
  const double start = ThreadSeconds();
  contender.run();
  return ThreadSeconds() - start;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Memory is counted for one thread, the only one there is while operations run.
int64_t live_bytes = 0;
int64_t peak_bytes = 0;

void* Counted(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  live_bytes += static_cast<int64_t>(malloc_usable_size(block));
  peak_bytes = std::max(peak_bytes, live_bytes);
  return block;
}

void FreeCounted(void* block) {
  if (block != nullptr) live_bytes -= static_cast<int64_t>(malloc_usable_size(block));
  std::free(block);
}

}  // namespace

std::vector<Timing> MeasureInTurns(const std::vector<Contender>& contenders, const Effort& effort) {
  std::vector<int> calls;
  double round_seconds = 0;
  for (const Contender& contender : contenders) {
    SecondsOf(contender);  // brings memory and code in
    const double seconds = std::max(SecondsOf(contender), 1e-9);
    calls.push_back(static_cast<int>(
        std::clamp(effort.batch_seconds / seconds, 1.0, static_cast<double>(kMostCalls))));
    round_seconds += calls.back() * seconds;
  }
  int rounds = effort.rounds;
  while (rounds > kFewestRounds && rounds * round_seconds > effort.most_seconds) --rounds;

  std::vector<std::vector<double>> batches(contenders.size()), ratios(contenders.size());
  for (int round = 0; round < rounds; ++round) {
    for (size_t i = 0; i < contenders.size(); ++i) {
      double shortest = SecondsOf(contenders[i]);
      for (int k = 1; k < calls[i]; ++k) shortest = std::min(shortest, SecondsOf(contenders[i]));
      batches[i].push_back(shortest);
      ratios[i].push_back(shortest / batches[0].back());
    }
  }
  std::vector<Timing> timings;
  for (size_t i = 0; i < contenders.size(); ++i) {
    timings.push_back({Median(batches[i]), Median(ratios[i])});
  }
  return timings;
}

int64_t PeakMemory(const std::function<void()>& run) {
  const int64_t before = live_bytes;
  peak_bytes = live_bytes;
  run();
  return peak_bytes - before;
}

}  // namespace qel::bench

// The counting allocator. The other forms of new and delete end in these; the module, like every
// library loaded later, takes them from the program.
void* operator new(size_t size) {
  return qel::bench::Counted(std::malloc(std::max<size_t>(size, 1)));
}
void* operator new(size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<size_t>(alignment);
  return qel::bench::Counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* block) noexcept { qel::bench::FreeCounted(block); }
void operator delete(void* block, size_t) noexcept { qel::bench::FreeCounted(block); }
void operator delete(void* block, std::align_val_t) noexcept { qel::bench::FreeCounted(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept {
  qel::bench::FreeCounted(block);
}
