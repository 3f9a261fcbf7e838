#include "cli/batch/dry_run.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <sstream>

#include "cli/terminal/console.h"
#include "cli/terminal/utf8.h"

namespace qel::cli {
namespace {

/// What becomes of one picture.
struct Forecast {
  Shape shape;
  double peak_bytes;
};

/// What writing a picture takes, by the byte of its image: the file with room to grow, and what the
/// format's library needs. Measured with noise, which compresses worst.
double EncoderShare(const std::string& output) {
  switch (pictures::FormatOfPath(output)) {
    case pictures::Format::kWebp:
      return 8;
    case pictures::Format::kPng:
    case pictures::Format::kJpeg:
    case pictures::Format::kTiff:
      return 2;
    case pictures::Format::kBmp:
    case pictures::Format::kPnm:
      break;
  }
  return 1.25;
}

/// At first there is the image with the file that it comes from, then with the one that a step
/// makes of it, at the end with the file that it becomes. Memory of images that were replaced is
/// kept for the next ones.
Forecast Foresee(const BatchItem& item, const Shape& source, const std::vector<Step>& steps) {
  std::error_code ignored;
  const auto file_bytes = static_cast<double>(std::filesystem::file_size(item.input, ignored));
  Forecast forecast{source, ImageBytes(source) + file_bytes};
  double kept = 0;
  for (const Step& step : steps) {
    const Operation& operation = *step.operation;
    if (operation.result_shape == nullptr && operation.in_place) continue;
    const double before = ImageBytes(forecast.shape);
    if (operation.result_shape != nullptr) {
      forecast.shape = operation.result_shape(step.AsGiven(), forecast.shape);
    }
    kept = std::max(kept, before);
    forecast.peak_bytes = std::max(forecast.peak_bytes, kept + ImageBytes(forecast.shape));
  }
  const double written = (1 + EncoderShare(item.output)) * ImageBytes(forecast.shape);
  forecast.peak_bytes = std::max(forecast.peak_bytes, kept + written);
  return forecast;
}

std::string Mebibytes(double bytes) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << bytes / (1 << 20) << " MiB";
  return text.str();
}

}  // namespace

double ImageBytes(const Shape& shape) {
  const double row = (int64_t{shape.width} * shape.bits + 511) / 512 * 64.0;
  return row * shape.height * (shape.bits < 24 ? 4 : 1);
}

ExitCode DryRun(const std::vector<BatchItem>& items, const std::vector<Step>& steps,
                const pictures::ReadOptions& reading, pictures::Replace replace, int jobs) {
  BatchTotals totals;
  totals.files = items.size();
  // The largest peaks, which may come together; the least of them in front.
  std::vector<double> peaks;
  for (const BatchItem& item : items) {
    if (!std::cout) break;  // nobody reads on
    ItemResult result;
    try {
      pictures::CheckReplaceable(item.output, replace);
      const pictures::PictureInfo info = pictures::ReadPictureHeader(item.input, reading);
      const auto [shape, peak] = Foresee(item, {info.width, info.height, info.bit_count}, steps);
      std::cout << Printable(item.input) << "  " << info.width << " x " << info.height << ", "
                << info.bit_count << " bits -> " << Printable(item.output) << "  " << shape.Size()
                << ", " << shape.Bits() << "; " << Mebibytes(peak) << "\n";
      peaks.push_back(peak);
      std::ranges::push_heap(peaks, std::greater());
      if (peaks.size() > static_cast<size_t>(jobs)) {
        std::ranges::pop_heap(peaks, std::greater());
        peaks.pop_back();
      }
    } catch (const pictures::PictureError& error) {
      result = {ItemResult::Status::kFailed, ExitCodeOf(error), error.what()};
      PrintMessage(result.reason);
    }
    totals.Add(result);
  }
  std::cout << totals.done << " files, " << std::min(peaks.size(), items.size())
            << " at a time, at most about "
            << Mebibytes(std::accumulate(peaks.begin(), peaks.end(), 0.0))
            << " of memory for pictures\n";
  return totals.Code();
}

}  // namespace qel::cli
