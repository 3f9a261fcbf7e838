#include <iostream>

#include "cli/command_table.h"
#include "cli/describe.h"
#include "cli/errors.h"
#include "cli/steps.h"

namespace qel::cli {

int ListCommand(const Words& words) {
  const Options options(words, KnownOptions("list"));
  if (!options.rest().empty()) throw Failure(kUsage, "qel list takes no names; see qel help");
  std::cout << (options.Has("--json") ? ListOperationsAsJson() : ListOperations());
  return kDone;
}

int HelpCommand(const Words& words) {
  if (words.empty()) std::cout << ListCommands();
  for (const std::string& name : words) {
    const Command* const command = FindCommand(name);
    std::cout << (command != nullptr ? DescribeCommand(*command)
                                     : DescribeOperation(RequireOperation(name)));
  }
  return kDone;
}

}  // namespace qel::cli
