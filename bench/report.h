#ifndef QEL_BENCH_REPORT_H_
#define QEL_BENCH_REPORT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bench/check.h"

namespace qel::bench {

/// The size that tells what a call costs apart from its pixels.
inline constexpr Size kSmallSize = {64, 64};

/// What was measured; zeros stand for what was not.
struct Figures {
  struct Large {
    double seconds = 0;
    double copies = 0;      ///< time as a multiple of the copy's
    double peer_ratio = 0;  ///< time as a multiple of the peer's
  };
  std::vector<Large> large;  ///< by size
  double small_seconds = 0;  ///< a call on `kSmallSize`
  double fixed_seconds = 0;  ///< what of it does not grow with the pixels
  int64_t scratch_bytes = 0;

  /// Multiples of the copy in the last size over those in the first.
  double Growth() const {
    return large.front().copies > 0 ? large.back().copies / large.front().copies : 0;
  }
  /// How the time in the first size compares with the row's goal: above 1 it is missed; 0 without
  /// a goal.
  double OverGoal(const Row& row) const;
};

/// One row at one depth, measured with every module of the run in turn.
struct Result {
  const Row* row = nullptr;
  int depth = 0;
  Verdict verdict = {};
  std::vector<Figures> modules = {};
};

/// What all results of a run have in common.
struct Setting {
  std::string machine;               ///< processor, compiler and peer, one line
  std::vector<std::string> modules;  ///< names of the processor levels, or of the one module
  std::vector<Size> sizes;  ///< of the large pictures; growth is the last's over the first's
};

std::string NameOf(const Result& result);

std::string NameOf(Size size);

/// A line for the terminal about a row in one of the large sizes, or in the small one (-1): the
/// modules side by side, each after " | ".
std::string LineOf(const Setting& setting, const Result& result, int size);

/// What the results of one module say together, one finding a line, as a Markdown list.
std::string Summary(const Setting& setting, const std::vector<Result>& results, size_t module);

/// Which rows are not available, as in the summary.
std::string Availability(const std::vector<Result>& results);

/// Tables by component of one module, one line for each row and depth.
std::string MarkdownTables(const Setting& setting, const std::vector<Result>& results,
                           size_t module);

/// A plot of one module's times as multiples of the peer's at the first size, a line for each row
/// with a mark for each depth, on a logarithmic scale.
std::string PlotOf(const Setting& setting, const std::vector<Result>& results, size_t module);

/// What stands around the part of a file between the lines "<!-- bench:begin NAME -->" and
/// "<!-- bench:end NAME -->".
struct MarkdownPart {
  std::string before, after;
};
/// Throws std::runtime_error if the file cannot be read or lacks these lines.
MarkdownPart FindMarkdownPart(const std::string& path, const std::string& name);
/// Replaces that part. Throws as FindMarkdownPart does, and if the file cannot be written.
void WriteMarkdown(const std::string& path, const std::string& name, const std::string& text);

}  // namespace qel::bench

#endif  // QEL_BENCH_REPORT_H_
