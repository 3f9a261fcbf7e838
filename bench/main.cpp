#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <list>
#include <stdexcept>

#include "bench/levels.h"
#include "bench/runner.h"

namespace qel::bench {
namespace {

/// What the figures depend on.
std::string Machine() {
  std::string processor = "unknown processor";
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("model name", 0) == 0) processor = line.substr(line.find(':') + 2);
  }
#ifdef QEL_BENCH_OPENCV
  cv::setNumThreads(1);
  const std::string peer = "OpenCV " CV_VERSION " with at most " + PeerInstructions();
#else
  const std::string peer = "no OpenCV";
#endif
  return "One thread of: " + processor + "; compiler " __VERSION__ "; " + peer + ".";
}

std::vector<Row> AllRows() {
  std::vector<Row> all;
  const auto add = [&](const char* component, std::vector<Row> rows) {
    for (Row& row : rows) row.component = component;
    all.insert(all.end(), rows.begin(), rows.end());
  };
  add("color", ColorRows());
  add("transform", TransformRows());
  add("deform", DeformRows());
  add("filter", FilterRows());
  add("maths", MathsRows());
  return all;
}

int Main(int argc, char** argv) {
  const Options options = ParseOptions(argc, argv);
  if (options.help) {
    std::cout << kUsage;
    return 0;
  }
  if (!options.levels.empty() && !MeasuresOneLevel(options)) return MeasureLevels(options);
  std::vector<char*> arguments;
  for (const std::string& argument : options.benchmark) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());

  Setting setting = {.machine = Machine(), .modules = {}, .sizes = options.sizes};
  const auto collection = MakeCollection();
  std::list<host::ModuleLibrary> libraries;
  std::vector<Components> modules;
  for (const ModuleChoice& choice : options.modules) {
    const host::ModuleLibrary& library = libraries.emplace_back(choice.file);
    library.Initialize(collection.Get());
    modules.push_back(operations::MakeComponents(library));
    setting.modules.push_back(choice.name);
  }
  if (modules.empty()) throw std::runtime_error("no module is left to measure");
  for (const std::string& name : setting.modules) {  // before minutes of measuring
    if (!options.markdown.empty()) FindMarkdownPart(options.markdown, name);
  }
  const std::vector<Row> rows = AllRows();
  Runner runner(modules, setting, options, rows);
  std::cout << setting.machine << "\n\n" << std::flush;
  benchmark::RunSpecifiedBenchmarks(&runner);

  const std::vector<Result> results = runner.Results();
  if (options.check) std::cout << "\n" << Availability(results);
  for (size_t i = 0; i < modules.size() && !options.check; ++i) {
    const std::string& name = setting.modules[i];
    const std::string summary = Summary(setting, results, i);
    std::cout << "\n" << name << "\n" << summary;
    if (!options.markdown.empty()) {
      WriteMarkdown(
          options.markdown, name,
          setting.machine + "\n\n" + summary + MarkdownTables(setting, results, i) + "\n");
    }
    if (options.plot.empty()) continue;
    std::ofstream file(options.plot + "-" + name + ".svg");
    file << PlotOf(setting, results, i);
    if (!file.flush()) throw std::runtime_error(options.plot + "-" + name + ".svg: not written");
  }
  return std::any_of(results.begin(), results.end(), [&](const Result& result) {
    return result.verdict.kind == Verdict::Kind::kWrong ||
           (options.strict && result.verdict.kind == Verdict::Kind::kNotAvailable);
  });
}

}  // namespace
}  // namespace qel::bench

int main(int argc, char** argv) {
  try {
    return qel::bench::Main(argc, argv);
  } catch (const std::invalid_argument& error) {
    std::cerr << "qel_bench: " << error.what() << "\n" << qel::bench::kUsage;
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "qel_bench: " << error.what() << "\n";
    return 1;
  }
}
