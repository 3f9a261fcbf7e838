#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/commands/describe.h"
#include "cli/operations.h"
#include "cli/session/session.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"
#include "cli/terminal/process.h"
#include "operations/text/words.h"

namespace qel::cli {
namespace {

/// True when the words ask how a command is used.
bool AskForHelp(const Words& words) {
  return std::ranges::find(words, "--help") != words.end() || words == Words{"-h"};
}

int Dispatch(const Words& words) {
  if (words.empty() || words[0] == "--help" || words[0] == "-h") {
    HelpCommand({});
    return words.empty() ? kUsage : kDone;
  }
  if (words[0] == "--version") return VersionCommand({words.begin() + 1, words.end()});
  const std::string& name = words[0];
  if (const Command* const command = FindCommand(name)) {
    const Words rest(words.begin() + 1, words.end());
    return AskForHelp(rest) ? HelpCommand({name}) : command->run(rest);
  }
  if (FindOperation(name) != nullptr) {
    throw Failure(kUsage,
                  "{0} is an operation; write qel run INPUT -o OUTPUT {0}, see qel help {0}", name);
  }
  if (const std::string_view step = operations::StepFor(name); !step.empty()) {
    throw Failure(kUsage, "there is no command {}; write qel run INPUT -o OUTPUT {}", name, step);
  }
  throw Failure(kUsage, "there is no command {}{}", name, HintAtTopic(name, "; see qel help"));
}

int Main(const Words& words) {
  try {
    FindFormatPlugins();
    const int code = Dispatch(words);
    if (!std::cout.flush()) {
      EndIfNobodyReads(STDOUT_FILENO);
      throw Failure(kNoOutput, "standard output cannot be written");
    }
    return code;
  } catch (const std::exception& error) {
    PrintMessage(MessageOf(error));
    return ExitCodeOf(error);
  }
}

}  // namespace
}  // namespace qel::cli

int main(int argc, char** argv) {
  qel::cli::PrepareProcess();
  return qel::cli::Main({argv + 1, argv + argc});
}
