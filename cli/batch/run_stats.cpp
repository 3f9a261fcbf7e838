#include "cli/batch/run_stats.h"

#include <algorithm>
#include <iomanip>

namespace qel::cli {

void RunStats::Add(const PictureTimes& times) {
  const std::lock_guard lock(mutex_);
  ++pictures_;
  sum_.reading += times.reading;
  sum_.writing += times.writing;
  sum_.megapixels += times.megapixels;
  for (size_t i = 0; i < sum_.steps.size(); ++i) sum_.steps[i] += times.steps[i];
}

void RunStats::Print(std::span<const std::string> steps, std::ostream& output) const {
  size_t widest = 10;
  for (const std::string& step : steps) widest = std::max(widest, step.size());
  const auto line = [&](const std::string& name, double seconds) {
    output << std::left << std::setw(static_cast<int>(widest)) << name << std::right << std::fixed
           << std::setprecision(3) << std::setw(10) << seconds << " s" << std::setprecision(1)
           << std::setw(10) << 1000 * seconds / static_cast<double>(std::max<size_t>(pictures_, 1))
           << " ms/picture" << std::setw(10) << (seconds > 0 ? sum_.megapixels / seconds : 0)
           << " MP/s\n";
  };
  output << pictures_ << " pictures, " << std::fixed << std::setprecision(1) << sum_.megapixels
         << " megapixels\n";
  line("read", sum_.reading);
  for (size_t i = 0; i < steps.size(); ++i) line(steps[i], sum_.steps[i]);
  line("write", sum_.writing);
}

}  // namespace qel::cli
