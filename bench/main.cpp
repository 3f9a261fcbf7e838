#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <iostream>
#include <list>

#include "bench/measure.h"
#include "bench/report.h"

namespace qel::bench {
namespace {

constexpr char kUsage[] =
    "Usage: qel_bench [--filter REGEX] [--json FILE] [--markdown FILE] [--module FILE]\n"
    "                 [--rounds N] [--warm] [--check] [--strict] [--list]\n"
    "Names are COMPONENT/OPERATION/BITS/SIZE. --markdown rewrites the part of the file between\n"
    "its bench marks. --warm leaves images in the caches. --check runs everything once on tiny\n"
    "pictures. --strict takes operations that are not available for failures.\n";

struct Options {
  std::string module = QEL_BENCH_MODULE;
  std::string markdown;
  std::vector<std::string> benchmark = {"qel_bench"};  ///< what Google Benchmark is told
  Effort effort;
  bool warm = false;
  bool check = false;
  bool strict = false;
  bool help = false;
};

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
      options.module = value();
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
  static std::vector<char> from(size_t{4} * kSizes[1].width * kSizes[1].height, 1), to(from);
  return {[=] {
            if (cold) Evict(from.data(), bytes);
            if (cold) Evict(to.data(), bytes);
          },
          [=] {
            std::memcpy(to.data(), from.data(), bytes);
            benchmark::ClobberMemory();
          }};
}

/// Measures a row beside the copy and its peer.
void MeasureLarge(const Components& components, const Options& options, Size size, Result& result,
                  Result::Large& large) {
  const Row& row = *result.row;
  const bool cold = !options.warm;
  Stage stage(row.inputs, result.depth, size);
  const auto call = [&] { row.call(components, stage); };
  call();
  std::vector<Contender> contenders = {CopyOf(static_cast<size_t>(stage.LargestImage()), cold),
                                       {[&] { stage.SetBack(row.changes, cold); }, call}};
  PeerStage peer = PeerStageOf(stage, size);
  const bool has_peer =
      row.peer && std::count(row.peer_depths.begin(), row.peer_depths.end(), result.depth) > 0;
  if (has_peer) {
    contenders.push_back({SettingBack(peer, row.changes, cold), [&] { row.peer(peer); }});
  }
  const std::vector<Timing> timings = MeasureInTurns(contenders, options.effort);
  large = {.seconds = timings[1].seconds, .copies = timings[1].ratio};
  if (has_peer) large.peer_ratio = timings[1].ratio / timings[2].ratio;
  stage.SetBack(row.changes, false);
  result.scratch_bytes = PeakMemory(call);
}

/// Measures what a call costs apart from its pixels: two heights tell.
void MeasureSmall(const Components& components, Effort effort, Result& result) {
  constexpr int kCalls = 50;
  constexpr Size kSmall = kSizes[kSmallSize];
  Stage stage(result.row->inputs, result.depth, kSmall);
  Stage tall(result.row->inputs, result.depth, {kSmall.width, 2 * kSmall.height});
  const auto calls_on = [&](Stage& images) -> Contender {
    return {{}, [&] {
              for (int i = 0; i < kCalls; ++i) result.row->call(components, images);
            }};
  };
  effort.batch_seconds /= 4;
  const std::vector<Timing> timings = MeasureInTurns({calls_on(stage), calls_on(tall)}, effort);
  result.small_seconds = timings[0].seconds / kCalls;
  result.fixed_seconds = std::max(0.0, result.small_seconds * (2 - timings[1].ratio));
}

/// Runs rows through Google Benchmark, which prints nothing of its own, and keeps the results.
class Runner final : public benchmark::BenchmarkReporter {
 public:
  Runner(const Components& components, const Options& options, const std::vector<Row>& rows)
      : components_(components), options_(options) {
    for (const Row& row : rows) {
      for (const int depth : row.depths) {
        Result& result = all_.emplace_back(Result{.row = &row, .depth = depth});
        for (int size = 0; size < (options.check ? 1 : kSizeCount); ++size) {
          const std::string name = row.component + "/" + row.name + "/" + std::to_string(depth) +
                                   "/" + std::to_string(kSizes[size].width) + "x" +
                                   std::to_string(kSizes[size].height);
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
  void Measure(benchmark::State& state, Result& result, int size);

  const Components& components_;
  const Options& options_;
  std::list<Result> all_;
  std::string line_;
};

void Runner::Measure(benchmark::State& state, Result& result, int size) {
  using Kind = Verdict::Kind;
  const bool is_first = result.verdict.kind == Kind::kUnknown;
  line_.clear();
  try {
    if (is_first) result.verdict = Check(*result.row, components_, result.depth);
    if (result.verdict.kind == Kind::kRight && size == kSmallSize) {
      MeasureSmall(components_, options_.effort, result);
    } else if (result.verdict.kind == Kind::kRight) {
      MeasureLarge(components_, options_, options_.check ? kSmallPicture : kSizes[size], result,
                   result.large[size]);
    }
  } catch (const std::exception& exception) {
    result.verdict = {Kind::kWrong, exception.what()};
  }
  if (result.verdict.kind != Kind::kRight) {
    if (is_first) line_ = NameOf(result) + ": " + result.verdict.reason;
    return state.SkipWithError(result.verdict.reason.c_str());
  }
  if (!options_.check) line_ = LineOf(result, size);
  const bool is_small = size == kSmallSize;
  const double seconds = is_small ? result.small_seconds : result.large[size].seconds;
  for ([[maybe_unused]] auto _ : state) state.SetIterationTime(seconds);
  if (is_small) {
    state.counters["fixed_ns"] = result.fixed_seconds * 1e9;
    state.counters["scratch_bytes"] = static_cast<double>(result.scratch_bytes);
  } else {
    state.counters["copies"] = result.large[size].copies;
    state.counters["peer_ratio"] = result.large[size].peer_ratio;
    state.counters["goal"] = result.row->goal;
  }
}

/// What the figures depend on.
std::string Setting() {
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
  return "One thread of: " + processor + "; compiler " __VERSION__ "; " + peer + ".\n\n";
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

  const std::string setting = Setting();
  const auto collection = MakeCollection();
  const host::ModuleLibrary module(options.module);
  module.Initialize(collection.Get());
  const Components components(module);
  const std::vector<Row> rows = AllRows();
  Runner runner(components, options, rows);
  std::cout << setting << std::flush;
  benchmark::RunSpecifiedBenchmarks(&runner);

  const std::vector<Result> results = runner.Results();
  const std::string summary = options.check ? Availability(results) : Summary(results);
  std::cout << "\n" << summary;
  if (!options.markdown.empty()) {
    WriteMarkdown(options.markdown, setting + summary + MarkdownTables(results) + "\n");
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
