#include "cli/batch/dry_run.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>

#include "cli/batch/forecast.h"
#include "cli/operations.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/console.h"

namespace qel::cli {

ExitCode DryRun(const std::vector<BatchItem>& items, const std::vector<Step>& steps,
                const RunOptions& options) {
  const pictures::ReadOptions& reading = options.reading;
  std::map<std::string, Shape> second_shapes;
  for (const std::string& path : PictureNames(steps)) {
    second_shapes[path] = ShapeOf(pictures::ReadPictureHeader(path, reading));
  }
  const Forecaster forecaster{steps, reading.limits,
                              [&](const std::string& name) { return second_shapes.at(name); },
                              options.writing, options.band_rows};
  const auto at_once = static_cast<int>(std::min(items.size(), static_cast<size_t>(options.jobs)));
  const int threads =
      options.threads > 0 ? options.threads : std::max(1, options.jobs / std::max(at_once, 1));
  BatchTotals totals;
  totals.files = items.size();
  // The largest peaks, which may come together; the least of them in front.
  std::vector<double> peaks;
  for (const BatchItem& item : items) {
    if (!std::cout) break;  // nobody reads on
    ItemResult result;
    try {
      pictures::CheckReplaceable(item.output, options.replace);
      pictures::ByteSource file(item.input, reading.limits);
      const auto reader = pictures::OpenRows(file, item.input, reading);
      const Shape source = ShapeOf(reader->info());
      const Forecast forecast = forecaster.Of(item, source, RowTraffic::Of(*reader), threads);
      const Shape& shape = forecast.shape();
      const double peak = forecast.peak_bytes;
      std::cout << Printable(item.input) << "  " << source.Size() << ", " << source.Bits() << " -> "
                << Printable(item.output) << "  " << shape.Size() << ", " << shape.Bits() << "; "
                << Mebibytes(peak) << "\n";
      peaks.push_back(peak);
      std::ranges::push_heap(peaks, std::greater());
      if (peaks.size() > static_cast<size_t>(options.jobs)) {
        std::ranges::pop_heap(peaks, std::greater());
        peaks.pop_back();
      }
    } catch (const std::exception& error) {
      result = FailureOf(item.input, error);
      PrintMessage(result.reason);
    }
    totals.Add(result);
  }
  std::cout << totals.done << (totals.done == 1 ? " file, " : " files, ")
            << std::min(peaks.size(), items.size())
            << " at a time, at most about "
            // Most of what the program takes are libraries, which a run needs as well.
            << Mebibytes(PeakBytes() + std::accumulate(peaks.begin(), peaks.end(), 0.0))
            << " of memory, the program's own included\n"
            << "limits for each: " << reading.limits.max_pixels << " pixels, "
            << Mebibytes(static_cast<double>(reading.limits.max_memory)) << " of memory\n";
  return totals.Code();
}

}  // namespace qel::cli
