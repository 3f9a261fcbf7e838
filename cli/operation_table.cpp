#include "cli/operation_table.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace qel::cli {
namespace {

/// Number of insertions, deletions and replacements between two words.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

const std::vector<Operation>& OperationTable() {
  static const std::vector<Operation> table = [] {
    std::vector<Operation> rows;
    for (const auto component : {&ColorOperations, &TransformOperations, &WarpOperations,
                                 &FilterOperations, &MathsOperations}) {
      std::ranges::move(component(), std::back_inserter(rows));
    }
    return rows;
  }();
  return table;
}

const Operation* FindOperation(std::string_view name) {
  const auto found = std::ranges::find(OperationTable(), name, &Operation::name);
  return found == OperationTable().end() ? nullptr : &*found;
}

std::string NearestName(std::string_view wrong, const std::vector<std::string_view>& names) {
  std::string_view best;
  size_t best_distance = wrong.size() / 2 + 1;
  for (const std::string_view name : names) {
    const size_t distance = EditDistance(wrong, name);
    if (distance < best_distance) {
      best = name;
      best_distance = distance;
    }
  }
  return std::string(best);
}

}  // namespace qel::cli
