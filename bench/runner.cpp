#include "bench/runner.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include "bench/measure.h"

namespace qel::bench {
namespace {

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

/// Measures what a call costs apart from its pixels: two heights tell. The other one is the half:
/// where pixels come from depends on the height, in some operations, and with it what a row takes.
void MeasureSmall(const Components& components, Effort effort, const Row& row, int depth,
                  Figures& figures) {
  constexpr int kCalls = 50;
  Stage stage(row.inputs, depth, kSmallSize);
  const Size low_size = {kSmallSize.width, kSmallSize.height / 2};
  Stage low(row.inputs, depth, low_size);
  const auto calls_on = [&](Stage& images, Size size) -> Contender {
    return {{}, [&, call = row.CallFor(size)] {
              for (int i = 0; i < kCalls; ++i) images.Run(components, call);
            }};
  };
  effort.batch_seconds /= 4;
  const std::vector<Timing> timings =
      MeasureInTurns({calls_on(stage, kSmallSize), calls_on(low, low_size)}, effort);
  figures.small_seconds = timings[0].seconds / kCalls;
  figures.fixed_seconds = std::max(0.0, figures.small_seconds * (2 * timings[1].ratio - 1));
}

}  // namespace

Runner::Runner(const std::vector<Components>& modules, const Setting& setting,
               const Options& options, const std::vector<Row>& rows)
    : modules_(modules), setting_(setting), options_(options) {
  const Figures none = {.large = std::vector<Figures::Large>(options.sizes.size())};
  const int sizes = static_cast<int>(options.sizes.size());
  for (const Row& row : rows) {
    for (const int depth : row.depths) {
      Result& result = all_.emplace_back(Result{.row = &row, .depth = depth});
      result.modules.assign(modules.size(), none);
      for (int size = options.check ? 0 : kSmall; size < sizes; ++size) {
        const Size pixels = size == kSmall ? kSmallSize : options.sizes[static_cast<size_t>(size)];
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

void Runner::ReportRuns(const std::vector<Run>&) {
  if (!line_.empty()) std::cout << line_ << std::endl;
}

std::vector<Result> Runner::Results() const {
  std::vector<Result> results;
  for (const Result& result : all_) {
    if (result.verdict.kind != Verdict::Kind::kUnknown) results.push_back(result);
  }
  return results;
}

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

}  // namespace qel::bench
