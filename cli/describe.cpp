#include "cli/describe.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "cli/arguments.h"
#include "cli/operation_table.h"

namespace qel::cli {

std::string ListOperations() {
  std::ostringstream text;
  std::string_view component;
  size_t widest = 0;
  for (const Operation& operation : OperationTable()) {
    widest = std::max(widest, operation.name.size());
  }
  for (const Operation& operation : OperationTable()) {
    if (operation.component != component) {
      text << (component.empty() ? "" : "\n") << operation.component << "\n";
      component = operation.component;
    }
    text << "  " << std::left << std::setw(static_cast<int>(widest)) << operation.name << "  "
         << operation.summary << "\n";
  }
  return text.str();
}

std::string DescribeParameter(const Parameter& parameter) {
  std::ostringstream text;
  text << parameter.help << ": " << DescribeValues(parameter);
  if (!parameter.standard.empty()) {
    text << ", default " << parameter.standard;
  } else {
    text << (parameter.optional ? ", may be left out" : ", required");
  }
  return text.str();
}

std::string DescribeOperation(const Operation& operation) {
  std::ostringstream text;
  text << operation.name << " - " << operation.summary << "\n\n";
  for (const Parameter& parameter : operation.parameters) {
    text << "  " << parameter.name << "=  " << DescribeParameter(parameter) << "\n";
  }
  if (!operation.parameters.empty()) text << "\n";
  text << "Component  " << operation.component << "\n"
       << "Depths     " << operation.depths << " bits\n"
       << "Result     " << (operation.in_place ? "changes the picture in place" : "a new picture")
       << "\n"
       << "Example    qel run in.png -o out.png \"" << operation.example << "\"\n";
  if (!operation.note.empty()) text << "Note       " << operation.note << "\n";
  return text.str();
}

std::string ListCommands() {
  std::ostringstream text;
  for (const Command& command : CommandTable()) {
    text << "qel " << command.name << (command.usage.empty() ? "" : " ") << command.usage
         << "\n    " << command.summary << "\n";
  }
  text << "\nqel help COMMAND shows its options, qel help OPERATION its arguments.\n"
          "A step is an operation with its arguments: \"light brightness=30 contrast=10\".\n";
  return text.str();
}

std::string DescribeCommand(const Command& command) {
  std::ostringstream text;
  text << "qel " << command.name << " " << command.usage << "\n    " << command.summary << "\n";
  if (!command.options.empty()) text << "\n";
  for (const CommandOption& option : command.options) {
    const std::string name = std::string(option.name) + " " + std::string(option.value);
    text << "  " << std::left << std::setw(21) << name << " " << option.help << "\n";
  }
  if (!command.note.empty()) text << "\n" << command.note << "\n";
  return text.str();
}

}  // namespace qel::cli
