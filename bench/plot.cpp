#include <algorithm>
#include <cmath>
#include <sstream>

#include "bench/report.h"

namespace qel::bench {
namespace {

constexpr double kLeast = 0.02, kMost = 2;  // ends of the scale, as multiples of the peer's time
constexpr int kNames = 230;                 // pixels left of the scale
constexpr int kScale = 480;
constexpr int kLine = 15;
constexpr int kHead = 64;

struct DepthMark {
  int depth;
  const char* color;
};
constexpr DepthMark kMarks[] = {{8, "#888888"}, {24, "#2a78d6"}, {32, "#d65f2a"}};

double PlaceOf(double ratio) {
  const double bounded = std::clamp(ratio, kLeast, kMost);
  return kNames + kScale * std::log(bounded / kLeast) / std::log(kMost / kLeast);
}

void Text(std::ostream& out, double x, double y, const char* anchor, const std::string& text) {
  out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">";
  for (const char c : text) {
    if (c == '&' || c == '<') {
      out << (c == '&' ? "&amp;" : "&lt;");
    } else {
      out << c;
    }
  }
  out << "</text>\n";
}

}  // namespace

std::string PlotOf(const Setting& setting, const std::vector<Result>& results, size_t module) {
  struct Line {
    const Row* row;
    std::vector<std::pair<DepthMark, double>> marks;
  };
  std::vector<Line> lines;
  for (const Result& result : results) {
    if (result.verdict.kind != Verdict::Kind::kRight || !result.row->floor.empty()) continue;
    const double ratio = result.modules[module].large.front().peer_ratio;
    const auto mark = std::find_if(std::begin(kMarks), std::end(kMarks),
                                   [&](const DepthMark& m) { return m.depth == result.depth; });
    if (ratio <= 0 || mark == std::end(kMarks)) continue;
    if (lines.empty() || lines.back().row != result.row) lines.push_back({result.row, {}});
    lines.back().marks.push_back({*mark, ratio});
  }
  const int bottom = kHead + kLine * static_cast<int>(lines.size());
  const int width = kNames + kScale + 30;
  std::ostringstream out;
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\""
      << bottom + 12 << "\" font-family=\"sans-serif\" font-size=\"11\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  Text(out, 8, 16, "start",
       "Time as a multiple of OpenCV's, " + NameOf(setting.sizes.front()) + ", " +
           setting.modules[module] + "; left of 1 is faster");
  double x = 8;
  for (const DepthMark& mark : kMarks) {
    out << "<circle cx=\"" << x + 4 << "\" cy=\"30\" r=\"4\" fill=\"" << mark.color << "\"/>";
    Text(out, x + 12, 34, "start", std::to_string(mark.depth) + " bits");
    x += 70;
  }
  for (const double tick : {0.02, 0.05, 0.1, 0.2, 0.5, 1.0, 2.0}) {
    const double at = PlaceOf(tick);
    out << "<line x1=\"" << at << "\" x2=\"" << at << "\" y1=\"" << kHead - 8 << "\" y2=\""
        << bottom << "\" stroke=\"" << (tick == 1.0 ? "#c00000" : "#dddddd") << "\"/>";
    std::ostringstream label;
    label << tick;
    Text(out, at, kHead - 12, "middle", label.str());
  }
  int y = kHead + kLine / 2;
  for (const Line& line : lines) {
    Text(out, kNames - 8, y + 4, "end", line.row->component + " " + line.row->name);
    for (const auto& [mark, ratio] : line.marks) {
      out << "<circle cx=\"" << PlaceOf(ratio) << "\" cy=\"" << y << "\" r=\"4\" fill=\""
          << mark.color << "\" fill-opacity=\"0.8\"/>\n";
    }
    y += kLine;
  }
  out << "</svg>\n";
  return out.str();
}

}  // namespace qel::bench
