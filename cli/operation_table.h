#ifndef QEL_CLI_OPERATION_TABLE_H_
#define QEL_CLI_OPERATION_TABLE_H_

#include "cli/operation.h"

namespace qel::cli {

/// Every operation of the tool, by component. Listing, help, parsing and running all read this.
const std::vector<Operation>& OperationTable();

/// The row called `name`, or null.
const Operation* FindOperation(std::string_view name);

// The rows of each component, in cli/operations/. A new operation is one row in one of them.
std::vector<Operation> ColorOperations();
std::vector<Operation> TransformOperations();
std::vector<Operation> FilterOperations();
std::vector<Operation> MathsOperations();
std::vector<Operation> WarpOperations();

}  // namespace qel::cli

#endif  // QEL_CLI_OPERATION_TABLE_H_
