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

std::string DescribeOperation(const Operation& operation) {
  std::ostringstream text;
  text << operation.name << " - " << operation.summary << "\n\n";
  for (const Parameter& parameter : operation.parameters) {
    text << "  " << parameter.name << "=  " << parameter.help << ": " << DescribeValues(parameter);
    if (!parameter.standard.empty()) {
      text << ", default " << parameter.standard;
    } else {
      text << (parameter.optional ? ", may be left out" : ", required");
    }
    text << "\n";
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

}  // namespace qel::cli
