#include "operations/nearest_name.h"

#include <numeric>

namespace qel::operations {
namespace {

/// Number of insertions, deletions, replacements and exchanges of neighbours between two words.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    before.swap(last);
    last.swap(row);
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      row[j + 1] = std::min({row[j] + 1, last[j + 1] + 1, last[j] + (a[i] == b[j] ? 0 : 1)});
      if (i > 0 && j > 0 && a[i] == b[j - 1] && a[i - 1] == b[j]) {
        row[j + 1] = std::min(row[j + 1], before[j - 1] + 1);
      }
    }
  }
  return row.back();
}

std::string_view NearestName(std::string_view wrong, const std::vector<std::string_view>& names) {
  const auto begun = [&](std::string_view name) { return name.starts_with(wrong); };
  if (wrong.size() > 1 && std::ranges::count_if(names, begun) == 1) {
    return *std::ranges::find_if(names, begun);
  }
  std::string_view best;
  size_t best_distance = wrong.size() / 2 + 1;
  for (const std::string_view name : names) {
    // Long names may have been left unfinished.
    const size_t distance =
        std::min(EditDistance(wrong, name), EditDistance(wrong, name.substr(0, wrong.size())) + 1);
    if (distance < best_distance) {
      best = name;
      best_distance = distance;
    }
  }
  return best;
}

}  // namespace

std::string DidYouMean(std::string_view wrong, const std::vector<std::string_view>& names,
                       const std::string& otherwise) {
  const std::string_view nearest = NearestName(wrong, names);
  return nearest.empty() ? otherwise : "; did you mean " + std::string(nearest) + "?";
}

}  // namespace qel::operations
