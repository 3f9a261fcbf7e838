#ifndef QEL_OPERATIONS_TEXT_NEAREST_NAME_H_
#define QEL_OPERATIONS_TEXT_NEAREST_NAME_H_

#include <string>
#include <string_view>
#include <vector>

namespace qel::operations {

/// What a message about a wrong name ends with: "; did you mean light?", or "light or gamma?", with
/// those of `names` that are likely to be meant, and `otherwise` when there is none or more than
/// two are as near. Likely is the only name that begins with `wrong`, and otherwise the names of
/// least distance, counted in letters to insert, remove, replace or exchange (Damerau), of which
/// there may be one for each three letters of `wrong`. Names may be there several times.
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

#endif  // QEL_OPERATIONS_TEXT_NEAREST_NAME_H_
