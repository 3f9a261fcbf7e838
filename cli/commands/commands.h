#ifndef QEL_CLI_COMMANDS_COMMANDS_H_
#define QEL_CLI_COMMANDS_COMMANDS_H_

#include <string>
#include <vector>

namespace qel::cli {

// The tool's commands. Each takes the words after its name, prints to standard output, and returns
// an exit code; failures come as exceptions, which `main` turns into messages and exit codes.

using Words = std::vector<std::string>;

/// The version of the tool.
inline constexpr char kToolVersion[] = QEL_VERSION;

int RunCommand(const Words& words);
int ConvertCommand(const Words& words);
int InfoCommand(const Words& words);
int VerifyCommand(const Words& words);
int VersionCommand(const Words& words);
int ListCommand(const Words& words);
int HelpCommand(const Words& words);
int DemoCommand(const Words& words);
int MethodsCommand(const Words& words);
int SheetCommand(const Words& words);
int DiffCommand(const Words& words);
int InspectCommand(const Words& words);
int CheckCommand(const Words& words);
int CheckHostCommand(const Words& words);
int CompletionCommand(const Words& words);
int ManCommand(const Words& words);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_COMMANDS_H_
