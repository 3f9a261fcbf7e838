#include "operations/text/python_line.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace qel::operations {
namespace {

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c == '\n' ? ' ' : c;
  }
  return quoted + "\"";
}

/// "[0, -1, 0]" of "0 -1 0".
std::string ListOf(std::string_view text) {
  std::string list;
  bool in_number = false;
  for (const char c : text) {
    const bool separates = c == ',' || std::isspace(static_cast<unsigned char>(c)) != 0;
    if (!separates && !in_number && !list.empty()) list += ", ";
    if (!separates && c != '+') list += c;
    in_number = !separates;
  }
  return "[" + list + "]";
}

/// Numbers as a list, or as a list of rows.
std::string Numbers(std::string_view text) {
  if (text.find(';') == text.npos) return ListOf(text);
  std::string rows;
  while (!text.empty()) {
    const size_t end = std::min(text.find(';'), text.size());
    rows += (rows.empty() ? "" : ", ") + ListOf(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return "[" + rows + "]";
}

bool IsPlainNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789.-eE") == text.npos;
}

/// Words of the language, which are no names of variables.
bool IsKeyword(std::string_view name) {
  static constexpr std::string_view kKeywords[] = {
      "False", "None",     "True",  "and",    "as",   "assert", "async",  "await",    "break",
      "class", "continue", "def",   "del",    "elif", "else",   "except", "finally",  "for",
      "from",  "global",   "if",    "import", "in",   "is",     "lambda", "nonlocal", "not",
      "or",    "pass",     "raise", "return", "try",  "while",  "with",   "yield"};
  return std::ranges::find(kKeywords, name) != std::end(kKeywords);
}

/// A variable named like the file of a picture: "other" of "holiday/other.png".
std::string Variable(std::string_view path) {
  const size_t slash = path.rfind('/');
  if (slash != path.npos) path.remove_prefix(slash + 1);
  std::string name(path.substr(0, path.find('.')));
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  const bool is_free = !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
                       name != "image" && name != "qel" && !IsKeyword(name);
  return is_free ? name : "other";
}

std::string Value(const Parameter& parameter, const Arguments& arguments) {
  const std::string& text = arguments.Text(parameter.name);
  switch (parameter.kind) {
    case Kind::kFlag:
      return arguments.Int(parameter.name) != 0 ? "True" : "False";
    case Kind::kNumbers:
      return Numbers(text);
    case Kind::kPicture:
      return Variable(text);
    case Kind::kInt:
    case Kind::kNumber:
    case Kind::kExtent:
    case Kind::kChoice:
      if (IsPlainNumber(text)) return text;
      [[fallthrough]];
    case Kind::kColor:
    case Kind::kPaint:
    case Kind::kPoint:
    case Kind::kText:
      break;
  }
  return Quoted(text);
}

}  // namespace

std::string PythonName(std::string_view name) {
  if (name == "with") return "other";
  std::string python(name.starts_with("with-") ? "other" + std::string(name.substr(4)) : name);
  std::replace(python.begin(), python.end(), '-', '_');
  return python;
}

std::string PythonLine(const Step& step) {
  const Operation& operation = *step.operation;
  std::string line = "qel." + PythonName(operation.name) + "(image";
  for (const Parameter& parameter : operation.parameters) {
    if (!step.arguments.Has(parameter.name)) continue;
    if (step.arguments.Text(parameter.name) == parameter.standard) continue;
    const bool positional = parameter.kind == Kind::kPicture && parameter.required();
    line += ", " + (positional ? "" : PythonName(parameter.name) + "=") +
            Value(parameter, step.arguments);
  }
  return line + ")";
}

std::vector<std::string> PythonLines(const std::vector<Step>& steps) {
  std::vector<std::string> lines;
  for (const std::string& name : PictureNames(steps)) {
    lines.push_back(Variable(name) + " = qel.imread(" + Quoted(name) + ")");
  }
  for (const Step& step : steps) lines.push_back("image = " + PythonLine(step));
  return lines;
}

}  // namespace qel::operations
