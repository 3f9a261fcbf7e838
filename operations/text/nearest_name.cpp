#include "operations/text/nearest_name.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace qel::operations {
namespace {

/// Number of insertions, deletions, replacements and exchanges of neighbours between what was typed
/// and a name, or one more than those between it and a beginning of the name, if that is less.
size_t Distance(std::string_view a, std::string_view b) {
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
  return std::min(row.back(), *std::min_element(row.begin(), row.end()) + 1);
}

/// How many letters of a name may be wrong when its user still means it: a third, and none where so
/// few are left that other names are as near.
size_t MostWrong(std::string_view name) { return name.size() < 3 ? 0 : name.size() / 3; }

/// In short names the first letter is typed right, and neighbours are exchanged.
bool BeginAlike(std::string_view a, std::string_view b) {
  constexpr size_t kShort = 5;
  if (a.size() >= kShort || b.empty()) return true;
  return a[0] == b[0] || (b.size() > 1 && a.size() > 1 && a[0] == b[1] && a[1] == b[0]);
}

/// Those of `names` that are likely to be meant: the only one that begins with `wrong`, or the
/// nearest.
std::vector<std::string_view> NearestNames(std::string_view wrong,
                                           std::vector<std::string_view> names) {
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  std::vector<std::string_view> nearest;
  if (wrong.empty()) return nearest;
  if (wrong.size() > 1) {
    std::copy_if(names.begin(), names.end(), std::back_inserter(nearest),
                 [&](std::string_view name) { return name.starts_with(wrong); });
    if (nearest.size() == 1) return nearest;
    nearest.clear();
  }
  size_t least = MostWrong(wrong);
  for (const std::string_view name : names) {
    if (!BeginAlike(wrong, name)) continue;
    const size_t distance = Distance(wrong, name);
    if (distance > least) continue;
    if (distance < least) nearest.clear();
    least = distance;
    nearest.push_back(name);
  }
  return nearest;
}

}  // namespace

std::string DidYouMean(std::string_view wrong, const std::vector<std::string_view>& names,
                       const std::string& otherwise) {
  constexpr size_t kMost = 2;  // beyond that nobody knows
  const std::vector<std::string_view> nearest = NearestNames(wrong, names);
  if (nearest.empty() || nearest.size() > kMost) return otherwise;
  std::string hint = "; did you mean " + std::string(nearest.front());
  if (nearest.size() > 1) hint.append(" or ").append(nearest.back());
  return hint + "?";
}

}  // namespace qel::operations
