#include "cli/batch/dry_run.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>

#include "cli/batch/forecast.h"
#include "cli/terminal/console.h"
#include "cli/operations.h"

namespace qel::cli {
namespace {

Shape ShapeOfFile(const std::string& path, const pictures::ReadOptions& reading) {
  const pictures::PictureInfo info = pictures::ReadPictureHeader(path, reading);
  return {info.width, info.height, info.bit_count, operations::ModelOf(info.bit_count)};
}

}  // namespace

ExitCode DryRun(const std::vector<BatchItem>& items, const std::vector<Step>& steps,
                const pictures::ReadOptions& reading, const pictures::WriteOptions& writing,
                pictures::Replace replace, int jobs) {
  std::map<std::string, Shape> second_shapes;
  for (const std::string& path : PictureNames(steps)) {
    second_shapes[path] = ShapeOfFile(path, reading);
  }
  const Forecaster forecaster{steps, reading.limits,
                              [&](const std::string& name) { return second_shapes.at(name); },
                              writing.extension};
  BatchTotals totals;
  totals.files = items.size();
  // The largest peaks, which may come together; the least of them in front.
  std::vector<double> peaks;
  for (const BatchItem& item : items) {
    if (!std::cout) break;  // nobody reads on
    ItemResult result;
    try {
      pictures::CheckReplaceable(item.output, replace);
      const Shape source = ShapeOfFile(item.input, reading);
      const auto [shape, peak] = forecaster.Of(item, source);
      std::cout << Printable(item.input) << "  " << source.Size() << ", " << source.Bits() << " -> "
                << Printable(item.output) << "  " << shape.Size() << ", " << shape.Bits() << "; "
                << Mebibytes(peak) << "\n";
      peaks.push_back(peak);
      std::ranges::push_heap(peaks, std::greater());
      if (peaks.size() > static_cast<size_t>(jobs)) {
        std::ranges::pop_heap(peaks, std::greater());
        peaks.pop_back();
      }
    } catch (const std::exception& error) {
      result = FailureOf(item.input, error);
      PrintMessage(result.reason);
    }
    totals.Add(result);
  }
  std::cout << totals.done << " files, " << std::min(peaks.size(), items.size())
            << " at a time, at most about "
            << Mebibytes(std::accumulate(peaks.begin(), peaks.end(), 0.0))
            << " of memory for pictures\n"
            << "limits for each: " << reading.limits.max_pixels << " pixels, "
            << Mebibytes(static_cast<double>(reading.limits.max_memory)) << " of memory\n";
  return totals.Code();
}

}  // namespace qel::cli
