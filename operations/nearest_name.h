#ifndef QEL_OPERATIONS_NEAREST_NAME_H_
#define QEL_OPERATIONS_NEAREST_NAME_H_

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace qel::operations {

/// What a message about a wrong name ends with: "; did you mean light?" with the nearest of
/// `names`, or `otherwise` when none is near. A name that only one begins with counts as this one.
std::string DidYouMean(std::string_view wrong, const std::vector<std::string_view>& names,
                       const std::string& otherwise);

/// The names of all rows of a table.
template <typename Rows>
std::vector<std::string_view> NamesOf(const Rows& rows) {
  std::vector<std::string_view> names;
  for (const auto& row : rows) names.push_back(row.name);
  return names;
}

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_NEAREST_NAME_H_
