#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <list>
#include <sstream>
#include <stdexcept>

#include "bench/measure.h"
#include "bench/report.h"
#include "simd/cpu_level.h"

namespace qel::bench {
namespace {

constexpr char kUsage[] =
    "Usage: qel_bench [--filter REGEX] [--level LEVEL[,LEVEL...]|all] [--sizes WxH[,WxH...]]\n"
    "                 [--json FILE] [--markdown FILE] [--plot PREFIX] [--module FILE[,FILE...]]\n"
    "                 [--rounds N] [--warm] [--check] [--strict] [--list]\n"
    "Names are COMPONENT/OPERATION/BITS/SIZE. --level and several modules are measured in turns "
    "and\n"
    "printed side by side. --markdown rewrites the part of the file between the bench marks of "
    "each\n"
    "level; --plot writes PREFIX-LEVEL.svg. --warm leaves images in the caches. --check runs\n"
    "everything once on tiny pictures. --strict takes operations that are not available for\n"
    "failures.\n";

/// A module file to measure, and what it is called in the figures.
struct ModuleChoice {
  std::string name;
  std::string file;
};

struct Options {
  std::vector<ModuleChoice> modules;
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

/// The modules that were built for one processor level each: those named, or with "all" those that
/// this processor runs.
std::vector<ModuleChoice> LevelModules(const std::string& text) {
  const std::vector<std::string> levels = SplitAtCommas(QEL_BENCH_LEVELS);  // lowest first
  const auto runs = static_cast<size_t>(DetectCpuLevel()) + 1;
  std::vector<ModuleChoice> modules;
  for (const std::string& name : text == "all" ? levels : SplitAtCommas(text)) {
    const auto place = std::find(levels.begin(), levels.end(), name) - levels.begin();
    if (static_cast<size_t>(place) == levels.size()) {
      throw std::invalid_argument("there is no level '" + name + "', but " QEL_BENCH_LEVELS);
    }
    if (static_cast<size_t>(place) < runs) {
      modules.push_back({name, QEL_BENCH_LEVEL_MODULES "/QELMaths_" + name + ".so"});
    } else {
      std::cout << name << ": not measured, this processor lacks it\n";
    }
  }
  return modules;
}

Options Parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const auto value = [&]() -> std::string {
      if (i + 1 < argc) return argv[++i];
      throw std::invalid_argument(name + " needs a value");
    };
    if (name == "--filter") {
      options.benchmark.push_back("--benchmark_filter=" + value());
    } else if (name == "--json") {
      options.benchmark.push_back("--benchmark_out=" + value());
    } else if (name == "--list") {
      options.benchmark.push_back("--benchmark_list_tests=true");
    } else if (name == "--markdown") {
      options.markdown = value();
    } else if (name == "--module") {
      for (const std::string& file : SplitAtCommas(value()))
        options.modules.push_back({file, file});
    } else if (name == "--level") {
      options.modules = LevelModules(value());
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
  }
  if (options.modules.empty()) options.modules = {{"module", QEL_BENCH_MODULE}};
  if (options.check) options.sizes = {kSmallPicture};
  return options;
}

/// The images of a stage as a peer sees them.
PeerStage PeerStageOf([[maybe_unused]] const Stage& stage, Size size) {
  PeerStage peer;
  peer.width = size.width;
  peer.height = size.height;
#ifdef QEL_BENCH_OPENCV
  for (size_t i = 0; i < stage.count(); ++i) {
    const host::HostImage& image = stage[i]->Host();
    const bool integers = image.bit_count() == 32 && image.model() == kModelMono;
    const int type = integers ? CV_32S : CV_MAKETYPE(CV_8U, image.bit_count() / 8);
    const cv::Mat same(image.height(), image.width(), type, image.Bits(),
                       static_cast<size_t>(image.stride()));
    peer.images.push_back(image.Bits() != nullptr ? same.clone() : cv::Mat());
  }
#endif
  return peer;
}

/// What `Stage::SetBack` does, for a peer. Its scratch memory stays in the caches.
std::function<void()> SettingBack([[maybe_unused]] PeerStage& peer, [[maybe_unused]] int changes,
                                  [[maybe_unused]] bool cold) {
#ifdef QEL_BENCH_OPENCV
  const auto changed = static_cast<size_t>(changes);
  const cv::Mat original = changes >= 0 ? peer[changed].clone() : cv::Mat();
  return [&peer, original, changes, changed, cold] {
    if (changes >= 0) original.copyTo(peer[changed]);
    const auto evict = [&](const cv::Mat& image) {
      if (cold) Evict(image.data, image.total() * image.elemSize());
    };
    for (const cv::Mat& image : peer.images) evict(image);
    evict(peer.result);
  };
#else
  return {};
#endif
}

/// A plain copy of `bytes` bytes.
Contender CopyOf(size_t bytes, bool cold) {
  static std::vector<char> from, to;
  if (from.size() < bytes) from.resize(bytes, 1);
  if (to.size() < bytes) to.resize(bytes, 1);
  return {[=] {
            if (cold) Evict(from.data(), bytes);
            if (cold) Evict(to.data(), bytes);
          },
          [=] {
            std::memcpy(to.data(), from.data(), bytes);
            benchmark::ClobberMemory();
          }};
}

/// Measures a row with all modules beside the copy and its peer, in turns.
void MeasureLarge(const std::vector<Components>& modules, const Options& options, size_t size,
                  Result& result) {
  const Row& row = *result.row;
  const bool cold = !options.warm;
  const MethodCall method_call = row.CallFor(options.sizes[size]);
  std::list<Stage> stages;
  std::vector<Contender> contenders(1);
  for (const Components& components : modules) {
    Stage& stage = stages.emplace_back(row.inputs, result.depth, options.sizes[size]);
    const auto call = [&] { stage.Run(components, method_call); };
    call();
    contenders.push_back({[&, cold] { stage.SetBack(row.changes, cold); }, call});
  }
  contenders[0] = CopyOf(static_cast<size_t>(stages.front().LargestImage()), cold);
  PeerStage peer = PeerStageOf(stages.front(), options.sizes[size]);
  const bool has_peer =
      row.peer && std::count(row.peer_depths.begin(), row.peer_depths.end(), result.depth) > 0;
  if (has_peer) {
    contenders.push_back({SettingBack(peer, row.changes, cold), [&] { row.peer(peer); }});
  }
  const std::vector<Timing> timings = MeasureInTurns(contenders, options.effort);
  auto stage = stages.begin();
  for (size_t i = 0; i < modules.size(); ++i, ++stage) {
    const Timing& timing = timings[i + 1];
    Figures::Large& large = result.modules[i].large[size];
    large = {.seconds = timing.seconds, .copies = timing.ratio};
    if (has_peer) large.peer_ratio = timing.ratio / timings.back().ratio;
    stage->SetBack(row.changes, false);
    result.modules[i].scratch_bytes = PeakMemory(contenders[i + 1].run);
  }
}

/// Measures what a call costs apart from its pixels: two heights tell.
void MeasureSmall(const Components& components, Effort effort, const Row& row, int depth,
                  Figures& figures) {
  constexpr int kCalls = 50;
  Stage stage(row.inputs, depth, kSmallSize);
  const Size tall_size = {kSmallSize.width, 2 * kSmallSize.height};
  Stage tall(row.inputs, depth, tall_size);
  const auto calls_on = [&](Stage& images, Size size) -> Contender {
    return {{}, [&, call = row.CallFor(size)] {
              for (int i = 0; i < kCalls; ++i) images.Run(components, call);
            }};
  };
  effort.batch_seconds /= 4;
  const std::vector<Timing> timings =
      MeasureInTurns({calls_on(stage, kSmallSize), calls_on(tall, tall_size)}, effort);
  figures.small_seconds = timings[0].seconds / kCalls;
  figures.fixed_seconds = std::max(0.0, figures.small_seconds * (2 - timings[1].ratio));
}

/// Runs rows through Google Benchmark, which prints nothing of its own, and keeps the results.
class Runner final : public benchmark::BenchmarkReporter {
 public:
  Runner(const std::vector<Components>& modules, const Setting& setting, const Options& options,
         const std::vector<Row>& rows)
      : modules_(modules), setting_(setting), options_(options) {
    const Figures none = {.large = std::vector<Figures::Large>(options.sizes.size())};
    const int sizes = static_cast<int>(options.sizes.size());
    for (const Row& row : rows) {
      for (const int depth : row.depths) {
        Result& result = all_.emplace_back(Result{.row = &row, .depth = depth});
        result.modules.assign(modules.size(), none);
        for (int size = options.check ? 0 : kSmall; size < sizes; ++size) {
          const Size pixels =
              size == kSmall ? kSmallSize : options.sizes[static_cast<size_t>(size)];
          const std::string name = row.component + "/" + row.name + "/" + std::to_string(depth) +
                                   "/" + std::to_string(pixels.width) + "x" +
                                   std::to_string(pixels.height);
          benchmark::RegisterBenchmark(
              name.c_str(),
              [this, &result, size](benchmark::State& state) { Measure(state, result, size); })
              ->UseManualTime()
              ->Iterations(1)
              ->Unit(benchmark::kMillisecond);
        }
      }
    }
  }

  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>&) override {
    if (!line_.empty()) std::cout << line_ << std::endl;
  }

  /// The results of the rows that ran, in their order.
  std::vector<Result> Results() const {
    std::vector<Result> results;
    for (const Result& result : all_) {
      if (result.verdict.kind != Verdict::Kind::kUnknown) results.push_back(result);
    }
    return results;
  }

 private:
  static constexpr int kSmall = -1;  // in place of the number of a size

  void Measure(benchmark::State& state, Result& result, int size);

  const std::vector<Components>& modules_;
  const Setting& setting_;
  const Options& options_;
  std::list<Result> all_;
  std::string line_;
};

void Runner::Measure(benchmark::State& state, Result& result, int size) {
  using Kind = Verdict::Kind;
  const Row& row = *result.row;
  const bool is_first = result.verdict.kind == Kind::kUnknown;
  line_.clear();
  try {
    for (size_t i = 0; i < modules_.size() && is_first; ++i) {
      result.verdict = Check(row, modules_[i], result.depth);
      if (result.verdict.kind != Kind::kRight) break;
    }
    if (result.verdict.kind == Kind::kRight && size == kSmall) {
      for (size_t i = 0; i < modules_.size(); ++i) {
        MeasureSmall(modules_[i], options_.effort, row, result.depth, result.modules[i]);
      }
    } else if (result.verdict.kind == Kind::kRight) {
      MeasureLarge(modules_, options_, static_cast<size_t>(size), result);
    }
  } catch (const std::exception& exception) {
    result.verdict = {Kind::kWrong, exception.what()};
  }
  if (result.verdict.kind != Kind::kRight) {
    if (is_first) line_ = NameOf(result) + ": " + result.verdict.reason;
    return state.SkipWithError(result.verdict.reason.c_str());
  }
  if (!options_.check) line_ = LineOf(setting_, result, size);
  const Figures& figures = result.modules.front();
  const auto& large = figures.large[static_cast<size_t>(std::max(size, 0))];
  for ([[maybe_unused]] auto _ : state) {
    state.SetIterationTime(size == kSmall ? figures.small_seconds : large.seconds);
  }
  if (size == kSmall) {
    state.counters["fixed_ns"] = figures.fixed_seconds * 1e9;
    state.counters["scratch_bytes"] = static_cast<double>(figures.scratch_bytes);
    return;
  }
  state.counters["goal"] = row.goal;
  for (size_t i = 0; i < modules_.size(); ++i) {
    const auto& at = result.modules[i].large[static_cast<size_t>(size)];
    const std::string name = modules_.size() > 1 ? setting_.modules[i] + " " : "";
    state.counters[name + "ms"] = at.seconds * 1e3;
    state.counters[name + "copies"] = at.copies;
    state.counters[name + "peer_ratio"] = at.peer_ratio;
  }
}

/// What the figures depend on.
std::string Machine() {
  std::string processor = "unknown processor";
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("model name", 0) == 0) processor = line.substr(line.find(':') + 2);
  }
#ifdef QEL_BENCH_OPENCV
  cv::setNumThreads(1);
  const std::string peer = "OpenCV " CV_VERSION;
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
  const Options options = Parse(argc, argv);
  if (options.help) {
    std::cout << kUsage;
    return 0;
  }
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
