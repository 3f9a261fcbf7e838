#ifndef QEL_CLI_COMMANDS_MANUAL_H_
#define QEL_CLI_COMMANDS_MANUAL_H_

#include <string>

#include "cli/commands/command_table.h"
#include "cli/operations.h"

namespace qel::cli {

// Pages of the manual as troff, for section 1.

/// The page of the tool: commands, operations, exit codes.
std::string ToolPage();

/// The page "qel-NAME" of one command, with its options.
std::string CommandPage(const Command& command);

/// The page "qel-NAME" of one operation.
std::string OperationPage(const Operation& operation);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_MANUAL_H_
