#include "cli/batch/progress.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "cli/operations.h"
#include "cli/terminal/console.h"

namespace qel::cli {
namespace {

/// Time since the start, and what it says about the rest. Skipped items cost next to nothing.
class Pace {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  double FilesPerSecond(const BatchTotals& totals) const {
    return static_cast<double>(totals.done + totals.failed) / std::max(Seconds(), 1e-3);
  }
  /// Below 0 when it cannot be told yet.
  double SecondsLeft(const BatchTotals& totals) const {
    const double done = static_cast<double>(totals.done + totals.failed) + totals.partly;
    const double left = static_cast<double>(totals.files - totals.Finished()) - totals.partly;
    return left <= 0 ? 0 : done > 0 ? left * Seconds() / done : -1;
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// "0:07", "12:30", "1:02:30".
std::string ClockText(double seconds) {
  const auto whole = static_cast<long long>(seconds + 0.5);
  const std::string minutes = fmt::format("{}:{:02}", whole / 60, whole % 60);
  if (whole < 3600) return minutes;
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

class Bar final : public Progress {
 public:
  /// One that `waits` appears only after a while.
  explicit Bar(bool waits) : waits_(waits) {}

  void Start(const BatchTotals& totals, int) override { Tick(totals); }

  void Tick(const BatchTotals& totals) override {
    const auto finished = static_cast<int64_t>(totals.Finished());
    const double share = totals.Share();
    if (waits_ && (pace_.Seconds() < kPatience || share == 0)) return;
    const auto filled = static_cast<size_t>(share * kCells);
    std::string line = fmt::format("[{:<{}}] {} of {}, {:.1f}/s", std::string(filled, '='), kCells,
                                   finished, totals.files, pace_.FilesPerSecond(totals));
    const double left = pace_.SecondsLeft(totals);
    if (left >= 0) line += fmt::format(", {} left", ClockText(left));
    // A line that is wider than the terminal could not be erased again.
    line.resize(std::min(line.size(), static_cast<size_t>(TerminalWidth()) - 1));
    const std::string failed = fmt::format(", {} failed", totals.failed);
    if (totals.failed > 0 && line.size() + failed.size() < static_cast<size_t>(TerminalWidth())) {
      line += Red(failed);
    }
    ShowStatus(line);
  }

  void End(const BatchTotals&, bool) override { ShowStatus({}); }

 private:
  static constexpr size_t kCells = 24;
  static constexpr double kPatience = 2;  // seconds
  const bool waits_;

  Pace pace_;
};

class JsonLines final : public Progress {
 public:
  explicit JsonLines(int descriptor) : descriptor_(descriptor) {}

  void Start(const BatchTotals& totals, int jobs) override {
    JsonObject line;
    line.Text("event", "start").Number("files", static_cast<int64_t>(totals.files));
    line.Number("jobs", jobs);
    Write(line);
  }

  void Finished(const BatchItem& item, const ItemResult& result,
                const BatchTotals& totals) override {
    constexpr std::string_view kNames[] = {"done", "skipped", "failed"};
    JsonObject line;
    line.Text("event", "file").Text("input", item.input).Text("output", item.output);
    line.Text("status", kNames[static_cast<int>(result.status)]);
    if (result.status == ItemResult::Status::kFailed) {
      line.Text("error", result.reason).Number("exit_code", result.code);
    }
    line.Number("finished", static_cast<int64_t>(totals.Finished()));
    line.Number("files", static_cast<int64_t>(totals.files));
    line.Tenths("files_per_second", pace_.FilesPerSecond(totals));
    const double left = pace_.SecondsLeft(totals);
    if (left >= 0) line.Tenths("seconds_left", left);
    Write(line);
  }

  void Tick(const BatchTotals& totals) override {
    const double percent = std::floor(100 * totals.partly);
    if (totals.files != 1 || percent == told_percent_) return;
    told_percent_ = percent;
    JsonObject line;
    line.Text("event", "working").Real("share", percent / 100);
    Write(line);
  }

  void End(const BatchTotals& totals, bool interrupted) override {
    JsonObject line;
    line.Text("event", interrupted ? "interrupted" : "end");
    line.Number("done", static_cast<int64_t>(totals.done));
    line.Number("skipped", static_cast<int64_t>(totals.skipped));
    line.Number("failed", static_cast<int64_t>(totals.failed));
    line.Tenths("seconds", pace_.Seconds());
    Write(line);
  }

 private:
  void Write(const JsonObject& line) { WriteAll(descriptor_, line.Line()); }

  const int descriptor_;
  double told_percent_ = 0;
  Pace pace_;
};

}  // namespace

bool IsProgressName(const std::string& name) {
  return name == "auto" || name == "bar" || name == "json" || name == "none";
}

std::unique_ptr<Progress> MakeProgress(const std::string& name, int descriptor, size_t files) {
  if (name == "json") return std::make_unique<JsonLines>(descriptor);
  const bool bar = name == "bar" || (name == "auto" && IsTerminal());
  return bar ? std::make_unique<Bar>(files == 1 && name == "auto") : std::make_unique<Progress>();
}

}  // namespace qel::cli
