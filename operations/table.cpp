#include "operations/table.h"

#include <iterator>

#include "operations/errors.h"
#include "operations/text/nearest_name.h"
#include "operations/text/words.h"

namespace qel::operations {

const std::vector<Operation>& OperationTable() {
  static const std::vector<Operation> table = [] {
    std::vector<Operation> rows;
    for (const auto component : {&ColorOperations, &TransformOperations, &WarpOperations,
                                 &FilterOperations, &MathsOperations, &ComposedOperations}) {
      std::ranges::move(component(), std::back_inserter(rows));
    }
    return rows;
  }();
  return table;
}

const Operation* FindOperation(std::string_view name) {
  const auto found = std::ranges::find(OperationTable(), name, &Operation::name);
  if (found != OperationTable().end()) return &*found;
  // By the name that it has in its interface.
  const std::string kebab = FromInterfaceName(name);
  return kebab == name ? nullptr : FindOperation(kebab);
}

const Operation& RequireOperation(const std::string& name) {
  if (const Operation* const found = FindOperation(name)) return *found;
  if (const std::string_view step = StepFor(name); !step.empty()) {
    throw StepError("there is no operation " + name + "; write " + std::string(step), name);
  }
  throw StepError("there is no operation " + name +
                      DidYouMean(name, NamesOf(OperationTable()), "; qel list shows them all"),
                  name);
}

}  // namespace qel::operations
