#ifndef QEL_OPERATIONS_TABLE_H_
#define QEL_OPERATIONS_TABLE_H_

#include "operations/operation.h"

namespace qel::operations {

/// Changes when the meaning of the table's fields does.
inline constexpr int kTableVersion = 1;

/// Every operation, by component, those that are composed last. Whatever lists, describes, parses
/// or runs operations reads this.
const std::vector<Operation>& OperationTable();

/// The row called `name`, or null.
const Operation* FindOperation(std::string_view name);

/// The row called `name`. Throws `StepError` with the nearest name.
const Operation& RequireOperation(const std::string& name);

/// The sixteen interpolation methods by name, in the order of their numbers.
std::span<const Choice> InterpolationMethods();

// The rows of each component, in operations/rows/, and those that are composed. A new operation is
// one row in one of them.
std::vector<Operation> ColorOperations();
std::vector<Operation> TransformOperations();
std::vector<Operation> FilterOperations();
std::vector<Operation> MathsOperations();
std::vector<Operation> WarpOperations();
std::vector<Operation> ComposedOperations();

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TABLE_H_
