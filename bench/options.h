#ifndef QEL_BENCH_OPTIONS_H_
#define QEL_BENCH_OPTIONS_H_

#include <string>
#include <vector>

#include "bench/measure.h"
#include "bench/row.h"

namespace qel::bench {

/// A module file to measure, and what it is called in the figures.
struct ModuleChoice {
  std::string name;
  std::string file;
};

struct Options {
  std::vector<ModuleChoice> modules;
  std::vector<std::string> levels;  ///< of the processor, each with a process of its own
  std::vector<std::string> shared;  ///< the arguments that all of these get
  std::string json;
  std::vector<Size> sizes = {{1920, 1080}, {7680, 4320}};
  std::string markdown;
  std::string plot;
  std::vector<std::string> benchmark = {"qel_bench"};  ///< what Google Benchmark is told
  Effort effort;
  bool warm = false;
  bool check = false;
  bool strict = false;
  bool help = false;
};

/// Reads the command line. Throws std::invalid_argument, which says what is wrong.
Options ParseOptions(int argc, char** argv);

/// What the command line takes.
extern const char kUsage[];

}  // namespace qel::bench

#endif  // QEL_BENCH_OPTIONS_H_
