#ifndef QEL_CLI_DESCRIBE_H_
#define QEL_CLI_DESCRIBE_H_

#include <string>

#include "cli/operation.h"

namespace qel::cli {

/// All operations by component, a line each.
std::string ListOperations();

/// Everything about one operation: arguments, depths, example, what may surprise.
std::string DescribeOperation(const Operation& operation);

}  // namespace qel::cli

#endif  // QEL_CLI_DESCRIBE_H_
