#ifndef QEL_CLI_COMMANDS_DESCRIBE_H_
#define QEL_CLI_COMMANDS_DESCRIBE_H_

#include <string>

#include "cli/commands/command_table.h"
#include "cli/operations.h"

namespace qel::cli {

/// What a name stands for: a command or, where there is none, an operation; the other is null.
struct Topic {
  const Command* command;
  const Operation* operation;
};

/// Throws `Failure(kUsage)` with what may be meant when nothing has this name.
Topic FindTopic(const std::string& name);

/// What a message about a name that is neither ends with: commands and operations that are likely
/// to be meant, or `otherwise`.
std::string HintAtTopic(const std::string& name, const std::string& otherwise);

/// All operations by component, a line each.
std::string ListOperations();

/// Everything about one operation: arguments, depths, example, what may surprise.
std::string DescribeOperation(const Operation& operation);

/// What an argument is, in one line: meaning, values, default.
std::string DescribeParameter(const Parameter& parameter);

/// Five everyday examples, then the commands, a line each, on one screen.
std::string ListCommands();

/// What the exit codes mean.
std::string DescribeExitCodes();

/// One command with its options.
std::string DescribeCommand(const Command& command);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_DESCRIBE_H_
