#include "bench/options.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "bench/check.h"
#include "simd/cpu_level.h"

namespace qel::bench {

const char kUsage[] =
    "Usage: qel_bench [--filter REGEX] [--level LEVEL[,LEVEL...]|all] [--sizes WxH[,WxH...]]\n"
    "                 [--json FILE] [--markdown FILE] [--plot PREFIX] [--module FILE[,FILE...]]\n"
    "                 [--rounds N] [--warm] [--check] [--strict] [--list]\n"
    "Names are COMPONENT/OPERATION/BITS/SIZE. Several modules are measured in turns and printed\n"
    "side by side. Levels are measured one after the other, each with OpenCV and the C library at\n"
    "the same level, and then printed side by side; of several, each has a JSON file of its own.\n"
    "--markdown rewrites the part of the file between the bench marks of each level; --plot "
    "writes\n"
    "PREFIX-LEVEL.svg. --warm leaves images in the caches. --check runs everything once on tiny\n"
    "pictures. --strict takes operations that are not available for failures.\n";

namespace {

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

std::vector<Size> ParseSizes(const std::string& text) {
  std::vector<Size> sizes;
  for (const std::string& part : SplitAtCommas(text)) {
    Size size;
    char times = 0, rest = 0;
    if (std::sscanf(part.c_str(), "%d%c%d%c", &size.width, &times, &size.height, &rest) != 3 ||
        times != 'x' || size.width < 16 || size.height < 16) {
      throw std::invalid_argument("sizes are WIDTHxHEIGHT of at least 16, not '" + part + "'");
    }
    sizes.push_back(size);
  }
  if (sizes.empty()) throw std::invalid_argument("--sizes needs at least one size");
  return sizes;
}

/// The processor levels that are named or, with "all", exist, but for those that this processor
/// lacks.
std::vector<std::string> ParseLevels(const std::string& text) {
  const std::vector<std::string> levels = SplitAtCommas(QEL_BENCH_LEVELS);  // lowest first
  const auto runs = static_cast<size_t>(DetectCpuLevel()) + 1;
  std::vector<std::string> measured;
  for (const std::string& name : text == "all" ? levels : SplitAtCommas(text)) {
    const auto place = std::find(levels.begin(), levels.end(), name) - levels.begin();
    if (static_cast<size_t>(place) == levels.size()) {
      throw std::invalid_argument("there is no level '" + name + "', but " QEL_BENCH_LEVELS);
    }
    if (static_cast<size_t>(place) < runs) {
      measured.push_back(name);
    } else {
      std::cout << name << ": not measured, this processor lacks it\n";
    }
  }
  if (measured.empty()) throw std::invalid_argument("no level is left to measure");
  return measured;
}

}  // namespace

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const int first = i;
    const auto value = [&]() -> std::string {
      if (i + 1 < argc) return argv[++i];
      throw std::invalid_argument(name + " needs a value");
    };
    if (name == "--filter") {
      options.benchmark.push_back("--benchmark_filter=" + value());
    } else if (name == "--json") {
      options.json = value();
    } else if (name == "--list") {
      options.benchmark.push_back("--benchmark_list_tests=true");
    } else if (name == "--markdown") {
      options.markdown = value();
    } else if (name == "--module") {
      for (const std::string& file : SplitAtCommas(value()))
        options.modules.push_back({file, file});
    } else if (name == "--level") {
      options.levels = ParseLevels(value());
    } else if (name == "--sizes") {
      options.sizes = ParseSizes(value());
    } else if (name == "--plot") {
      options.plot = value();
    } else if (name == "--rounds") {
      options.effort.rounds = std::stoi(value());
    } else if (name == "--warm") {
      options.warm = true;
    } else if (name == "--check") {
      options.check = true;
      options.effort = {.rounds = 1, .batch_seconds = 0};
    } else if (name == "--strict") {
      options.strict = true;
    } else if (name == "--help") {
      options.help = true;
    } else {
      throw std::invalid_argument("unknown option " + name);
    }
    if (name != "--level" && name != "--json") {
      options.shared.insert(options.shared.end(), argv + first, argv + i + 1);
    }
  }
  if (!options.json.empty()) options.benchmark.push_back("--benchmark_out=" + options.json);
  for (const std::string& level : options.levels) {
    options.modules.push_back({level, QEL_BENCH_LEVEL_MODULES "/QELMaths_" + level + ".so"});
  }
  if (options.modules.empty()) options.modules = {{"module", QEL_BENCH_MODULE}};
  if (options.check) options.sizes = {kSmallPicture};
  return options;
}

}  // namespace qel::bench
