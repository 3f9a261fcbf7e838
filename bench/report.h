#ifndef QEL_BENCH_REPORT_H_
#define QEL_BENCH_REPORT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bench/check.h"

namespace qel::bench {

/// The sizes that are measured. The small one tells what a call costs apart from its pixels.
inline constexpr Size kSizes[] = {{1920, 1080}, {3840, 2160}, {64, 64}};
inline constexpr int kSmallSize = 2;
inline constexpr int kSizeCount = 3;

/// What was measured of one row at one depth; zeros stand for what was not.
struct Result {
  const Row* row = nullptr;
  int depth = 0;
  Verdict verdict = {};
  struct Large {
    double seconds = 0;
    double copies = 0;      ///< time as a multiple of the copy's
    double peer_ratio = 0;  ///< time as a multiple of the peer's
  } large[2] = {};
  double small_seconds = 0;  ///< a call on 64 x 64 pixels
  double fixed_seconds = 0;  ///< what of it does not grow with the pixels
  int64_t scratch_bytes = 0;

  /// Multiples of the copy in the second size over those in the first.
  double Growth() const { return large[0].copies > 0 ? large[1].copies / large[0].copies : 0; }
  /// How the time compares with the row's goal: above 1 it is missed; 0 without a goal.
  double OverGoal(int size) const;
};

std::string NameOf(const Result& result);

/// A line for the terminal about a row in one of the sizes.
std::string LineOf(const Result& result, int size);

/// What all results say together, one finding a line, as a Markdown list.
std::string Summary(const std::vector<Result>& results);

/// Which rows are not available, as in the summary.
std::string Availability(const std::vector<Result>& results);

/// Tables by component, one line for each row and depth.
std::string MarkdownTables(const std::vector<Result>& results);

/// Writes `text` to the file, between its lines "<!-- bench:begin -->" and "<!-- bench:end -->" if
/// it has them.
void WriteMarkdown(const std::string& path, const std::string& text);

}  // namespace qel::bench

#endif  // QEL_BENCH_REPORT_H_
