#include "bench/report.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace qel::bench {
namespace {

constexpr size_t kMostNamed = 20;
constexpr double kMostGrowth = 1.3;
constexpr double kMostFixedSeconds = 2e-6;
constexpr double kDoubt = 0.05;  // smaller shares of a call cannot be told from its pixel work

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  char text[300];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  return text;
}

/// Three digits of a number, nothing for 0.
std::string Digits(double value) {
  if (value == 0) return "";
  return Format(value < 10 ? "%.2f" : value < 100 ? "%.1f" : "%.0f", value);
}

std::string GoalOf(const Row& row) {
  if (row.goal == 0) return "";
  return Format("%g", row.goal) + (row.floor.empty() ? "" : " x " + row.floor);
}

/// The findings of one kind: how many values are above `limit`, and the worst of them by name.
class Findings {
 public:
  Findings(std::string title, double limit) : title_(std::move(title)), limit_(limit) {}

  void Add(const std::string& name, double value) {
    count_ += value > 0;
    if (value > limit_) found_.emplace(-value, name);
  }
  std::string Text() const {
    if (count_ == 0) return {};
    std::string text =
        "- " + title_ + ": " + std::to_string(found_.size()) + " of " + std::to_string(count_);
    const char* separator = ": ";
    size_t left = kMostNamed;
    for (const auto& [value, name] : found_) {
      if (left-- == 0) return text + ", ...\n";
      text += separator + name + " (" + Digits(-value) + ")";
      separator = ", ";
    }
    return text + "\n";
  }

 private:
  std::string title_;
  double limit_;
  int count_ = 0;
  std::multimap<double, std::string> found_;
};

struct GeometricMean {
  double logarithms = 0;
  int count = 0;
  void Add(double value) {
    if (value <= 0) return;
    logarithms += std::log(value);
    ++count;
  }
  std::string Text(const char* what) const {
    if (count == 0) return {};
    return Format("- Geometric mean of our time / OpenCV's %s: %.2f, over %d rows\n", what,
                  std::exp(logarithms / count), count);
  }
};

std::string TableLine(const Result& result) {
  std::string line = "| " + result.row->name + " | " + std::to_string(result.depth) + " | ";
  if (result.verdict.kind != Verdict::Kind::kRight) {
    return line + result.verdict.reason + " | | | | | | | | | |\n";
  }
  const auto& [hd, uhd] = result.large;
  const std::vector<std::string> cells = {Format("%.3f", hd.seconds * 1e3),
                                          Digits(hd.copies),
                                          GoalOf(*result.row),
                                          Digits(hd.peer_ratio),
                                          Format("%.2f", uhd.seconds * 1e3),
                                          Digits(uhd.copies),
                                          Digits(result.Growth()),
                                          Format("%.0f", result.small_seconds * 1e9),
                                          Format("%.0f", result.fixed_seconds * 1e9),
                                          Format("%.1f", result.scratch_bytes / 1024.0)};
  for (const std::string& cell : cells) line += cell + " | ";
  line.back() = '\n';
  return line;
}

}  // namespace

double Result::OverGoal(int size) const {
  if (row->goal == 0) return 0;
  return (row->floor.empty() ? large[size].copies : large[size].peer_ratio) / row->goal;
}

std::string NameOf(const Result& result) {
  return result.row->component + " " + result.row->name + " at " + std::to_string(result.depth) +
         " bits";
}

std::string LineOf(const Result& result, int size) {
  const Row& row = *result.row;
  std::string line = Format("%-9s %-28s %2d  %4d x %4d ", row.component.c_str(), row.name.c_str(),
                            result.depth, kSizes[size].width, kSizes[size].height);
  if (size == kSmallSize) {
    return line + Format("%10.0f ns, %.0f of them fixed; %.1f KiB beyond the result",
                         result.small_seconds * 1e9, result.fixed_seconds * 1e9,
                         static_cast<double>(result.scratch_bytes) / 1024);
  }
  const Result::Large& large = result.large[size];
  line += Format("%10.3f ms %8s x copy", large.seconds * 1e3, Digits(large.copies).c_str());
  if (large.peer_ratio > 0) {
    line += Format("  %7s x ", Digits(large.peer_ratio).c_str());
    line += row.floor.empty() ? "OpenCV" : row.floor;
  }
  if (row.goal > 0) line += "  goal " + GoalOf(row) + (result.OverGoal(size) > 1 ? " MISSED" : "");
  return line;
}

std::string Summary(const std::vector<Result>& results) {
  GeometricMean means[2];
  Findings slower("slower than OpenCV (our time / OpenCV's)", 1);
  Findings missed("over their goal (time / goal)", 1);
  Findings growing("growing by more than 1.3 from 1920 x 1080 to 3840 x 2160", kMostGrowth);
  Findings costly("with more than 2 us that do not depend on the pixels (in us)",
                  kMostFixedSeconds * 1e6);
  Findings hungry("with more than 64 KiB of memory beyond the result (in KiB)", 64);
  std::map<std::string, std::map<int, double>> flat;  // copies at 24 bits, by kind and size
  for (const Result& result : results) {
    if (result.row->floor.empty()) {
      means[0].Add(result.large[0].peer_ratio);
      means[1].Add(result.large[1].peer_ratio);
      slower.Add(NameOf(result), result.large[0].peer_ratio);
    }
    missed.Add(NameOf(result), result.OverGoal(0));
    growing.Add(NameOf(result), result.Growth());
    const bool is_clear = result.fixed_seconds > kDoubt * result.small_seconds;
    costly.Add(NameOf(result), is_clear ? result.fixed_seconds * 1e6 : 1e-9);
    hungry.Add(NameOf(result), static_cast<double>(result.scratch_bytes) / 1024);
    const std::string& name = result.row->name;
    const size_t blank = name.find(' ');
    if (result.row->component == "filter" && result.depth == 24 && blank != std::string::npos) {
      flat[name.substr(0, blank)][std::atoi(name.c_str() + blank)] = result.large[0].copies;
    }
  }
  std::string text = means[0].Text("at 1920 x 1080") + means[1].Text("at 3840 x 2160");
  for (const Findings* findings : {&slower, &missed, &growing, &costly, &hungry}) {
    text += findings->Text();
  }
  const auto compare = [&](const char* kind, std::initializer_list<std::pair<int, int>> pairs) {
    auto& sizes = flat[kind];
    for (const auto& [larger, smaller] : pairs) {
      if (sizes[larger] == 0 || sizes[smaller] == 0) continue;
      text += Format("- %s %d / %s %d: %.2f\n", kind, larger, kind, smaller,
                     sizes[larger] / sizes[smaller]);
    }
  };
  for (const char* kind : {"erode", "dilate", "edge"}) compare(kind, {{15, 3}, {31, 15}});
  compare("median", {{5, 3}, {9, 5}, {15, 9}, {31, 15}});
  return text + Availability(results);
}

std::string Availability(const std::vector<Result>& results) {
  std::string missing;
  int count = 0;
  for (const Result& result : results) {
    if (result.verdict.kind != Verdict::Kind::kNotAvailable) continue;
    missing += (count++ > 0 ? ", " : ": ") + NameOf(result);
  }
  return Format("- not available: %d of %zu", count, results.size()) + missing + "\n";
}

std::string MarkdownTables(const std::vector<Result>& results) {
  std::string text, component;
  for (const Result& result : results) {
    if (result.row->component != component) {
      component = result.row->component;
      text +=
          "\n### " + component +
          "\n\n| operation | bits | ms | x copy | goal | / peer | ms, large | x copy | growth "
          "| small, ns | fixed, ns | KiB |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n";
    }
    text += TableLine(result);
  }
  return text;
}

void WriteMarkdown(const std::string& path, const std::string& text) {
  const std::string begin = "<!-- bench:begin -->\n", end = "<!-- bench:end -->";
  std::stringstream old;
  old << std::ifstream(path).rdbuf();
  std::string content = old.str();
  const size_t from = content.find(begin);
  const size_t to = content.find(end);
  if (from == std::string::npos || to == std::string::npos || to < from) {
    content = text;
  } else {
    content.replace(from + begin.size(), to - from - begin.size(), text);
  }
  std::ofstream(path) << content;
}

}  // namespace qel::bench
