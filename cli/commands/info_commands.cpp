#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/commands/describe.h"
#include "cli/operations.h"
#include "cli/terminal/errors.h"
#include "operations/table_json.h"
#include "operations/words.h"

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
    const Command* const command = FindCommand(name);
    const Operation* const operation = FindOperation(name);
    if (command == nullptr && operation == nullptr) {
      if (const std::string_view step = operations::StepFor(name); !step.empty()) {
        throw Failure(kUsage, "there is no operation {}; write {}", name, step);
      }
      std::vector<std::string_view> names = NamesOf(CommandTable());
      std::ranges::copy(NamesOf(OperationTable()), std::back_inserter(names));
      throw Failure(kUsage, "there is no command and no operation {}{}", name,
                    DidYouMean(name, names, "; qel help and qel list show them all"));
    }
    std::cout << (command != nullptr ? DescribeCommand(*command) : DescribeOperation(*operation));
  }
  return kDone;
}

}  // namespace qel::cli
