#include "bench/report.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace qel::bench {
namespace {

constexpr size_t kMostNamed = 20;
constexpr double kMostGrowth = 1.2;
constexpr double kMostFixedSeconds = 1e-6;
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

/// In parentheses, where the operation has several.
std::string MethodOf(const Result& result) {
  return result.row->method ? " (" + result.row->method(result.depth) + ")" : "";
}

std::string TableLine(const Result& result, size_t module, bool has_growth) {
  std::string line =
      "| " + result.row->name + MethodOf(result) + " | " + std::to_string(result.depth) + " | ";
  if (result.verdict.kind != Verdict::Kind::kRight) {
    return line + result.verdict.reason + (has_growth ? " | | |" : "") + " | | | | | | |\n";
  }
  const Figures& figures = result.modules[module];
  const Figures::Large& first = figures.large.front();
  const Figures::Large& last = figures.large.back();
  std::vector<std::string> cells = {Format("%.3f", first.seconds * 1e3), Digits(first.copies),
                                    GoalOf(*result.row), Digits(first.peer_ratio)};
  const auto add = [&](std::initializer_list<std::string> more) {
    cells.insert(cells.end(), more);
  };
  if (has_growth) {
    add({Format("%.2f", last.seconds * 1e3), Digits(last.copies), Digits(figures.Growth())});
  }
  add({Format("%.0f", figures.small_seconds * 1e9), Format("%.0f", figures.fixed_seconds * 1e9),
       Format("%.1f", static_cast<double>(figures.scratch_bytes) / 1024)});
  for (const std::string& cell : cells) line += cell + " | ";
  line.back() = '\n';
  return line;
}

}  // namespace

double Figures::OverGoal(const Row& row) const {
  if (row.goal == 0) return 0;
  return (row.floor.empty() ? large.front().copies : large.front().peer_ratio) / row.goal;
}

std::string NameOf(const Result& result) {
  return result.row->component + " " + result.row->name + " at " + std::to_string(result.depth) +
         " bits";
}

std::string NameOf(Size size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

std::string LineOf(const Setting& setting, const Result& result, int size) {
  const Row& row = *result.row;
  const bool is_small = size < 0;
  std::string line =
      Format("%-9s %-28s %2d  %11s", row.component.c_str(), row.name.c_str(), result.depth,
             NameOf(is_small ? kSmallSize : setting.sizes[static_cast<size_t>(size)]).c_str());
  if (!is_small && row.goal > 0) line += "  goal " + GoalOf(row);
  line += MethodOf(result);
  for (size_t i = 0; i < setting.modules.size(); ++i) {
    const Figures& figures = result.modules[i];
    line += " | " + setting.modules[i];
    if (is_small) {
      line += Format("%10.0f ns, %.0f of them fixed; %.1f KiB beyond the result",
                     figures.small_seconds * 1e9, figures.fixed_seconds * 1e9,
                     static_cast<double>(figures.scratch_bytes) / 1024);
      continue;
    }
    const Figures::Large& large = figures.large[static_cast<size_t>(size)];
    line += Format("%10.3f ms %6s x copy", large.seconds * 1e3, Digits(large.copies).c_str());
    if (large.peer_ratio > 0) {
      line += Format(" %6s x ", Digits(large.peer_ratio).c_str());
      line += row.floor.empty() ? "OpenCV" : row.floor;
    }
    if (size == 0 && figures.OverGoal(row) > 1) line += " MISSED";
  }
  return line;
}

std::string Summary(const Setting& setting, const std::vector<Result>& results, size_t module) {
  const std::string first = NameOf(setting.sizes.front()), last = NameOf(setting.sizes.back());
  GeometricMean means[2];
  Findings slower("slower than OpenCV (our time / OpenCV's)", 1);
  Findings missed("over their goal (time / goal)", 1);
  Findings growing(Format("growing by more than %g from ", kMostGrowth) + first + " to " + last,
                   kMostGrowth);
  Findings costly("with more than 1 us that does not depend on the pixels (in us)",
                  kMostFixedSeconds * 1e6);
  Findings hungry("with more than 64 KiB of memory beyond the result (in KiB)", 64);
  std::map<std::string, std::map<int, double>> flat;  // copies at 24 bits, by kind and size
  for (const Result& result : results) {
    const Figures& figures = result.modules[module];
    const double peer_ratio = figures.large.front().peer_ratio;
    if (result.row->floor.empty()) {
      means[0].Add(peer_ratio);
      means[1].Add(figures.large.back().peer_ratio);
      slower.Add(NameOf(result), peer_ratio);
    }
    missed.Add(NameOf(result), figures.OverGoal(*result.row));
    if (setting.sizes.size() > 1) growing.Add(NameOf(result), figures.Growth());
    const bool is_clear = figures.fixed_seconds > kDoubt * figures.small_seconds;
    costly.Add(NameOf(result), is_clear ? figures.fixed_seconds * 1e6 : 1e-9);
    hungry.Add(NameOf(result), static_cast<double>(figures.scratch_bytes) / 1024);
    const std::string& name = result.row->name;
    const size_t blank = name.find(' ');
    if (result.row->component == "filter" && result.depth == 24 && blank != std::string::npos) {
      flat[name.substr(0, blank)][std::atoi(name.c_str() + blank)] = figures.large.front().copies;
    }
  }
  std::string text = means[0].Text(("at " + first).c_str());
  if (setting.sizes.size() > 1) text += means[1].Text(("at " + last).c_str());
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

std::string MarkdownTables(const Setting& setting, const std::vector<Result>& results,
                           size_t module) {
  const bool has_growth = setting.sizes.size() > 1;
  std::string text, component;
  for (const Result& result : results) {
    if (result.row->component != component) {
      component = result.row->component;
      text += "\n#### " + component + "\n\n| operation | bits | ms | x copy | goal | / peer | ";
      if (has_growth) text += "ms at " + NameOf(setting.sizes.back()) + " | x copy | growth | ";
      text += "small, ns | fixed, ns | KiB |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|";
      text += has_growth ? "--:|--:|--:|\n" : "\n";
    }
    text += TableLine(result, module, has_growth);
  }
  return text;
}

MarkdownPart FindMarkdownPart(const std::string& path, const std::string& name) {
  const std::string begin = "<!-- bench:begin " + name + " -->\n";
  const std::string end = "<!-- bench:end " + name + " -->";
  std::stringstream old;
  old << std::ifstream(path).rdbuf();
  const std::string content = old.str();
  const size_t from = content.find(begin);
  const size_t to = content.find(end);
  if (from == std::string::npos || to == std::string::npos || to < from) {
    throw std::runtime_error(path + " has no lines " + begin + end + " to write between");
  }
  return {content.substr(0, from + begin.size()), content.substr(to)};
}

void WriteMarkdown(const std::string& path, const std::string& name, const std::string& text) {
  const MarkdownPart part = FindMarkdownPart(path, name);
  std::ofstream file(path);
  file << part.before << text << part.after;
  if (!file.flush()) throw std::runtime_error(path + " cannot be written");
}

}  // namespace qel::bench
