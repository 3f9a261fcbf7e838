#include "cli/dry_run.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <numeric>
#include <sstream>

#include "cli/console.h"

namespace qel::cli {
namespace {

/// Memory of an image of the tool: rows of a multiple of 64 bytes, below 24 bits with three times
/// their size in reserve.
double ImageBytes(const pictures::PictureInfo& info) {
  const double row = (int64_t{info.width} * info.bit_count + 511) / 512 * 64.0;
  return row * info.height * (info.bit_count < 24 ? 4 : 1);
}

/// Peak memory of one item: the image with the file it comes from, with the next one as steps make
/// new images of the same size, or with the file that it becomes.
double PeakBytes(const std::string& input, const pictures::PictureInfo& info, bool makes_images) {
  std::error_code ignored;
  const auto file_bytes = static_cast<double>(std::filesystem::file_size(input, ignored));
  const double image = ImageBytes(info);
  return image + std::max(file_bytes, image * (makes_images ? 1 : 0.5));
}

std::string Mebibytes(double bytes) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << bytes / (1 << 20) << " MiB";
  return text.str();
}

}  // namespace

ExitCode DryRun(const std::vector<BatchItem>& items, const std::vector<Step>& steps,
                const pictures::ReadOptions& reading, int jobs) {
  const bool makes_images =
      std::ranges::any_of(steps, [](const Step& step) { return !step.operation->in_place; });
  BatchTotals totals;
  totals.files = items.size();
  // The largest peaks, which may come together; the least of them in front.
  std::vector<double> peaks;
  for (const BatchItem& item : items) {
    ItemResult result;
    try {
      const pictures::PictureInfo info = pictures::ReadPictureHeader(item.input, reading);
      const double peak = PeakBytes(item.input, info, makes_images);
      std::cout << item.input << "  " << info.width << " x " << info.height << ", "
                << info.bit_count << " bits, " << Mebibytes(peak) << " -> " << item.output << "\n";
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
            << " at a time, about " << Mebibytes(std::accumulate(peaks.begin(), peaks.end(), 0.0))
            << " of memory for pictures\n";
  return totals.Code();
}

}  // namespace qel::cli
