#ifndef QEL_OPERATIONS_TEXT_TABLE_JSON_H_
#define QEL_OPERATIONS_TEXT_TABLE_JSON_H_

#include <string>

namespace qel::operations {

/// The table as JSON, for programs that offer the operations: {"version", "operations": [...]}, one
/// operation a line, with its parameters, their types, ranges and defaults.
std::string TableAsJson();

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_TABLE_JSON_H_
