#include "cli/commands/describe.h"

#include <fmt/core.h>

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <sstream>

#include "cli/operations.h"
#include "cli/terminal/errors.h"
#include "operations/text/words.h"

namespace qel::cli {
namespace {

constexpr size_t kTextWidth = 80;
constexpr size_t kTagWidth = 11;

/// A text in lines of at most 80 columns, with a tag beside the first and room for one beside the
/// others.
std::string Tagged(const std::string& tag, size_t indent, std::string_view text) {
  std::string lines = tag + std::string(indent - tag.size(), ' ');
  size_t column = indent;
  std::istringstream words{std::string(text)};
  for (std::string word; words >> word; column += word.size()) {
    if (column > indent && column + 1 + word.size() > kTextWidth) {
      lines += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (column > indent) {
      lines += ' ';
      ++column;
    }
    lines += word;
  }
  return lines + "\n";
}

}  // namespace

Topic FindTopic(const std::string& name) {
  if (const Command* const command = FindCommand(name)) return {command, nullptr};
  if (const Operation* const operation = FindOperation(name)) return {nullptr, operation};
  if (const std::string_view step = operations::StepFor(name); !step.empty()) {
    throw Failure(kUsage, "there is no operation {}; write {}", name, step);
  }
  throw Failure(kUsage, "there is no command and no operation {}{}", name,
                HintAtTopic(name, "; qel help and qel list show them all"));
}

std::string HintAtTopic(const std::string& name, const std::string& otherwise) {
  std::vector<std::string_view> names = NamesOf(CommandTable());
  std::ranges::copy(NamesOf(OperationTable()), std::back_inserter(names));
  return DidYouMean(name, names, otherwise);
}

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
    text << (parameter.required() ? ", required" : ", optional");
  }
  return text.str();
}

std::string DescribeOperation(const Operation& operation) {
  std::ostringstream text;
  text << operation.name << " - " << operation.summary << "\n\n";
  size_t widest = 0;
  for (const Parameter& parameter : operation.parameters) {
    widest = std::max(widest, parameter.name.size() + 1);
  }
  for (const Parameter& parameter : operation.parameters) {
    text << Tagged(fmt::format("  {}=", parameter.name), widest + 4, DescribeParameter(parameter));
  }
  if (!operation.parameters.empty()) text << "\n";
  text << Tagged("Component", kTagWidth, operation.component)
       << Tagged("Depths", kTagWidth, fmt::format("{} bits", operation.depths))
       << Tagged("Result", kTagWidth,
                 operation.in_place ? "changes the picture in place" : "a new picture")
       << "Example    qel run in.png -o out.png \"" << operation.example << "\"\n";
  const std::string caveats = operation.Caveats();
  if (!caveats.empty()) text << Tagged("Note", kTagWidth, caveats);
  return text.str();
}

std::string ListCommands() {
  // What most people come for, a screen in all.
  std::ostringstream text;
  text << "Pictures from the command line. Every day:\n"
          "  qel run photo.jpg -o small.jpg resize width=1600\n"
          "  qel run 'photos/*.jpg' -o web/ resize width=1600 height=1600 sharpen\n"
          "  qel run photo.jpg -o straight.jpg turn 1.5 crop aspect=16:9\n"
          "  qel run photo.jpg -o marked.jpg overlay with=logo.png x=20 y=20\n"
          "  qel convert scan.tiff -o scan.png\n\n";
  std::string more;
  for (const Command& command : CommandTable()) {
    if (command.special) {
      more += more.empty() ? "" : ", ";
      more += command.name;
    } else {
      text << Tagged(fmt::format("  {}", command.name), 12, command.summary);
    }
  }
  text << "\n"
       << Tagged("Also", 12, more)
       << Tagged("", 0,
                 "qel help COMMAND shows its options, qel help OPERATION its arguments, qel list "
                 "all operations, qel help exit-codes what the tool returns. A step is an "
                 "operation with its arguments: light brightness=30 contrast=10");
  return text.str();
}

std::string DescribeExitCodes() {
  std::ostringstream text;
  text << "Exit codes\n";
  for (const ExitMeaning& meaning : kExitMeanings) {
    text << Tagged(fmt::format("  {}", static_cast<int>(meaning.code)), 7, meaning.text);
  }
  return text.str();
}

std::string DescribeCommand(const Command& command) {
  std::ostringstream text;
  text << "qel " << command.name << (command.usage.empty() ? "" : " ") << command.usage << "\n    "
       << command.summary << "\n";
  if (!command.options.empty()) text << "\n";
  for (const CommandOption& option : command.options) {
    text << Tagged("  " + option.Written(), 24, option.help);
  }
  if (!command.note.empty()) text << "\n" << Tagged("", 0, command.note);
  text << "\nExample    " << command.example << "\n";
  return text.str();
}

}  // namespace qel::cli
