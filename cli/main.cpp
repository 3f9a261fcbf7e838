#include "cli/command_table.h"
#include "cli/console.h"
#include "cli/errors.h"
#include "cli/operation_table.h"

namespace qel::cli {
namespace {

int Dispatch(const Words& words) {
  if (words.empty() || words[0] == "--help" || words[0] == "-h") {
    HelpCommand({});
    return words.empty() ? kUsage : kDone;
  }
  if (const Command* const command = FindCommand(words[0])) {
    return command->run({words.begin() + 1, words.end()});
  }
  std::vector<std::string_view> names;
  for (const Command& command : CommandTable()) names.push_back(command.name);
  const std::string nearest = NearestName(words[0], names);
  throw Failure(kUsage,
                "there is no command " + words[0] +
                    (nearest.empty() ? "; see qel help" : "; did you mean " + nearest + "?"));
}

int Main(const Words& words) {
  try {
    return Dispatch(words);
  } catch (const std::exception& error) {
    PrintMessage(MessageOf(error));
    return ExitCodeOf(error);
  }
}

}  // namespace
}  // namespace qel::cli

int main(int argc, char** argv) { return qel::cli::Main({argv + 1, argv + argc}); }
