#include "cli/operation_table.h"

#include <algorithm>
#include <iterator>

namespace qel::cli {
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

}  // namespace qel::cli
