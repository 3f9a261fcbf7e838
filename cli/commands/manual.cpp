#include "cli/commands/manual.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "cli/commands/command_table.h"
#include "cli/commands/describe.h"
#include "cli/operations.h"
#include "cli/terminal/errors.h"
#include "pictures/atomic_file.h"
#include "pictures/byte_reader.h"

namespace qel::cli {
namespace {

/// Text as troff takes it: no line is a request, hyphens stay hyphens.
std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const bool starts_line = escaped.empty() || escaped.back() == '\n';
    if (starts_line && (c == '.' || c == '\'')) escaped += "\\&";
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Heading(const std::string& name, std::string_view summary) {
  std::string upper = name;
  std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
  return fmt::format(".TH \"{}\" 1\n.SH NAME\n{} \\- {}\n", Escaped(upper), Escaped(name),
                     Escaped(summary));
}

/// A paragraph with a bold tag and a text.
std::string Tagged(std::string_view tag, std::string_view text) {
  return fmt::format(".TP\n\\fB{}\\fR\n{}\n", Escaped(tag), Escaped(text));
}

}  // namespace

std::string ToolPage() {
  std::ostringstream page;
  page << Heading("qel", "image operations from the command line") << ".SH SYNOPSIS\n";
  for (const Command& command : CommandTable()) {
    page << ".B qel " << Escaped(command.name) << "\n" << Escaped(command.usage) << "\n.br\n";
  }
  page << ".SH DESCRIPTION\n"
          "A step is the name of an operation with its arguments as name=value, in quotes or as\n"
          "plain words. Several steps run one after the other. The extension of an output names\n"
          "its format: PNG, JPEG, TIFF, WebP, BMP or PNM/PAM.\n"
          ".SH COMMANDS\n";
  for (const Command& command : CommandTable()) {
    page << Tagged(command.name, fmt::format("{}; see qel-{}(1)", command.summary, command.name));
  }
  page << ".SH OPERATIONS\nEach has a page of its own, such as "
       << Escaped(fmt::format("qel-{}", OperationTable().front().name)) << "(1).\n";
  for (const Operation& operation : OperationTable()) {
    page << Tagged(operation.name, operation.summary);
  }
  page << ".SH EXIT STATUS\n";
  for (const ExitMeaning& meaning : kExitMeanings) {
    page << Tagged(fmt::format("{}", static_cast<int>(meaning.code)), meaning.text);
  }
  return page.str();
}

std::string CommandPage(const Command& command) {
  std::ostringstream page;
  page << Heading(fmt::format("qel-{}", command.name), command.summary) << ".SH SYNOPSIS\n.B qel "
       << Escaped(command.name) << "\n"
       << Escaped(command.usage) << "\n";
  if (!command.options.empty()) page << ".SH OPTIONS\n";
  for (const CommandOption& option : command.options) {
    page << Tagged(option.Written(), option.help);
  }
  if (!command.note.empty()) page << ".SH NOTES\n" << Escaped(command.note) << "\n";
  page << ".SH EXAMPLE\n.nf\n" << Escaped(command.example) << "\n.fi\n.SH SEE ALSO\n.BR qel (1)\n";
  return page.str();
}

std::string OperationPage(const Operation& operation) {
  const std::string name(operation.name);
  std::ostringstream page;
  page << Heading("qel-" + name, operation.summary) << ".SH SYNOPSIS\n.B qel run\nINPUT "
       << Escaped("-o OUTPUT \"" + name);
  for (const Parameter& parameter : operation.parameters) {
    const bool required = parameter.required();
    page << (required ? " " : " [") << Escaped(parameter.name) << "=..." << (required ? "" : "]");
  }
  page << "\"\n.SH ARGUMENTS\n";
  if (operation.parameters.empty()) page << "None.\n";
  for (const Parameter& parameter : operation.parameters) {
    page << Tagged(std::string(parameter.name) + "=", DescribeParameter(parameter));
  }
  page << ".SH RESULT\n"
       << (operation.in_place ? "The picture is changed in place" : "A new picture") << ", at "
       << Escaped(operation.depths) << " bits.\n"
       << ".SH EXAMPLE\n"
       << Escaped(fmt::format("qel run in.png -o out.png \"{}\"", operation.example)) << "\n";
  const std::string caveats = operation.Caveats();
  if (!caveats.empty()) page << ".SH NOTES\n" << Escaped(caveats) << "\n";
  page << ".SH SEE ALSO\n.BR qel (1)\n";
  return page.str();
}

int ManCommand(const Words& words) {
  const Options options(words, KnownOptions("man"));
  if (options.rest().size() > (options.Has("-o") ? 0 : 1)) {
    throw Failure(kUsage,
                  "write qel man, qel man OPERATION, qel man COMMAND, or qel man -o FOLDER");
  }
  if (!options.Has("-o")) {
    if (options.rest().empty()) {
      std::cout << ToolPage();
    } else {
      const auto [command, operation] = FindTopic(options.rest()[0]);
      std::cout << (command != nullptr ? CommandPage(*command) : OperationPage(*operation));
    }
    return kDone;
  }
  const std::filesystem::path folder = options.Value("-o");
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw Failure(kNoOutput, "{}: {}", folder.string(), error.message());
  const auto write = [&](std::string_view name, const std::string& page) {
    const std::filesystem::path path = folder / fmt::format("{}.1", name);
    pictures::WriteFileAtomically(path.string(), pictures::BytesOf(page));
  };
  write("qel", ToolPage());
  for (const Command& command : CommandTable()) {
    write(fmt::format("qel-{}", command.name), CommandPage(command));
  }
  for (const Operation& operation : OperationTable()) {
    write(fmt::format("qel-{}", operation.name), OperationPage(operation));
  }
  return kDone;
}

}  // namespace qel::cli
