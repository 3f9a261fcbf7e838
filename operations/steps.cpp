#include "operations/steps.h"

#include <algorithm>
#include <map>

#include "operations/errors.h"
#include "operations/table.h"
#include "operations/text/nearest_name.h"
#include "operations/text/words.h"

namespace qel::operations {
namespace {

/// A step before its arguments are checked.
struct RawStep {
  const Operation* operation;
  std::map<std::string, std::string> given;
  std::string text;
};

bool IsArgument(std::string_view word) {
  const size_t equals = word.find('=');
  return equals != std::string_view::npos && word.find_first_of(" \t\n") > equals;
}

/// Splits a quoted step at blanks; quotes keep blanks together and are taken off.
std::vector<std::string> SplitWords(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false;
  char quote = '\0';
  for (const char c : text) {
    if (quote != '\0') {
      if (c == quote) {
        quote = '\0';
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      in_word = true;
    } else if (c == ' ' || c == '\t' || c == '\n') {
      if (in_word) words.push_back(std::move(word));
      word.clear();
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (quote != '\0') {
    throw StepError("step \"" + text + "\": the quote " + quote + " is not closed");
  }
  if (in_word) words.push_back(std::move(word));
  return words;
}

void AddArgument(std::vector<RawStep>& steps, const std::string& word) {
  const size_t equals = word.find('=');
  std::string name = word.substr(0, equals);
  if (steps.empty()) {
    throw StepError(word + " stands before the first operation; write OPERATION " + word);
  }
  if (const Parameter* const meant = steps.back().operation->Find(BritishSpelling(name))) {
    name = meant->name;
  }
  if (!steps.back().given.emplace(name, word.substr(equals + 1)).second) {
    throw StepError(std::string(steps.back().operation->name) + ": " + name + "= is given twice");
  }
  steps.back().text += " " + word;
}

/// True for what stands right after an operation as the value of its one argument that needs no
/// name: a number, or of a text or picture whatever names neither an operation nor an argument.
bool IsPositional(const std::vector<RawStep>& steps, std::string_view word) {
  if (steps.empty() || !steps.back().given.empty()) return false;
  const Operation& operation = *steps.back().operation;
  const Parameter* const parameter = operation.Positional();
  if (parameter == nullptr) return false;
  if (parameter->IsNumber()) {
    const size_t sign = word.starts_with('-') || word.starts_with('+') ? 1 : 0;
    return word.find_first_of("0123456789.", sign) == sign;
  }
  return FindOperation(word.substr(0, word.find_first_of(" \t\n"))) == nullptr &&
         operation.Find(word) == nullptr;
}

void AddPositional(std::vector<RawStep>& steps, const std::string& word) {
  AddArgument(steps, std::string(steps.back().operation->Positional()->name) + "=" + word);
}

/// An argument without its value looks like the next operation.
void RefuseBareArgument(const std::vector<RawStep>& steps, const std::string& word) {
  if (steps.empty() || FindOperation(word) != nullptr) return;
  const Operation& operation = *steps.back().operation;
  if (operation.Find(word) != nullptr) {
    throw StepError(std::string(operation.name) + ": " + word + " needs a value; write " + word +
                    "=VALUE");
  }
}

/// The text itself, or after an @ the content of a file.
std::string ContentOf(const Parameter& parameter, const Operation& operation,
                      const std::string& text, const ReadText& read) {
  if (parameter.kind != Kind::kNumbers || !text.starts_with('@')) return text;
  if (read) return read(text.substr(1));
  throw StepError(std::string(operation.name) + ": " + std::string(parameter.name) + "=" + text +
                      ": files are not read here; give the numbers themselves",
                  operation.name, parameter.name);
}

Arguments Check(const RawStep& step, const ReadText& read) {
  const Operation& operation = *step.operation;
  Arguments arguments(operation);
  for (const auto& [name, text] : step.given) {
    const Parameter* const parameter = operation.Find(name);
    arguments.Set(name, parameter == nullptr ? text : ContentOf(*parameter, operation, text, read));
  }
  arguments.Complete();
  return arguments;
}

}  // namespace

std::vector<Step> ParseSteps(const std::vector<std::string>& words, const ReadText& read) {
  std::vector<RawStep> raw;
  for (const std::string& word : words) {
    if (IsArgument(word)) {
      AddArgument(raw, word);
      continue;
    }
    if (IsPositional(raw, word)) {
      AddPositional(raw, word);
      continue;
    }
    for (const std::string& part : SplitWords(word)) {
      if (IsArgument(part)) {
        AddArgument(raw, part);
      } else if (IsPositional(raw, part)) {
        AddPositional(raw, part);
      } else {
        RefuseBareArgument(raw, part);
        raw.push_back({&RequireOperation(part), {}, part});
      }
    }
  }
  if (raw.empty()) {
    throw StepError("no steps given; name at least one operation, see qel list");
  }
  std::vector<Step> steps;
  for (const RawStep& step : raw) {
    steps.push_back({step.operation, Check(step, read), step.text});
  }
  return steps;
}

std::vector<std::string> SurprisesOf(const std::vector<Step>& steps, Shape shape) {
  std::vector<std::string> met;
  for (const Step& step : steps) {
    for (const std::string_view text : SurprisesOf(*step.operation, step.AsGiven(), shape)) {
      met.push_back(std::string(step.operation->name).append(": ").append(text));
    }
    shape = step.operation->ResultShape(step.AsGiven(), shape, {});
  }
  return met;
}

std::vector<std::string> PictureNames(const std::vector<Step>& steps) {
  std::vector<std::string> paths;
  for (const Step& step : steps) {
    for (const Parameter& parameter : step.operation->parameters) {
      if (parameter.kind != Kind::kPicture || !step.arguments.Has(parameter.name)) continue;
      const std::string& path = step.arguments.Text(parameter.name);
      if (std::ranges::find(paths, path) == paths.end()) paths.push_back(path);
    }
  }
  return paths;
}

}  // namespace qel::operations
