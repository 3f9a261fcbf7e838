#ifndef QEL_CLI_COMMANDS_COMMAND_TABLE_H_
#define QEL_CLI_COMMANDS_COMMAND_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "cli/commands/commands.h"
#include "cli/terminal/options.h"

namespace qel::cli {

/// What a word on the command line stands for, for completion.
enum class Word { kNothing, kFile, kStep, kOperation, kShell, kProgress, kNumber, kText };

/// One option of a command.
struct CommandOption {
  std::string_view name;
  /// What its value is called; empty when it takes none, "=value" when it may do without.
  std::string_view value;
  std::string_view help;
  Word word = Word::kNothing;  ///< what its value is

  bool NeedsValue() const { return !value.empty() && !value.starts_with('='); }
  /// As it is written in help: "--name VALUE", or "--name[=value]".
  std::string Written() const;
};

/// One command of the tool: enough for dispatch, help, completion and the manual.
struct Command {
  std::string_view name;
  int (*run)(const Words& words);
  std::string_view usage;  ///< what stands after the name
  std::string_view summary;
  std::vector<CommandOption> options = {};
  std::vector<Word> words = {};  ///< what its other words may be
  std::string_view note = {};    ///< what may surprise; may be empty
  std::string_view example = {};
  bool special = false;  ///< help names it without a line of its own
};

/// Every command of the tool, in the order of the manual.
const std::vector<Command>& CommandTable();

/// The command called `name`, or null.
const Command* FindCommand(std::string_view name);

/// The options of the command `name`, for parsing.
Options::Known KnownOptions(std::string_view name);

}  // namespace qel::cli

#endif  // QEL_CLI_COMMANDS_COMMAND_TABLE_H_
