#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/commands/describe.h"
#include "cli/operations.h"
#include "cli/terminal/errors.h"
#include "operations/text/table_json.h"

namespace qel::cli {

int ListCommand(const Words& words) {
  const Options options(words, KnownOptions("list"));
  if (!options.rest().empty()) throw Failure(kUsage, "qel list takes no names; see qel help");
  std::cout << (options.Has("--json") ? operations::TableAsJson() : ListOperations());
  return kDone;
}

int HelpCommand(const Words& words) {
  if (words.empty()) std::cout << ListCommands();
  for (const std::string& name : words) {
    if (name == "exit-codes") {
      std::cout << DescribeExitCodes();
      continue;
    }
    const auto [command, operation] = FindTopic(name);
    std::cout << (command != nullptr ? DescribeCommand(*command) : DescribeOperation(*operation));
  }
  return kDone;
}

}  // namespace qel::cli
